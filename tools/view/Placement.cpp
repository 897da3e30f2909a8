#include "tools/view/Placement.h"

#include "parent/PicturePlace.h"

namespace mediaworker::view {

GridShape gridShape(int streams) {
    GridShape shape;
    while (shape.rows * shape.columns < streams) {
        if (shape.columns == shape.rows) {
            ++shape.columns;
            if (shape.rows == 0) {
                ++shape.rows;
            }
        } else {
            ++shape.rows;
        }
    }
    return shape;
}

int neighbour(int streams, int place, Direction direction) {
    const int columns = gridShape(streams).columns;
    int to = place;
    switch (direction) {
    case Direction::Left:
        to = place - 1;
        break;
    case Direction::Right:
        to = place + 1;
        break;
    case Direction::Up:
        to = place - columns;
        break;
    case Direction::Down:
        to = place + columns;
        break;
    }
    return to >= 0 && to < streams ? to : place;
}

QSize initialPictureSize(const QSize& picture, const QSize& room) {
    const bool fits = picture.width() <= room.width() && picture.height() <= room.height();
    return fits ? picture : parent::fitted(picture, room).size();
}

} // namespace mediaworker::view
