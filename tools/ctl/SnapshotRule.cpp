#include "tools/ctl/SnapshotRule.h"

namespace mediaworker::ctl {

bool SnapshotRule::take(qint64 ptsMs) {
    const bool isFirst = !takenMs_ || ptsMs < newestMs_;
    newestMs_ = ptsMs;
    // Time stamps are the stream's: their difference may not fit, but as an unsigned number it does.
    const quint64 behindMs = isFirst ? 0 : static_cast<quint64>(ptsMs) - static_cast<quint64>(*takenMs_);
    if (!isFirst && behindMs < static_cast<quint64>(interval_.count())) {
        return false;
    }
    takenMs_ = ptsMs;
    ++count_;
    return true;
}

QString SnapshotRule::fileName() const {
    return QStringLiteral("picture-%1-at-%2-ms.png").arg(count_, 4, 10, QLatin1Char('0')).arg(*takenMs_);
}

} // namespace mediaworker::ctl
