#pragma once

#include <QByteArray>
#include <QTemporaryDir>

namespace mediaworker::test {

/// A temporary directory of the test's own while it lives. A process that a death test starts inherits it, so
/// what that leaves behind goes with it.
class OwnTempDir {
public:
    OwnTempDir() { qputenv("TMPDIR", folder_.path().toLocal8Bit()); }
    OwnTempDir(const OwnTempDir&) = delete;
    OwnTempDir& operator=(const OwnTempDir&) = delete;
    ~OwnTempDir() { previous_.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", previous_); }

private:
    const QByteArray previous_ = qgetenv("TMPDIR");
    const QTemporaryDir folder_;
};

} // namespace mediaworker::test
