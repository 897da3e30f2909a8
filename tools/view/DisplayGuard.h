#pragma once

namespace mediaworker::view {

/// While it lives, a complaint of Qt that would abort this process ends it in order: the only
/// one while an application begins is that there is no display. What Qt says meanwhile is kept to itself.
class DisplayGuard {
public:
    static constexpr int kExitStatus = 1;

    DisplayGuard();
    ~DisplayGuard();
    DisplayGuard(const DisplayGuard&) = delete;
    DisplayGuard& operator=(const DisplayGuard&) = delete;
};

} // namespace mediaworker::view
