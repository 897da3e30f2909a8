#include "support/media/TestPicture.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace mediaworker::test {
namespace {

// The grid of the picture: rows 0 and 1 and rows 9 and 10 hold the number, row 2 the patches, the rest moves.
constexpr int kColumns = 20;
constexpr int kRows = 11;
constexpr int kCodeTop = 0;
constexpr int kCodeBottom = 9;
constexpr int kPatchRow = 2;
constexpr int kFirstMovingRow = 3;
constexpr int kFirstCodeColumn = 2;
constexpr int kCodeColumns = 16; ///< two rows of 16 squares: 24 bits of number, 8 of check
constexpr int kSmallestCellPx = 8;

constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kBlack{0, 0, 0};

struct Yuv {
    std::uint8_t y, u, v;
};

Yuv toYuv(Rgb c) noexcept {
    const auto byte = [](double value) { return static_cast<std::uint8_t>(std::lround(value)); };
    const double r = c.red;
    const double g = c.green;
    const double b = c.blue;
    return {byte(16.0 + (65.481 * r + 128.553 * g + 24.966 * b) / 255.0),
            byte(128.0 + (-37.797 * r - 74.203 * g + 112.0 * b) / 255.0),
            byte(128.0 + (112.0 * r - 93.786 * g - 18.214 * b) / 255.0)};
}

/// The 32 squares for a number. An even colour, black or white, is never a number.
constexpr std::uint32_t codeOf(int number) noexcept {
    const auto n = static_cast<std::uint32_t>(number) & 0xFFFFFFU;
    const std::uint32_t check = ((n * 0x9E3779B1U) >> 24U) ^ 0xA5U;
    return n << 8U | check;
}

/// The edge of cell `index` of `count` over `size` pixels.
constexpr int edge(int index, int count, int size) noexcept {
    return static_cast<int>(static_cast<std::int64_t>(index) * size / count);
}

/// The mean colour of the middle of the cells [left, right) x [top, bottom).
Rgb meanColour(const BgraView& picture, int left, int top, int right, int bottom) {
    const int x0 = edge(left, kColumns, picture.widthPx);
    const int x1 = edge(right, kColumns, picture.widthPx);
    const int y0 = edge(top, kRows, picture.heightPx);
    const int y1 = edge(bottom, kRows, picture.heightPx);
    const int marginX = (x1 - x0) * 3 / 10;
    const int marginY = (y1 - y0) * 3 / 10;
    std::int64_t sum[3] = {0, 0, 0};
    std::int64_t count = 0;
    for (int y = y0 + marginY; y < y1 - marginY; ++y) {
        const std::uint8_t* pixel = picture.data + y * picture.strideBytes + (x0 + marginX) * 4;
        for (int x = x0 + marginX; x < x1 - marginX; ++x, pixel += 4) {
            sum[0] += pixel[2];
            sum[1] += pixel[1];
            sum[2] += pixel[0];
            ++count;
        }
    }
    if (count == 0) {
        return {};
    }
    return {static_cast<int>(sum[0] / count), static_cast<int>(sum[1] / count),
            static_cast<int>(sum[2] / count)};
}

std::optional<int> readCode(const BgraView& picture, int topRow) {
    // Far enough from the middle that a blend of two pictures is not taken for either.
    constexpr int kDarkest = 96;
    constexpr int kBrightest = 160;
    std::uint32_t code = 0;
    for (int bit = 0; bit < 2 * kCodeColumns; ++bit) {
        const int column = kFirstCodeColumn + bit % kCodeColumns;
        const int row = topRow + bit / kCodeColumns;
        const Rgb mean = meanColour(picture, column, row, column + 1, row + 1);
        const int level = (mean.red + mean.green + mean.blue) / 3;
        if (level > kDarkest && level < kBrightest) {
            return std::nullopt;
        }
        code = code << 1U | (level >= kBrightest ? 1U : 0U);
    }
    const int number = static_cast<int>(code >> 8U);
    return codeOf(number) == code ? std::optional(number) : std::nullopt;
}

} // namespace

Rgb patchColour(Patch patch) noexcept {
    switch (patch) {
    case Patch::White:
        return kWhite;
    case Patch::Black:
        return kBlack;
    case Patch::Red:
        return {255, 0, 0};
    case Patch::Green:
        return {0, 255, 0};
    case Patch::Blue:
        return {0, 0, 255};
    case Patch::Yellow:
        return {255, 255, 0};
    case Patch::Cyan:
        return {0, 255, 255};
    case Patch::Magenta:
        return {255, 0, 255};
    case Patch::Gray:
        break;
    }
    return {128, 128, 128};
}

