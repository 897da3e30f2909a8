#include "parent/FrameChannel.h"

#include "parent/RandomName.h"

#include <QDir>
#include <QtEndian>

#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

namespace mediaworker::parent {

namespace {

constexpr int kHeaderBytes = 8;    // width UI32, height UI32
constexpr int kReservedBytes = 64; // behind the picture
constexpr int kBytesPerPixel = 4;

// Two fresh names can meet in one semaphore once in 65536 times; so many in a row means something else.
constexpr std::size_t kNameAttempts = 16;

} // namespace

FrameChannel::Hold::Hold(Hold&& other) noexcept : lock_(std::exchange(other.lock_, nullptr)) {}

FrameChannel::Hold& FrameChannel::Hold::operator=(Hold&& other) noexcept {
    if (this != &other) {
        release();
        lock_ = std::exchange(other.lock_, nullptr);
    }
    return *this;
}

FrameChannel::Hold::~Hold() {
    release();
}

void FrameChannel::Hold::release() noexcept {
    if (lock_ != nullptr) {
        std::exchange(lock_, nullptr)->release();
    }
}

FrameChannel::FrameChannel() {
    std::vector<std::unique_ptr<SharedLock>> taken;
    do {
        name_ = randomName();
        lock_ = SharedLock::create(name_, SharedLock::IfTaken::Keep);
        if (!lock_->isUsable()) {
            taken.push_back(std::move(lock_));
        }
    } while (!lock_ && taken.size() < kNameAttempts);
    if (!lock_) {
        throw std::runtime_error("semaphore: no free key");
    }
    file_.setFileName(QDir::tempPath() + QDir::separator() + name_);
}

FrameChannel::FrameChannel(const QString& name)
    : name_(name), lock_(SharedLock::create(name, SharedLock::IfTaken::Reset)),
      file_(QDir::tempPath() + QDir::separator() + name) {}

FrameChannel::~FrameChannel() {
    unmap();
    file_.close();
    file_.remove();
}

std::optional<QImage> FrameChannel::read(std::chrono::milliseconds patience) {
    return read(hold(patience));
}

std::optional<QImage> FrameChannel::read(const Hold& hold) {
    QImage image;
    withPicture(hold, [&](const std::uint8_t* bgra, int width, int height) {
        image = QImage(width, height, QImage::Format_RGB32);
        if (!image.isNull()) {
            std::memcpy(image.bits(), bgra,
                        static_cast<std::size_t>(width) * kBytesPerPixel * static_cast<std::size_t>(height));
        }
    });
    return image.isNull() ? std::nullopt : std::optional(std::move(image));
}

bool FrameChannel::withPicture(const PictureReader& reader, std::chrono::milliseconds patience) {
    return withPicture(hold(patience), reader);
}

bool FrameChannel::withPicture(const Hold& hold, const PictureReader& reader) {
    if (!hold) {
        return false;
    }
    const std::optional<Size> size = openPicture();
    if (size) {
        reader(mapping_ + kHeaderBytes, size->width, size->height);
    }
    if (SharedLock::mappingBlocksResize()) {
        unmap();
    }
    return size.has_value();
}

FrameChannel::Hold FrameChannel::hold(std::chrono::milliseconds patience) {
    return Hold(lock_->acquire(patience) ? lock_.get() : nullptr);
}

void FrameChannel::workerEnded() noexcept {
    lock_->reclaim();
}

// Touches no byte of the mapping that the file does not have at this moment: the worker may have shrunk it
// since it was mapped, and reading behind a file's end is fatal. It cannot shrink while the semaphore is
// held.
std::optional<FrameChannel::Size> FrameChannel::openPicture() {
    if (!file_.isOpen() && !file_.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return std::nullopt;
    }
    const qint64 fileBytes = file_.size();
    if (fileBytes < kHeaderBytes + kReservedBytes) {
        return std::nullopt;
    }
    if (fileBytes != mappedBytes_) {
        unmap();
        mapping_ = file_.map(0, fileBytes);
        if (mapping_ == nullptr) {
            return std::nullopt;
        }
        mappedBytes_ = fileBytes;
    }
    const auto width = qFromLittleEndian<quint32>(mapping_);
    const auto height = qFromLittleEndian<quint32>(mapping_ + 4);
    constexpr quint32 kMaxSide = std::numeric_limits<int>::max() / kBytesPerPixel;
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) {
        return std::nullopt;
    }
    const quint64 pixels = quint64{width} * height;
    const auto room = static_cast<quint64>(fileBytes - kHeaderBytes - kReservedBytes) / kBytesPerPixel;
    if (pixels > room) {
        return std::nullopt;
    }
    return Size{static_cast<int>(width), static_cast<int>(height)};
}

void FrameChannel::unmap() {
    if (mapping_ != nullptr) {
        file_.unmap(const_cast<uchar*>(mapping_));
        mapping_ = nullptr;
    }
    mappedBytes_ = 0;
}

} // namespace mediaworker::parent
