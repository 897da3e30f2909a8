#pragma once

#include "tools/view/Placement.h"
#include "tools/view/StreamView.h"

#include <QWidget>

#include <vector>

class QGridLayout;

namespace mediaworker::view {

/// Streams in a grid, or one of them alone; one of them is the chosen one, which has the focus.
class Wall : public QWidget {
    Q_OBJECT

public:
    explicit Wall(QWidget* parent = nullptr);
    ~Wall() override;
    Wall(const Wall&) = delete;
    Wall& operator=(const Wall&) = delete;

    /// Adds one more stream at the end and chooses it.
    StreamView& add(const StreamSettings& settings);
    /// Ends its worker and takes it away; the one behind it is chosen.
    void remove(StreamView* view);

    /// In the order added.
    [[nodiscard]] const std::vector<StreamView*>& views() const { return views_; }
    [[nodiscard]] StreamView* current() const { return current_; } ///< null when there is none
    /// Gives it the focus; while one is alone, it is this one then.
    void choose(StreamView* view);

    [[nodiscard]] StreamView* alone() const { return alone_; } ///< null: all are shown
    /// Shows that one of several alone, or all with null.
    void setAlone(StreamView* view);

    /// The one beside the chosen one.
    void chooseBeside(Direction direction);
    /// Counted from 0; nothing happens where there is none.
    void chooseNumber(int number);

    /// Ends all workers, in one second together; one that is late is killed with its view.
    void stop();

Q_SIGNALS:
    void changed(); ///< the chosen one, or which one that is
    void doubleClicked(view::StreamView* view);
    void firstPicture(view::StreamView* view);
    void menuWanted(const QPoint& place); ///< of the chosen one; on the screen

private:
    void arrange();

    std::vector<StreamView*> views_; ///< children of this
    StreamView* current_ = nullptr;  ///< one of views_
    StreamView* alone_ = nullptr;    ///< one of views_
    QGridLayout* layout_;
};

} // namespace mediaworker::view
