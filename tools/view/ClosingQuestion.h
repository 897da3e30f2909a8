#pragma once

#include <QString>

class QWidget;

namespace mediaworker::view {

/// Asks whether the recordings that run are to be finished, so that the window can close. False: they go on.
[[nodiscard]] bool asksToFinish(QWidget* window, int running);

} // namespace mediaworker::view