TestPicture::TestPicture(int widthPx, int heightPx, int noise)
    : widthPx_(widthPx), heightPx_(heightPx), noise_(std::clamp(noise, 0, 64)) {
    if (widthPx < kColumns * kSmallestCellPx || heightPx < kRows * kSmallestCellPx) {
        throw std::invalid_argument("TestPicture: too small to be read again");
    }
    const auto luma = static_cast<std::size_t>(widthPx) * static_cast<std::size_t>(heightPx);
    const auto chroma =
        static_cast<std::size_t>((widthPx + 1) / 2) * static_cast<std::size_t>((heightPx + 1) / 2);
    bytes_.resize(luma + 2 * chroma);
    for (int x = 0; x < 2 * widthPx; ++x) {
        const int position = x % widthPx;
        const int rising = position < widthPx / 2 ? position : widthPx - position;
        gradient_.push_back(static_cast<std::uint8_t>(48 + 128 * rising / widthPx));
    }
}

void TestPicture::draw(int number) {
    drawBackground(number);
    drawSquare(number);
    if (noise_ > 0) {
        addNoise(number);
    }
    drawCounter(number);
    fillCells({0, kCodeTop, kColumns, kFirstMovingRow}, kBlack);
    fillCells({0, kCodeBottom, kColumns, kRows}, kBlack);
    drawCode(number, kCodeTop);
    drawCode(number, kCodeBottom);
    int column = 1;
    for (const Patch patch : kPatches) {
        fillCells({column, kPatchRow, column + 2, kPatchRow + 1}, patchColour(patch));
        column += 2;
    }
}

void TestPicture::fill(int left, int top, int right, int bottom, Rgb colour) {
    const Yuv yuv = toYuv(colour);
    const auto rows = [](std::uint8_t* plane, int stride, int x0, int y0, int x1, int y1, int value) {
        for (int y = y0; y < y1; ++y) {
            std::memset(plane + static_cast<std::ptrdiff_t>(y) * stride + x0, value,
                        static_cast<std::size_t>(x1 - x0));
        }
    };
    const int chromaWidth = (widthPx_ + 1) / 2;
    const int chromaHeight = (heightPx_ + 1) / 2;
    std::uint8_t* y = bytes_.data();
    std::uint8_t* u = y + static_cast<std::ptrdiff_t>(widthPx_) * heightPx_;
    std::uint8_t* v = u + static_cast<std::ptrdiff_t>(chromaWidth) * chromaHeight;
    rows(y, widthPx_, left, top, right, bottom, yuv.y);
    rows(u, chromaWidth, left / 2, top / 2, (right + 1) / 2, (bottom + 1) / 2, yuv.u);
    rows(v, chromaWidth, left / 2, top / 2, (right + 1) / 2, (bottom + 1) / 2, yuv.v);
}

void TestPicture::fillCells(Rect cells, Rgb colour) {
    fill(edge(cells.left, kColumns, widthPx_), edge(cells.top, kRows, heightPx_),
         edge(cells.right, kColumns, widthPx_), edge(cells.bottom, kRows, heightPx_), colour);
}

void TestPicture::drawBackground(int number) {
    fill(0, 0, widthPx_, heightPx_, {70, 90, 120});
    for (int y = 0; y < heightPx_; ++y) {
        const int shift = (number * 4 + y / 2) % widthPx_;
        std::memcpy(bytes_.data() + static_cast<std::ptrdiff_t>(y) * widthPx_, gradient_.data() + shift,
                    static_cast<std::size_t>(widthPx_));
    }
}

void TestPicture::drawSquare(int number) {
    const int top = edge(kFirstMovingRow, kRows, heightPx_);
    const int size = edge(1, kRows, heightPx_) & ~1;
    const auto bounce = [](int position, int range) {
        const int folded = position % (2 * range);
        return folded < range ? folded : 2 * range - folded;
    };
    const int x = bounce(number * 6, widthPx_ - size) & ~1;
    const int y = (top + bounce(number * 2, edge(kCodeBottom, kRows, heightPx_) - top - size)) & ~1;
    fill(x, y, x + size, y + size, {240, 160, 40});
}

