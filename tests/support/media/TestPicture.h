#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace mediaworker::test {

/// A picture in memory as the worker writes it: rows from top to bottom, four bytes a pixel, blue first.
struct BgraView {
    const std::uint8_t* data = nullptr;
    int widthPx = 0;
    int heightPx = 0;
    std::ptrdiff_t strideBytes = 0;
};

struct Rgb {
    int red = 0;
    int green = 0;
    int blue = 0;

    bool operator==(const Rgb&) const = default;
};

/// The fixed patches of every test picture, from left to right.
enum class Patch { White, Black, Red, Green, Blue, Yellow, Cyan, Magenta, Gray };
inline constexpr std::array kPatches = {Patch::White, Patch::Black,   Patch::Red,
                                        Patch::Green, Patch::Blue,    Patch::Yellow,
                                        Patch::Cyan,  Patch::Magenta, Patch::Gray};

/// What the patch looks like before it is coded.
[[nodiscard]] Rgb patchColour(Patch patch) noexcept;

/// Draws numbered pictures as planar 4:2:0 (BT.601, limited range): a scrolling gradient, a moving square, a
/// counter in big digits, colour patches, and the number as large black and white squares, once at the top
/// and once at the bottom, so that a picture put together from two shows. All places are fractions of the
/// size, so the squares are found again after any scaling. Not thread-safe.
class TestPicture {
public:
    /// `noise` is the amplitude (0 to 64) of grain over the middle, for streams that need a high bit rate.
    /// Throws std::invalid_argument for sizes whose squares would be too small to read.
    TestPicture(int widthPx, int heightPx, int noise = 0);

    /// Draws picture `number` (0 to 2^24 - 1).
    void draw(int number);

    /// The planes Y, U, V one after the other without padding.
    [[nodiscard]] std::span<const std::uint8_t> bytes() const noexcept { return bytes_; }

private:
    struct Rect {
        int left, top, right, bottom; ///< in cells of the grid
    };

    void fill(int left, int top, int right, int bottom, Rgb colour);
    void fillCells(Rect cells, Rgb colour);
    void drawBackground(int number);
    void drawSquare(int number);
    void drawCounter(int number);
    void drawCode(int number, int topRow);
    void addNoise(int number);

    int widthPx_;
    int heightPx_;
    int noise_;
    std::vector<std::uint8_t> bytes_;
    std::vector<std::uint8_t> gradient_; ///< one row, twice the width, so that any shift is one copy
};

/// The numbers at the top and at the bottom of a picture; empty where the squares are not those of a number.
struct PictureNumbers {
    std::optional<int> top;
    std::optional<int> bottom;
};
[[nodiscard]] PictureNumbers readFrameNumbers(const BgraView& picture);

/// The number of the picture; empty when it cannot be read or when top and bottom differ (a torn picture).
[[nodiscard]] std::optional<int> readFrameNumber(const BgraView& picture);

/// The mean colour of the middle of a patch.
[[nodiscard]] Rgb readPatch(const BgraView& picture, Patch patch);

/// The largest difference of any channel of any patch from what it should be.
[[nodiscard]] int largestPatchError(const BgraView& picture);

} // namespace mediaworker::test
