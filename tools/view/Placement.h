#pragma once

#include <QSize>

namespace mediaworker::view {

struct GridShape {
    int rows = 0;
    int columns = 0;
    friend bool operator==(const GridShape&, const GridShape&) = default;
};

/// The smallest grid for that many streams: as many columns as rows, or one more (pictures are wide, and so
/// are screens; three columns and two rows of them fill one better than the other way round).
[[nodiscard]] GridShape gridShape(int streams);

enum class Direction { Left, Right, Up, Down };

/// The place of a grid that an arrow key leads to from `place`, of as many streams as there are; the same one
/// where there is none. Places count row by row, and left and right go on in the next row.
[[nodiscard]] int neighbour(int streams, int place, Direction direction);

/// The stretch of a window's area that its first picture gets: the picture's own size, unless the screen is
/// too small; then what fits there. Pixels.
[[nodiscard]] QSize initialPictureSize(const QSize& picture, const QSize& room);

} // namespace mediaworker::view
