#include "stream/PrivateFile.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

void createPrivateFile(const QString& path) {
    // The mode is given at creation: between a creation with the usual mode and a later change of it, anybody
    // could open the file and keep reading the pictures.
    const int descriptor =
        ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor >= 0) {
        ::close(descriptor);
    }
}
