#include "parent/RandomName.h"

#include <QByteArray>
#include <QRandomGenerator>

#include <array>

namespace mediaworker::parent {

QString randomName() {
    std::array<quint32, 4> bits{};
    QRandomGenerator::system()->fillRange(bits.data(), static_cast<qsizetype>(bits.size()));
    QByteArray bytes;
    for (const quint32 word : bits) {
        bytes += QByteArray::number(word, 16).rightJustified(8, '0');
    }
    return QStringLiteral("mediaworker-") + QString::fromLatin1(bytes);
}

} // namespace mediaworker::parent
