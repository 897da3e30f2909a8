// Shows URL in a window; with a file, saves the item with its first picture, and ends:  stream_item URL
// [FILE.png]
#include <mediaworker/quick/MediaStream.h>

#include <QGuiApplication>
#include <QQuickItemGrabResult>
#include <QQuickView>

using mediaworker::quick::MediaStream;

int main(int argc, char** argv) {
    const QGuiApplication application(argc, argv);
    mediaworker::quick::registerTypes();
    QQuickView view(QUrl(QStringLiteral("qrc:/Stream.qml")));
    auto* const stream = qobject_cast<MediaStream*>(view.rootObject());
    if (stream == nullptr) {
        return 1; // Qt has said why
    }
    view.show();

    QSharedPointer<const QQuickItemGrabResult> grabbed;
    if (const QString file = QGuiApplication::arguments().value(2); !file.isEmpty()) {
        QObject::connect(stream, &MediaStream::pictureSizeChanged, [&grabbed, stream, file] {
            grabbed = stream->grabToImage();
            QObject::connect(grabbed.data(), &QQuickItemGrabResult::ready,
                             [&grabbed, file] { QGuiApplication::exit(grabbed->saveToFile(file) ? 0 : 1); });
        });
    }
    return QGuiApplication::exec();
}
