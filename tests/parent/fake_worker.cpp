/// Stands in for the worker. Its first argument is a script instead of a URL (the second in export mode),
/// made of steps that a ";" separates:
///
///     connect        connect to the parent's server
///     hello          send the connected message
///     send:HEX       send these bytes in one write
///     pieces:HEX     send these bytes one by one, with a flush after each
///     log:TEXT       write a line to standard error
///     say:TEXT       write text without a newline to standard error
///     flood:N        write N lines of 1000 characters to standard error
///     wait:MS        stand still
///     serve          take commands until the link is gone, with a line for each; then exit with 0
///     args           log each argument behind "arg: "
///     env:NAME       log the value of a variable behind "env: "
///     has:NAME       log whether there is such a variable behind "has: ": yes or no
///     picture:WxH    write a picture of that size into the frame file, and send the format message
///     write:TEXT     write the file of an export
///     shape:WxH      write a picture of that size into the frame file, without a word
///     cut:N          make the frame file N bytes long; its header stays
///     play           write pictures of changing sizes, each with its messages, until killed or alone
///     garbage:SEED   send some thousand random bytes in pieces of random sizes
///     await          stand still until bytes come from the parent
///     hold           acquire the semaphore and keep it
///     drop           close the link
///     exit:CODE      end at once
///     crash          end as if somebody had killed it
#include "DieAtOnce.h"

#include "base/ImmediateExit.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QRandomGenerator>
#include <QSystemSemaphore>
#include <QThread>
#include <QtEndian>

#include <cstdio>
#include <memory>

namespace {

class FakeWorker {
public:
    explicit FakeWorker(QStringList arguments) : arguments_(std::move(arguments)) {
        const bool isExport = arguments_.value(1) == QStringLiteral("export");
        script_ = arguments_.value(isExport ? 2 : 1);
        server_ = arguments_.value(isExport ? 5 : 3);
    }

    int run() {
        for (const QString& step : script_.split(u';', Qt::SkipEmptyParts)) {
            const int colon = step.indexOf(u':');
            perform(step.left(colon), colon < 0 ? QString() : step.mid(colon + 1));
        }
        return 0;
    }

private:
    void perform(const QString& verb, const QString& value) {
        const QByteArray text = value.toUtf8();
        if (verb == QStringLiteral("connect")) {
            socket_.connectToServer(server_, QIODevice::ReadWrite);
            socket_.waitForConnected(5000);
        } else if (verb == QStringLiteral("hello")) {
            QByteArray packet = QByteArray::fromHex("000800") + QByteArray(8, '\0');
            qToLittleEndian(static_cast<qint64>(QCoreApplication::applicationPid()), packet.data() + 3);
            send(packet);
        } else if (verb == QStringLiteral("send")) {
            send(QByteArray::fromHex(text));
        } else if (verb == QStringLiteral("pieces")) {
            for (const char byte : QByteArray::fromHex(text)) {
                send(QByteArray(1, byte));
                QThread::msleep(1);
            }
        } else if (verb == QStringLiteral("log")) {
            say(text + '\n');
        } else if (verb == QStringLiteral("say")) {
            say(text);
        } else if (verb == QStringLiteral("flood")) {
            for (int i = 0; i < value.toInt(); ++i) {
                say(QByteArray(1000, 'x') + '\n');
            }
        } else if (verb == QStringLiteral("wait")) {
            QThread::msleep(value.toULong());
        } else if (verb == QStringLiteral("serve")) {
            serve();
        } else if (verb == QStringLiteral("args")) {
            for (int i = 2; i < arguments_.size(); ++i) {
                say("arg: " + arguments_[i].toUtf8() + '\n');
            }
        } else if (verb == QStringLiteral("env")) {
            say("env: " + qgetenv(text.constData()) + '\n');
        } else if (verb == QStringLiteral("has")) {
            say(qEnvironmentVariableIsSet(text.constData()) ? "has: yes\n" : "has: no\n");
        } else if (verb == QStringLiteral("picture")) {
            shape(value);
            send(QByteArray::fromHex("040000"));
        } else if (verb == QStringLiteral("write")) {
            QFile file(arguments_.value(4));
            file.open(QIODevice::WriteOnly);
            file.write(text);
        } else if (verb == QStringLiteral("shape")) {
            shape(value);
        } else if (verb == QStringLiteral("cut")) {
            QFile::resize(framePath(), value.toLongLong());
        } else if (verb == QStringLiteral("play")) {
            play();
        } else if (verb == QStringLiteral("garbage")) {
            garbage(value.toUInt());
        } else if (verb == QStringLiteral("await")) {
            if (socket_.waitForReadyRead(-1)) {
                socket_.readAll();
            }
        } else if (verb == QStringLiteral("hold")) {
            semaphore_ = std::make_unique<QSystemSemaphore>(arguments_.value(2), 1, QSystemSemaphore::Open);
            semaphore_->acquire();
        } else if (verb == QStringLiteral("drop")) {
            socket_.disconnectFromServer();
        } else if (verb == QStringLiteral("exit")) {
            base::exitNow(value.toInt());
        } else if (verb == QStringLiteral("crash")) {
            dieAtOnce();
        }
    }

