// Shows URL in a window; with a file, saves what the window shows of its first picture, and ends:
// stream_widget URL [FILE.png]
#include <mediaworker/widgets/StreamWidget.h>

#include <QApplication>

using mediaworker::widgets::StreamWidget;

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    const QStringList arguments = QApplication::arguments();

    StreamWidget widget;
    widget.play(arguments.value(1));
    widget.show();

    if (const QString file = arguments.value(2); !file.isEmpty()) {
        QObject::connect(&widget, &StreamWidget::pictureSizeChanged,
                         [&widget, file] { QApplication::exit(widget.grab().save(file) ? 0 : 1); });
    }
    return QApplication::exec();
}
