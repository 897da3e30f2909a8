#include "net/HTTPClient.h"

#include "LoopbackServer.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QSslConfiguration>
#include <QTcpServer>
#include <QTemporaryFile>
#include <QTimer>
#include <QUrl>

#include <gmock/gmock.h>

#include <functional>
#include <optional>

namespace {

using CorvaneClient::Net::HTTPClient;
using mediaworker::test::answer;
using mediaworker::test::Answer;
using mediaworker::test::bodyByte;
using mediaworker::test::LoopbackServer;
using mediaworker::test::TlsIdentity;
using ::testing::ElementsAre;

constexpr qint64 kMiB = 1 << 20;

/// What is printed through Qt's message handler while it lives. One at a time.
class QtMessages {
public:
    QtMessages() {
        printed().clear();
        previous_ = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { printed().push_back(text); });
    }
    QtMessages(const QtMessages&) = delete;
    QtMessages& operator=(const QtMessages&) = delete;
    ~QtMessages() { qInstallMessageHandler(previous_); }

    /// Only the test's own thread may print meanwhile.
    static QStringList& printed() {
        static QStringList messages;
        return messages;
    }

private:
    QtMessageHandler previous_ = nullptr;
};

/// Runs one request to its end, and a little on, to hear anything that comes after it.
class HTTPClientTest : public ::testing::Test {
protected:
    void fetch(const QString& url) {
        QEventLoop loop;
        client->get(
            url,
            [this](const QByteArray& bytes) {
                ++dataCalls;
                for (const char byte : bytes) {
                    inOrder = inOrder && byte == bodyByte(received);
                    ++received;
                }
                if (blockOnce) {
                    blockOnce();
                    blockOnce = nullptr;
                }
            },
            [this, &loop] {
                ++finishedCalls;
                loop.quit();
            });
        QTimer::singleShot(30'000, &loop, [&loop] { loop.exit(1); });
        ASSERT_EQ(loop.exec(), 0) << "the end was never told";
        for (int i = 0; i < 3; ++i) {
            QCoreApplication::processEvents(QEventLoop::AllEvents);
        }
    }

    std::optional<HTTPClient> client{std::in_place};
    std::function<void()> blockOnce;
    qint64 received = 0;
    bool inOrder = true;
    int dataCalls = 0;
    int finishedCalls = 0;
};

TEST_F(HTTPClientTest, DeliversEveryByteInOrderAndThenFinishesOnce) {
    LoopbackServer server({{"/live", answer("200 OK", 3 * kMiB + 17)}});
    fetch(server.url("/live"));
    EXPECT_EQ(received, 3 * kMiB + 17);
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(finishedCalls, 1);
}

TEST_F(HTTPClientTest, DeliversABodyWithoutALengthToItsEnd) {
    LoopbackServer server({{"/live", {"HTTP/1.1 200 OK\r\n\r\n", 2 * kMiB}}});
    fetch(server.url("/live"));
    EXPECT_EQ(received, 2 * kMiB);
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(finishedCalls, 1);
}

TEST_F(HTTPClientTest, DeliversAnAnswerWithoutAStatus) {
    QTemporaryFile file;
    ASSERT_TRUE(file.open());
    for (qint64 i = 0; i < 1000; ++i) {
        file.putChar(bodyByte(i));
    }
    file.close();
    fetch(QUrl::fromLocalFile(file.fileName()).toString());
    EXPECT_EQ(received, 1000);
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(finishedCalls, 1);
}

TEST_F(HTTPClientTest, AsksForAnythingInOneGet) {
    LoopbackServer server({{"/live?speed=2", answer("200 OK", 1)}});
    fetch(server.url("/live?speed=2"));
    EXPECT_THAT(server.requests(), ElementsAre("/live?speed=2"));
    EXPECT_TRUE(server.lastRequest().startsWith("GET /live?speed=2 HTTP/1.1\r\n"));
    EXPECT_EQ(server.lastRequest().count("Accept: */*\r\n"), 1);
}

struct RefusedBody {
    const char* status;
    qint64 bodyBytes;
};

void PrintTo(const RefusedBody& row, std::ostream* out) {
    *out << row.status << " with " << row.bodyBytes << " bytes";
}

class HTTPClientRefusalTest : public HTTPClientTest, public ::testing::WithParamInterface<RefusedBody> {};

TEST_P(HTTPClientRefusalTest, KeepsTheBodyBackAndFinishesOnce) {
    LoopbackServer server({{"/live", answer(GetParam().status, GetParam().bodyBytes)}});
    fetch(server.url("/live"));
    EXPECT_EQ(dataCalls, 0);
    EXPECT_EQ(finishedCalls, 1);
}

TEST_P(HTTPClientRefusalTest, PrintsNothing) {
    LoopbackServer server({{"/live", answer(GetParam().status, GetParam().bodyBytes)}});
    const QtMessages messages;
    fetch(server.url("/live"));
    client.reset(); // and with it the reply, perhaps in the middle of the body
    EXPECT_THAT(QtMessages::printed(), ::testing::IsEmpty())
        << QtMessages::printed().join(QLatin1Char('\n')).toStdString();
}

INSTANTIATE_TEST_SUITE_P(Statuses, HTTPClientRefusalTest,
                         ::testing::Values(RefusedBody{"300 Multiple Choices", 0},
                                           RefusedBody{"300 Multiple Choices", 3 * kMiB},
                                           RefusedBody{"301 Moved Permanently", 3 * kMiB}, // and no Location
                                           RefusedBody{"304 Not Modified", 0},
                                           RefusedBody{"401 Unauthorized", 3 * kMiB},
                                           RefusedBody{"404 Not Found", 0}, RefusedBody{"404 Not Found", 20},
                                           RefusedBody{"404 Not Found", 3 * kMiB},
                                           RefusedBody{"500 Internal Server Error", 3 * kMiB}));

TEST_F(HTTPClientTest, FinishesAtOnceOnAnErrorPageThatNeverEnds) {
    LoopbackServer server({{"/live", {"HTTP/1.1 404 Not Found\r\n\r\n", 1'000'000 * kMiB}}});
    const QtMessages messages;
    fetch(server.url("/live"));
    client.reset();
    EXPECT_THAT(QtMessages::printed(), ::testing::IsEmpty());
    EXPECT_EQ(dataCalls, 0);
    EXPECT_EQ(finishedCalls, 1);
}

TEST_F(HTTPClientTest, RefusedConnectionFinishesOnceWithoutBytes) {
    QTcpServer gone;
    ASSERT_TRUE(gone.listen(QHostAddress::LocalHost));
    const quint16 port = gone.serverPort();
    gone.close();
    fetch(QStringLiteral("http://127.0.0.1:%1/live").arg(port));
    EXPECT_EQ(received, 0);
    EXPECT_EQ(finishedCalls, 1);
}

TEST_F(HTTPClientTest, BodyThatBreaksOffDeliversWhatCameAndFinishesOnce) {
    LoopbackServer server({{"/live", {"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", 4321}}});
    fetch(server.url("/live"));
    EXPECT_EQ(received, 4321);
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(finishedCalls, 1);
}

class HTTPClientRedirectTest : public HTTPClientTest, public ::testing::WithParamInterface<qint64> {};

TEST_P(HTTPClientRedirectTest, FollowsAndDeliversOnlyTheTarget) {
    LoopbackServer server({{"/old", answer("302 Found", GetParam(), "Location: /new\r\n")},
                           {"/new", answer("200 OK", 2 * kMiB)}});
    fetch(server.url("/old"));
    EXPECT_THAT(server.requests(), ElementsAre("/old", "/new"));
    EXPECT_EQ(received, 2 * kMiB);
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(finishedCalls, 1);
}

TEST_P(HTTPClientRedirectTest, FollowsToAnErrorPageAndDeliversNothing) {
    LoopbackServer server({{"/old", answer("307 Temporary Redirect", GetParam(), "Location: /new\r\n")},
                           {"/new", answer("404 Not Found", 3 * kMiB)}});
    fetch(server.url("/old"));
    EXPECT_THAT(server.requests(), ElementsAre("/old", "/new"));
    EXPECT_EQ(dataCalls, 0);
    EXPECT_EQ(finishedCalls, 1);
}

INSTANTIATE_TEST_SUITE_P(RedirectBodies, HTTPClientRedirectTest,
                         ::testing::Values(0, 100, HTTPClient::kReadBufferBytes, 3 * kMiB));

class HTTPClientTlsTest : public HTTPClientTest {
protected:
    HTTPClientTlsTest() {
        QSslConfiguration trusting = systemDefault;
        trusting.addCaCertificate(identity.certificate);
        QSslConfiguration::setDefaultConfiguration(trusting);
    }
    ~HTTPClientTlsTest() override { QSslConfiguration::setDefaultConfiguration(systemDefault); }

