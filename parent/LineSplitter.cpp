#include "parent/LineSplitter.h"

#include <algorithm>
#include <utility>

namespace mediaworker::parent {

void LineSplitter::feed(const QByteArray& bytes, const Sink& sink) {
    int begin = 0;
    for (int end = bytes.indexOf('\n'); end >= 0; end = bytes.indexOf('\n', begin)) {
        append(bytes.constData() + begin, end - begin, sink);
        QByteArray line = std::exchange(line_, {});
        if (line.endsWith('\r')) {
            line.chop(1);
        }
        sink(line);
        begin = end + 1;
    }
    append(bytes.constData() + begin, bytes.size() - begin, sink);
}

void LineSplitter::append(const char* bytes, int size, const Sink& sink) {
    while (size > 0) {
        const int piece = std::min(size, kMaxLineBytes - line_.size());
        line_.append(bytes, piece);
        bytes += piece;
        size -= piece;
        if (line_.size() == kMaxLineBytes && size > 0) {
            sink(std::exchange(line_, {}));
        }
    }
}

void LineSplitter::finish(const Sink& sink) {
    if (!line_.isEmpty()) {
        sink(std::exchange(line_, {}));
    }
}

} // namespace mediaworker::parent
