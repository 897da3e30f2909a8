#pragma once

#include <QRect>
#include <QSize>

namespace mediaworker::parent {

/// Where a picture goes in an area: as large as it fits, in the middle, its aspect kept. Empty for an empty
/// picture or area. In the pixels of the screen, which are what there is to fill.
[[nodiscard]] QRect fitted(const QSize& picture, const QSize& area);

/// The same for an area in the units that Qt counts in, of which each has `ratio` pixels across; and so is
/// what is given back: its edges lie on the edges of pixels wherever the area's upper left corner does.
[[nodiscard]] QRectF fitted(const QSize& picture, const QSizeF& area, qreal ratio);

} // namespace mediaworker::parent
