#include "stream/PrivateFile.h"

// The temporary directory belongs to the user there.
void createPrivateFile(const QString& /*path*/) {}
