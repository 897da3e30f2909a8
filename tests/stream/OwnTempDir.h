#pragma once

#include "support/Platform.h"

#include <QTemporaryDir>

namespace mediaworker::test {

/// A temporary directory of the test's own while it lives. A process that a death test starts inherits it, so
/// what that leaves behind goes with it.
class OwnTempDir {
private:
    const QTemporaryDir folder_;
    const platform::TemporaryDirectory use_{folder_.path().toStdString()};
};

} // namespace mediaworker::test
