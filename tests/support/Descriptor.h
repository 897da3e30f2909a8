#pragma once

namespace mediaworker::test {

/// A file descriptor with one owner.
class Descriptor {
public:
    explicit Descriptor(int value = -1) noexcept : value_(value) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&& other) noexcept : value_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor() { reset(); }

    [[nodiscard]] int get() const noexcept { return value_; }
    [[nodiscard]] int release() noexcept;
    void reset() noexcept;

private:
    int value_;
};

} // namespace mediaworker::test
