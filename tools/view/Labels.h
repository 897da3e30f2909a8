#pragma once

#include <QLabel>
#include <QString>

namespace mediaworker::view {

/// Words of others (workers, servers, playlists) as a tool tip, which takes what looks like markup for
/// markup.
[[nodiscard]] QString toolTipText(const QString& plain);

/// One line of plain text that fits its width: what is too long ends with "…". It is a head and a tail, and
/// the head is shortened first, as long as some of it is left: the tail says what matters.
class ElidedLabel : public QLabel {
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    void setText(const QString& head, const QString& tail);
    [[nodiscard]] QString shownText() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString head_;
    QString tail_;
};

} // namespace mediaworker::view