void TestPicture::drawCounter(int number) {
    // Segments from the top clockwise, then the middle.
    constexpr std::uint8_t kSegments[10] = {0x3F, 0x06, 0x5B, 0x4F, 0x66, 0x6D, 0x7D, 0x07, 0x7F, 0x6F};
    constexpr int kDigits = 6;
    const int boxLeft = edge(3, kColumns, widthPx_);
    const int boxTop = edge(4, kRows, heightPx_);
    const int boxRight = edge(17, kColumns, widthPx_);
    const int boxBottom = edge(8, kRows, heightPx_);
    fill(boxLeft & ~1, boxTop & ~1, boxRight & ~1, boxBottom & ~1, {16, 16, 24});
    const int pitch = (boxRight - boxLeft) / kDigits;
    const int stroke = std::max(2, pitch / 8) & ~1;
    const int height = (boxBottom - boxTop) * 7 / 10;
    const int y0 = boxTop + (boxBottom - boxTop - height) / 2;
    const int y2 = y0 + height;
    const int y1 = (y0 + y2) / 2;
    int rest = number;
    for (int digit = kDigits - 1; digit >= 0; --digit, rest /= 10) {
        const int x0 = boxLeft + digit * pitch + pitch / 6;
        const int x1 = boxLeft + (digit + 1) * pitch - pitch / 6;
        const int places[7][4] = {{x0, y0, x1, y0 + stroke},
                                  {x1 - stroke, y0, x1, y1},
                                  {x1 - stroke, y1, x1, y2},
                                  {x0, y2 - stroke, x1, y2},
                                  {x0, y1, x0 + stroke, y2},
                                  {x0, y0, x0 + stroke, y1},
                                  {x0, y1 - stroke / 2, x1, y1 + stroke / 2}};
        for (unsigned segment = 0; segment < 7; ++segment) {
            if ((kSegments[rest % 10] >> segment & 1U) != 0) {
                const auto& place = places[segment];
                fill(place[0], place[1], place[2], place[3], kWhite);
            }
        }
    }
}

void TestPicture::drawCode(int number, int topRow) {
    const std::uint32_t code = codeOf(number);
    for (int bit = 0; bit < 2 * kCodeColumns; ++bit) {
        const int column = kFirstCodeColumn + bit % kCodeColumns;
        const int row = topRow + bit / kCodeColumns;
        const bool white = (code >> static_cast<unsigned>(2 * kCodeColumns - 1 - bit) & 1U) != 0;
        fillCells({column, row, column + 1, row + 1}, white ? kWhite : kBlack);
    }
}

void TestPicture::addNoise(int number) {
    std::uint64_t state = 0x9E3779B97F4A7C15U ^ (static_cast<std::uint64_t>(number) << 17U);
    const auto begin = static_cast<std::size_t>(edge(kFirstMovingRow, kRows, heightPx_)) *
                       static_cast<std::size_t>(widthPx_);
    const auto end =
        static_cast<std::size_t>(edge(kCodeBottom, kRows, heightPx_)) * static_cast<std::size_t>(widthPx_);
    // The background leaves room for the amplitude on both sides, so nothing wraps.
    const auto amplitude = static_cast<unsigned>(noise_);
    for (std::size_t i = begin; i + 8 <= end; i += 8) {
        state ^= state << 13U;
        state ^= state >> 7U;
        state ^= state << 17U;
        for (unsigned j = 0; j < 8; ++j) {
            const auto grain = static_cast<unsigned>(state >> (8 * j) & 0xFFU) * amplitude >> 8U;
            bytes_[i + j] = static_cast<std::uint8_t>(bytes_[i + j] + grain);
        }
    }
}

PictureNumbers readFrameNumbers(const BgraView& picture) {
    return {readCode(picture, kCodeTop), readCode(picture, kCodeBottom)};
}

std::optional<int> readFrameNumber(const BgraView& picture) {
    const PictureNumbers numbers = readFrameNumbers(picture);
    return numbers.top == numbers.bottom ? numbers.top : std::nullopt;
}

Rgb readPatch(const BgraView& picture, Patch patch) {
    const int column = 1 + 2 * static_cast<int>(patch);
    return meanColour(picture, column, kPatchRow, column + 2, kPatchRow + 1);
}

int largestPatchError(const BgraView& picture) {
    int largest = 0;
    for (const Patch patch : kPatches) {
        const Rgb want = patchColour(patch);
        const Rgb got = readPatch(picture, patch);
        largest = std::max({largest, std::abs(want.red - got.red), std::abs(want.green - got.green),
                            std::abs(want.blue - got.blue)});
    }
    return largest;
}

} // namespace mediaworker::test
