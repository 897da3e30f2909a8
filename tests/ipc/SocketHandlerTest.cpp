#include "ipc/SocketHandler.h"

#include <QAbstractSocket>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>
#include <QUuid>

#include <gmock/gmock.h>

#include <memory>

namespace {

using Corvane::Ipc::makeMessage;
using Corvane::Ipc::Message;
using Corvane::Ipc::SocketHandler;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// A name that no other test uses at the same time.
QString uniqueName() {
    return QStringLiteral("mediaworker-test-") + QUuid::createUuid().toString(QUuid::Id128);
}

/// Runs the event loop until `done`. The limit is for failures only.
template <class Done>
bool waitFor(Done done) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && !timer.hasExpired(10'000)) {
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 50);
    }
    return done();
}

/// The packet as it is on the wire, in hex.
QByteArray wire(const Message& message) {
    QByteArray bytes(1, static_cast<char>(message.type));
    bytes += static_cast<char>(message.size & 0xFF);
    bytes += static_cast<char>(message.size >> 8);
    return (bytes + message.data).toHex();
}

/// A local socket whose writes a test decides about.
class ScriptedSocket final : public QLocalSocket {
public:
    /// What each further write returns; -2 stands for what the socket really does.
    std::vector<qint64> results;
    std::vector<QByteArray> written;

    void report(LocalSocketError socketError) { Q_EMIT errorOccurred(socketError); }

protected:
    qint64 writeData(const char* data, qint64 size) override {
        written.emplace_back(data, static_cast<int>(size));
        if (results.empty()) {
            return size;
        }
        const qint64 result = results.front();
        results.erase(results.begin());
        setErrorString(QStringLiteral("scripted"));
        return result;
    }
};

class SocketHandlerTest : public ::testing::Test {
protected:
    SocketHandlerTest() { server.listen(name); }

    /// Listens to the handler from its own thread, at once.
    void listenTo(SocketHandler& handler) {
        QObject::connect(&handler, &SocketHandler::error, &handler,
                         [this](const QString& text) { errors.push_back(text.toStdString()); });
        QObject::connect(&handler, &SocketHandler::newMessage, &handler,
                         [this](const Message& message) { messages.push_back(message); });
        QObject::connect(&handler, &SocketHandler::disconnected, &handler, [this] { ++disconnections; });
    }

    /// The parent's end of the connection that the handler makes.
    QLocalSocket* accept() {
        if (!waitFor([this] { return server.hasPendingConnections(); })) {
            return nullptr;
        }
        return server.nextPendingConnection();
    }

    const QString name = uniqueName();
    QLocalServer server;
    std::vector<std::string> errors;
    std::vector<Message> messages;
    int disconnections = 0;
};

const auto processIdMessage = [] {
    return makeMessage(0, static_cast<qint64>(QCoreApplication::applicationPid()));
};

TEST_F(SocketHandlerTest, AnnouncesTheProcessIdAsSoonAsItIsConnected) {
    SocketHandler handler(name, nullptr);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    ASSERT_TRUE(waitFor([&] { return parent->bytesAvailable() >= 11; }));
    EXPECT_EQ(parent->readAll().toHex(), wire(processIdMessage()));
}

