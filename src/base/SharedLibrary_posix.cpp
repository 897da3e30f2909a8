#include "base/SharedLibrary.h"

#include <dlfcn.h>

#include <stdexcept>

namespace base {

SharedLibrary::SharedLibrary(const std::string& name, int majorVersion) {
    const std::string file = "lib" + name + ".so." + std::to_string(majorVersion);
    handle_ = ::dlopen(file.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (handle_ == nullptr) {
        throw std::runtime_error(::dlerror());
    }
}

void* SharedLibrary::address(const char* symbol) const {
    void* found = ::dlsym(handle_, symbol);
    if (found == nullptr) {
        throw std::runtime_error(::dlerror());
    }
    return found;
}

} // namespace base
