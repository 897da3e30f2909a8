#include "parent/SharedLock.h"

#include <QCryptographicHash>

namespace mediaworker::parent {

QString SharedLock::nativeName(const QString& key) {
    QString name = QStringLiteral("qipc_systemsem_");
    for (const QChar c : key) {
        const char16_t u = c.unicode();
        if ((u >= u'A' && u <= u'Z') || (u >= u'a' && u <= u'z')) {
            name += c;
        }
    }
    return name +
           QString::fromLatin1(QCryptographicHash::hash(key.toUtf8(), QCryptographicHash::Sha1).toHex());
}

} // namespace mediaworker::parent