    void send(const QByteArray& bytes) {
        socket_.write(bytes);
        while (socket_.bytesToWrite() > 0 && socket_.waitForBytesWritten(5000)) {
        }
    }

    static void say(const QByteArray& text) {
        std::fwrite(text.constData(), 1, static_cast<std::size_t>(text.size()), stderr);
    }

    // One packet per notification, as the worker reads.
    void serve() {
        QByteArray header;
        // What came while something else was sent is not notified again.
        for (bool isNotified = socket_.bytesAvailable() > 0;; isNotified = false) {
            if (!isNotified && !socket_.waitForReadyRead(-1)) {
                base::exitNow(0);
            }
            if (header.isEmpty()) {
                if (socket_.bytesAvailable() < 3) {
                    continue;
                }
                header = socket_.read(3);
            }
            const int size = qFromLittleEndian<quint16>(header.constData() + 1);
            if (socket_.bytesAvailable() < size) {
                continue;
            }
            const QByteArray data = socket_.read(size);
            say("Command from parent process: " + header.left(1) + '\n');
            say("took " + (header + data).toHex() + '\n');
            header.clear();
        }
    }

    QString framePath() const { return QDir::tempPath() + QDir::separator() + arguments_.value(2); }

    void shape(const QString& size) {
        picture(size.section(u'x', 0, 0).toUInt(), size.section(u'x', 1, 1).toUInt(), '\x7f');
    }

    // All bytes of a picture are the same.
    void picture(quint32 width, quint32 height, char fill) {
        QSystemSemaphore semaphore(arguments_.value(2), 1, QSystemSemaphore::Open);
        QFile file(framePath());
        file.open(QIODevice::ReadWrite);
        semaphore.acquire();
        QByteArray bytes(static_cast<int>(width * height * 4 + 72), fill);
        qToLittleEndian(width, bytes.data());
        qToLittleEndian(height, bytes.data() + 4);
        file.resize(bytes.size());
        file.write(bytes);
        file.flush();
        semaphore.release();
    }

    void play() {
        // A parent that was killed does not kill it.
        for (int i = 0; socket_.state() == QLocalSocket::ConnectedState; ++i) {
            const bool isLarge = i / 3 % 2 == 0;
            picture(isLarge ? 640 : 64, isLarge ? 360 : 36, static_cast<char>(i));
            if (i % 3 == 0) {
                send(QByteArray::fromHex("040000"));
            }
            send(QByteArray::fromHex("0108000100000000000000"));
        }
    }

    void garbage(quint32 seed) {
        QRandomGenerator random(seed);
        for (int left = 4000; left > 0;) {
            QByteArray bytes(random.bounded(1, 200), '\0');
            random.fillRange(reinterpret_cast<quint32*>(bytes.data()), bytes.size() / 4);
            send(bytes);
            left -= bytes.size();
        }
    }

    QStringList arguments_;
    QString script_;
    QString server_;
    QLocalSocket socket_;
    std::unique_ptr<QSystemSemaphore> semaphore_;
};

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stderr, nullptr, _IONBF, 0);
    const QCoreApplication application(argc, argv);
    return FakeWorker(QCoreApplication::arguments()).run();
}
