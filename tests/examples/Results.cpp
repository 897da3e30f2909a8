#include "Results.h"

#include "support/media/TestPicture.h"

#include <QImage>

#include <algorithm>

namespace mediaworker::test {

std::optional<int> numberOf(const std::filesystem::path& png) {
    const QImage image = QImage(QString::fromStdString(png.string())).convertToFormat(QImage::Format_RGB32);
    if (image.isNull()) {
        return std::nullopt;
    }
    return readFrameNumber({image.constBits(), image.width(), image.height(), image.bytesPerLine()});
}

std::vector<std::string> filesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace mediaworker::test
