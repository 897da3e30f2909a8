#include "tools/playlist/PlainText.h"

#include <QVector>

namespace mediaworker {

namespace {

bool isShowable(uint codePoint) {
    switch (QChar::category(codePoint)) {
    case QChar::Other_Control:
    case QChar::Other_Format: // marks of direction, too
    case QChar::Other_Surrogate:
    case QChar::Other_PrivateUse:
    case QChar::Other_NotAssigned:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    default:
        return true;
    }
}

} // namespace

QString plainText(const QString& text) {
    QString plain;
    // Far more than is shown, and little enough to look at.
    const QString beginning = text.left(16 * kLongestPlainText).simplified();
    for (const uint codePoint : beginning.toUcs4()) {
        if (isShowable(codePoint)) {
            plain += QString::fromUcs4(&codePoint, 1);
        }
    }
    plain = plain.simplified();
    if (plain.size() <= kLongestPlainText) {
        return plain;
    }
    plain.truncate(kLongestPlainText - 1);
    if (plain.at(plain.size() - 1).isHighSurrogate()) {
        plain.chop(1);
    }
    return plain + QChar(0x2026); // …
}

} // namespace mediaworker
