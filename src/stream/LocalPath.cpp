#include "stream/LocalPath.h"

std::string localPath(const QString& url) {
    static const QString scheme = QStringLiteral("file:///");
    QString rest = url;
    const auto position = rest.indexOf(scheme);
    if (position >= 0) {
        rest.remove(position, scheme.size());
    }
    return local_path::encode(local_path::toPlatformPath(rest, position >= 0));
}
