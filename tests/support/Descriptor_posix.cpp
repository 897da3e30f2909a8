#include "support/Descriptor.h"

#include <utility>

#include <unistd.h>

namespace mediaworker::test {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        reset();
        value_ = other.release();
    }
    return *this;
}

int Descriptor::release() noexcept {
    return std::exchange(value_, -1);
}

void Descriptor::reset() noexcept {
    if (value_ >= 0) {
        ::close(release());
    }
}

} // namespace mediaworker::test
