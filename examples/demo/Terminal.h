#pragma once

#include <QString>

/// What the demo tells: lines that stay, and one that is written over again and again where a person looks.
namespace mediaworker::demo::terminal {

/// How often a progress line is worth it: a file keeps them all.
[[nodiscard]] int progressIntervalMs();

void showProgress(const QString& line);
void printLine(const QString& text);

} // namespace mediaworker::demo::terminal
