#pragma once

#include <cstddef>
#include <set>
#include <string>

namespace mediaworker::soak {

/// What a stream, and the parent of its worker, do to the worker.
enum class Role {
    Steady,   ///< nothing
    Changing, ///< the server changes the size and stalls; the parent keeps the frame file for itself at times
    Commanded, ///< the parent pauses, turns the sound on and off, and reads nothing for a while
    Broken, ///< the server resets, ends, falls silent, sends garbage; the parent kills. A new worker follows
};

inline constexpr std::size_t kRoles = 4;

[[nodiscard]] inline Role roleOf(std::size_t stream) {
    return static_cast<Role>(stream % kRoles);
}

[[nodiscard]] inline const char* nameOf(Role role) {
    switch (role) {
    case Role::Steady:
        return "steady";
    case Role::Changing:
        return "sizes change, stalls, frame file held";
    case Role::Commanded:
        return "pauses, sound on and off, slow parent";
    case Role::Broken:
        break;
    }
    return "resets, ends, silence, garbage, kills";
}

/// The exit codes that such a worker may have; the others are a failure of the run.
[[nodiscard]] inline std::set<int> codesOf(Role role) {
    return role == Role::Broken ? std::set<int>{0, 1, 2, 3} : std::set<int>{0};
}

[[nodiscard]] inline std::string pathOf(std::size_t stream) {
    return "/live/" + std::to_string(stream) + ".flv";
}

} // namespace mediaworker::soak
