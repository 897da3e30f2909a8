#include "parent/MaskedUrls.h"

#include <algorithm>

namespace mediaworker::parent {

namespace {

constexpr char kBeforeUser[] = "://";
constexpr int kBeforeUserSize = sizeof(kBeforeUser) - 1;
constexpr char kMask[] = "***";

/// Where host and port, and what stands before them, must have ended.
bool endsAuthority(QChar c) {
    return c == u'/' || c == u'?' || c == u'#' || c == u'\n';
}

/// What cannot be "host" or "host:port" begins as a name and a password do.
bool beginsAsPassword(const QString& authority) {
    const auto isDigit = [](QChar c) { return c >= u'0' && c <= u'9'; };
    const auto isOfSentence = [](QChar c) { return c.isSpace() || QStringLiteral(":,;.)'\"").contains(c); };
    const int behindAddress = std::max(authority.indexOf(u']'), 0); // that of an IPv6 one has colons
    const int colon = authority.indexOf(u':', behindAddress);
    if (colon < 0) {
        return false;
    }
    const auto port = std::find_if_not(authority.begin() + colon + 1, authority.end(), isDigit);
    return port != authority.end() && !isOfSentence(*port);
}

} // namespace

QString maskedUrls(const QString& text) {
    const int lastAt = text.lastIndexOf(u'@');
    QString result;
    int done = 0; // so much of the text is in the result
    while (done < lastAt) {
        const int scheme = text.indexOf(QLatin1String(kBeforeUser), done);
        if (scheme < 0 || scheme > lastAt) {
            break;
        }
        const int begin = scheme + kBeforeUserSize;
        const int end =
            static_cast<int>(std::find_if(text.begin() + begin, text.end(), endsAuthority) - text.begin());
        const QString authority = text.mid(begin, end - begin);
        const int atInAuthority = authority.lastIndexOf(u'@');
        int at = atInAuthority < 0 ? -1 : begin + atInAuthority;
        if (at < 0 && beginsAsPassword(authority)) {
            at = lastAt;
        }
        result += text.mid(done, begin - done);
        if (at >= begin) {
            result += QLatin1String(kMask);
        }
        done = std::max(at, begin);
    }
    return result + text.mid(done);
}

} // namespace mediaworker::parent
