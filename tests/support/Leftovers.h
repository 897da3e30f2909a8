#pragma once

#include <QDir>

#include <string>

namespace mediaworker::test {

/// Names of what lies in the system's temporary folder, for tests that have one of their own.
[[nodiscard]] inline std::string leftovers() {
    return QDir(QDir::tempPath())
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)
        .join(QLatin1Char(' '))
        .toStdString();
}

} // namespace mediaworker::test