    const QSslConfiguration systemDefault = QSslConfiguration::defaultConfiguration();
    const TlsIdentity identity = mediaworker::test::makeTlsIdentity();
};

TEST_F(HTTPClientTlsTest, FetchesOverTls) {
    LoopbackServer server({{"/live", answer("200 OK", 2 * kMiB)}}, &identity);
    fetch(server.url("/live"));
    EXPECT_EQ(received, 2 * kMiB);
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(finishedCalls, 1);
}

TEST_F(HTTPClientTlsTest, FollowsARedirectFromHttpToHttps) {
    LoopbackServer secure({{"/live", answer("200 OK", 1000)}}, &identity);
    LoopbackServer plain({{"/live", answer("301 Moved Permanently", 3 * kMiB,
                                           "Location: " + secure.url("/live").toLatin1() + "\r\n")}});
    fetch(plain.url("/live"));
    EXPECT_EQ(received, 1000);
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(finishedCalls, 1);
}

TEST_F(HTTPClientTlsTest, DoesNotFollowARedirectFromHttpsToHttp) {
    for (const qint64 bodyBytes : {qint64{100}, 3 * kMiB}) {
        LoopbackServer plain({{"/live", answer("200 OK", 1000)}});
        LoopbackServer secure({{"/live", answer("302 Found", bodyBytes,
                                                "Location: " + plain.url("/live").toLatin1() + "\r\n")}},
                              &identity);
        finishedCalls = 0;
        fetch(secure.url("/live"));
        EXPECT_EQ(received, 0);
        EXPECT_EQ(finishedCalls, 1);
        EXPECT_TRUE(plain.requests().empty());
    }
}

TEST_F(HTTPClientTest, UnknownCertificateFinishesOnceWithoutBytes) {
    const TlsIdentity identity = mediaworker::test::makeTlsIdentity();
    LoopbackServer server({{"/live", answer("200 OK", 1000)}}, &identity);
    fetch(server.url("/live"));
    EXPECT_EQ(received, 0);
    EXPECT_EQ(finishedCalls, 1);
}

TEST_F(HTTPClientTest, ConsumerThatBlocksHoldsTheServerUpInsteadOfFillingTheMemory) {
    LoopbackServer server({{"/archive", answer("200 OK", 100 * kMiB)}});
    qint64 taken = 0;
    blockOnce = [&] { taken = server.waitUntilStuckOrSent(); };
    fetch(server.url("/archive"));
    // The rest is what the two ends of a loopback connection hold in the kernel.
    EXPECT_LT(taken, 24 * kMiB);
    EXPECT_EQ(received, 100 * kMiB);
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(finishedCalls, 1);
}

} // namespace
