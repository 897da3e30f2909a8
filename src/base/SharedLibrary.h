#pragma once

#include <string>

namespace base {

/// A shared library that is loaded while the program runs and stays loaded to its end. Thread-safe once made.
class SharedLibrary {
public:
    /// `name` without prefix and ending ("avformat"), with the major version of its interface; looked up
    /// where the system looks for a program's libraries. Throws std::runtime_error with the system's reason.
    SharedLibrary(const std::string& name, int majorVersion);

    /// Throws std::runtime_error when the library has no such symbol.
    [[nodiscard]] void* address(const char* symbol) const;

    /// Fills in a function pointer.
    template <class Function>
    void resolve(Function*& function, const char* symbol) const {
        function = reinterpret_cast<Function*>(address(symbol));
    }

private:
    void* handle_ = nullptr;
};

} // namespace base