TEST_F(SocketHandlerTest, SendsWhatItIsGivenAndReceivesWhatComes) {
    SocketHandler handler(name, nullptr);
    listenTo(handler);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    EXPECT_TRUE(handler.send(makeMessage(1, qint64{40})));
    EXPECT_TRUE(handler.send(4));
    ASSERT_TRUE(waitFor([&] { return parent->bytesAvailable() >= 11 + 11 + 3; }));
    EXPECT_EQ(parent->readAll().toHex(),
              wire(processIdMessage()) + wire(makeMessage(1, qint64{40})) + "040000");

    parent->write(QByteArray::fromHex("05040064000000"));
    ASSERT_TRUE(waitFor([&] { return !messages.empty(); }));
    EXPECT_THAT(messages, ElementsAre(makeMessage(5, quint32{100})));
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(SocketHandlerTest, SecondCommandOfAChunkWaitsForMoreBytes) {
    SocketHandler handler(name, nullptr);
    listenTo(handler);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    parent->write(QByteArray::fromHex("060000070000"));
    ASSERT_TRUE(waitFor([&] { return !messages.empty(); }));
    for (int i = 0; i < 10; ++i) {
        QCoreApplication::processEvents();
    }
    EXPECT_THAT(messages, SizeIs(1));
    parent->write(QByteArray::fromHex("09"));
    ASSERT_TRUE(waitFor([&] { return messages.size() == 2; }));
    EXPECT_EQ(messages[1].type, 7);
}

TEST_F(SocketHandlerTest, ReportsTheEndOfTheConnection) {
    SocketHandler handler(name, nullptr);
    listenTo(handler);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    parent->disconnectFromServer();
    ASSERT_TRUE(waitFor([&] { return disconnections == 1; }));
    EXPECT_FALSE(handler.send(4));
}

TEST_F(SocketHandlerTest, RefusesASizeThatIsNotThatOfTheData) {
    SocketHandler handler(name, nullptr);
    listenTo(handler);
    ASSERT_NE(accept(), nullptr);
    EXPECT_FALSE(handler.send(Message{1, 3, QByteArray(4, 'x')}));
    EXPECT_FALSE(handler.send(Message{1, 0, QByteArray(4, 'x')}));
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(SocketHandlerTest, RefusesQuietlyWithoutAConnection) {
    SocketHandler handler(uniqueName(), nullptr);
    listenTo(handler);
    EXPECT_FALSE(handler.send(4));
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(SocketHandlerTest, ReportsAnAnnouncementThatCannotBeSent) {
    SocketHandler handler(uniqueName(), nullptr);
    listenTo(handler);
    // As from a connection that is lost again before the signal is delivered.
    auto* socket = handler.findChild<QLocalSocket*>();
    ASSERT_NE(socket, nullptr);
    ASSERT_TRUE(QMetaObject::invokeMethod(socket, "connected"));
    EXPECT_THAT(errors, ElementsAre("Failed to send \"connected\" message"));
}

TEST_F(SocketHandlerTest, RefusesQuietlyWhenTheParentDoesNotRead) {
    auto* socket = new QLocalSocket;
    SocketHandler handler(socket, nullptr);
    listenTo(handler);
    socket->connectToServer(name);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    // Here both live on one thread: on Windows, its own buffer takes what comes while the handler writes.
    parent->setReadBufferSize(1000);
    const Message large{1, 60'000, QByteArray(60'000, 'x')};
    int sent = 0;
    while (handler.send(large) && sent < 1000) {
        ++sent;
    }
    EXPECT_LT(sent, 1000);
    EXPECT_LT(socket->bytesToWrite(), SocketHandler::kMaxUnsentBytes + 2 * 60'003);
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(SocketHandlerTest, WaitsForWhatTheSystemDoesNotTakeAtOnce) {
    SocketHandler handler(name, nullptr);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    // More than a socket of the system holds: the parent has to read for it.
    const QByteArray data(60'000, 'x');
    constexpr int kMessages = 50;
    for (int i = 0; i < kMessages; ++i) {
        ASSERT_TRUE(handler.send(Message{1, static_cast<quint16>(data.size()), data}));
    }
    handler.waitUntilWritten(std::chrono::milliseconds(0)); // the time is over at once

    constexpr qint64 kExpected = 11 + kMessages * (3 + 60'000);
    qint64 read = 0;
    const std::unique_ptr<QThread> reader(QThread::create([&] {
        read = parent->readAll().size();
        while (read < kExpected && parent->waitForReadyRead(10'000)) {
            read += parent->readAll().size();
        }
    }));
    qRegisterMetaType<QAbstractSocket::SocketState>(); // for signals between the socket and its notifiers
    parent->setParent(nullptr);
    const std::unique_ptr<QLocalSocket> owner(parent);
    parent->moveToThread(reader.get());
    reader->start();
    handler.waitUntilWritten(std::chrono::seconds(10));
    reader->wait();
    EXPECT_EQ(read, kExpected);
}

TEST_F(SocketHandlerTest, SendsFromAnotherThreadThroughItsOwn) {
    SocketHandler handler(name, nullptr);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    bool accepted = false;
    const std::unique_ptr<QThread> sender(
        QThread::create([&] { accepted = handler.send(makeMessage(1, qint64{7})); }));
    sender->start();
    sender->wait();
    EXPECT_TRUE(accepted);
    ASSERT_TRUE(waitFor([&] { return parent->bytesAvailable() >= 22; }));
    EXPECT_TRUE(parent->readAll().toHex().endsWith(wire(makeMessage(1, qint64{7}))));
}

TEST_F(SocketHandlerTest, SendFromAnotherThreadReturnsTrueEvenIfTheWriteFailsLater) {
    auto* socket = new ScriptedSocket;
    SocketHandler handler(socket, nullptr);
    listenTo(handler);
    socket->connectToServer(name);
    ASSERT_NE(accept(), nullptr);
    socket->results = {-1};
    bool accepted = false;
    const std::unique_ptr<QThread> sender(QThread::create([&] { accepted = handler.send(4); }));
    sender->start();
    sender->wait();
    EXPECT_TRUE(accepted);
    ASSERT_TRUE(waitFor([&] { return !errors.empty(); }));
    EXPECT_THAT(errors, ElementsAre("Failed to send message header: scripted"));
}

TEST_F(SocketHandlerTest, WorksOnTheThreadThatItWasMovedTo) {
    auto handler = std::make_unique<SocketHandler>(name, nullptr);
    QThread thread;
    QThread* heardOn = nullptr;
    std::atomic<bool> heard{false};
    QObject::connect(
        handler.get(), &SocketHandler::newMessage, handler.get(),
        [&] {
            heardOn = QThread::currentThread();
            heard = true;
        },
        Qt::DirectConnection);
    handler->moveToThread(&thread);
    thread.start();
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    parent->write(QByteArray::fromHex("060000"));
    EXPECT_TRUE(waitFor([&] { return heard.load(); }));
    EXPECT_EQ(heardOn, &thread);
    EXPECT_TRUE(handler->send(4));
    EXPECT_TRUE(waitFor([&] { return parent->bytesAvailable() >= 14; }));
    thread.quit();
    thread.wait();
}

class SocketHandlerWriteTest : public SocketHandlerTest {
protected:
    SocketHandlerWriteTest() {
        listenTo(handler);
        socket->connectToServer(name);
        accept();
    }

    ScriptedSocket* socket = new ScriptedSocket;
    SocketHandler handler{socket, nullptr};
    const Message message{1, 4, "data"};
};

TEST_F(SocketHandlerWriteTest, RepeatsTheWholeHeaderUntilTheCountsSumUp) {
    socket->results = {1, 1, 1};
    EXPECT_TRUE(handler.send(message));
    const QByteArray header = QByteArray::fromHex("010400");
    EXPECT_THAT(socket->written, ElementsAre(header, header, header, "data"));
}

TEST_F(SocketHandlerWriteTest, RepeatsTheWholeDataUntilTheCountsSumUp) {
    socket->results = {3, 2, 2};
    EXPECT_TRUE(handler.send(message));
    EXPECT_THAT(socket->written, ElementsAre(QByteArray::fromHex("010400"), "data", "data"));
}

TEST_F(SocketHandlerWriteTest, ReportsAHeaderThatCannotBeWritten) {
    socket->results = {-1};
    EXPECT_FALSE(handler.send(message));
    EXPECT_THAT(errors, ElementsAre("Failed to send message header: scripted"));
    EXPECT_THAT(socket->written, SizeIs(1));
}

TEST_F(SocketHandlerWriteTest, ReportsDataThatCannotBeWritten) {
    socket->results = {3, -1};
    EXPECT_FALSE(handler.send(message));
    EXPECT_THAT(errors, ElementsAre("Failed to send message data: scripted"));
}

TEST_F(SocketHandlerWriteTest, ReportsAnErrorOfTheSocketByItsText) {
    socket->results = {-1};
    handler.send(message);
    errors.clear();
    socket->report(QLocalSocket::UnknownSocketError);
    EXPECT_THAT(errors, ElementsAre("scripted"));
}

} // namespace
