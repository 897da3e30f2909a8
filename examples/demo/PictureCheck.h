#pragma once

#include <QString>
#include <QStringList>

namespace mediaworker::demo {

/// What is wrong with the pictures of the camera's film that lie in a folder as mediaworker-ctl saves them,
/// with the time stamp in their names: parts of two pictures in one, or another one than announced. (A
/// picture that is read after its message may be the next one already, or on a busy machine a later one;
/// within a second that is no fault.) One line each.
[[nodiscard]] QStringList wrongPictures(const QString& folder, int& checked);

} // namespace mediaworker::demo
