#pragma once

#include <functional>
#include <utility>

namespace ko_player {

/// Carries a release action that runs once, when the guard is destroyed. Move-only; may be empty.
class ResourceGuard {
public:
    ResourceGuard() = default;
    explicit ResourceGuard(std::function<void()> release) : release_(std::move(release)) {}
    /// Runs `acquire` at once and `release` at the end.
    ResourceGuard(const std::function<void()>& acquire, std::function<void()> release)
        : release_(std::move(release)) {
        acquire();
    }

    ResourceGuard(const ResourceGuard&) = delete;
    ResourceGuard& operator=(const ResourceGuard&) = delete;
    ResourceGuard(ResourceGuard&& other) noexcept : release_(std::exchange(other.release_, nullptr)) {}
    ResourceGuard& operator=(ResourceGuard&& other) noexcept {
        if (this != &other) {
            run();
            release_ = std::exchange(other.release_, nullptr);
        }
        return *this;
    }
    ~ResourceGuard() { run(); }

private:
    void run() {
        if (release_) {
            std::exchange(release_, nullptr)();
        }
    }

    std::function<void()> release_;
};

} // namespace ko_player
