#pragma once

#include <QString>

/// Creates the file for its owner only, where the temporary directory is shared with other users; an existing
/// file stays as it is. Failures are left to whoever opens the file.
void createPrivateFile(const QString& path);
