#include "support/servers/HttpServer.h"
#include "Fetch.h"
#include "support/servers/Pacing.h"
#include "support/servers/TestCertificates.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

TEST(HttpServer, SendsChunksTheClientPutsTogether) {
    HttpServer server;
    server.route("/a", [](HttpResponse& response) {
        EXPECT_TRUE(response.send("one "));
        EXPECT_TRUE(response.send(""));
        EXPECT_TRUE(response.send("two"));
    });
    const Fetched got = fetch(server.url("/a?query=1"));
    EXPECT_EQ(got.status, 200);
    EXPECT_EQ(got.body, "one two");
    EXPECT_EQ(got.error, QNetworkReply::NoError);
}

TEST(HttpServer, CanFrameByLengthAndByClosing) {
    HttpServer server;
    server.route("/length", [](HttpResponse& response) {
        response.contentLength(3);
        response.send("abc");
    });
    server.route("/close", [](HttpResponse& response) {
        response.framing(HttpResponse::Framing::UntilClose);
        response.send("def");
    });
    EXPECT_EQ(fetch(server.url("/length")).body, "abc");
    const Fetched closed = fetch(server.url("/close"));
    EXPECT_EQ(closed.body, "def");
    EXPECT_EQ(closed.error, QNetworkReply::NoError);
}

TEST(HttpServer, RemembersRequestsAndWhenEachPieceLeft) {
    HttpServer server;
    server.route("/a", [](HttpResponse& response) {
        response.send("12345");
        response.sleepMs(60);
        response.send("678");
    });
    fetch(server.url("/a?x=y"));
    const auto exchanges = server.exchanges();
    ASSERT_EQ(exchanges.size(), 1U);
    EXPECT_EQ(exchanges[0].request.method, "GET");
    EXPECT_EQ(exchanges[0].request.target, "/a?x=y");
    EXPECT_EQ(exchanges[0].request.path(), "/a");
    EXPECT_EQ(exchanges[0].request.header("host"), "127.0.0.1:" + std::to_string(server.port()));
    ASSERT_EQ(exchanges[0].sends.size(), 2U);
    EXPECT_EQ(exchanges[0].sends[1].bodyBytes, 8U);
    EXPECT_GE(exchanges[0].sends[1].when - exchanges[0].sends[0].when, 60ms);
    EXPECT_FALSE(exchanges[0].clientLeft);
}

TEST(HttpServer, AnswersUnknownPathsWith404) {
    HttpServer server;
    EXPECT_EQ(fetch(server.url("/nowhere")).status, 404);
}

TEST(HttpServer, RedirectsToAnotherServer) {
    HttpServer target;
    target.route("/b", [](HttpResponse& response) { response.send("there"); });
    HttpServer server;
    server.route("/a", [&](HttpResponse& response) { response.redirect(target.url("/b")); });
    EXPECT_EQ(fetch(server.url("/a")).body, "there");
}

TEST(HttpServer, SendsLargeErrorPages) {
    HttpServer server;
    server.route("/a", [](HttpResponse& response) { response.errorPage(503, 3 << 20); });
    const Fetched got = fetch(server.url("/a"));
    EXPECT_EQ(got.status, 503);
    EXPECT_EQ(got.body.size(), std::size_t{3} << 20U);
}

TEST(HttpServer, ResetsTheConnectionInMidBody) {
    HttpServer server;
    server.route("/a", [](HttpResponse& response) {
        response.send("begin");
        response.sleepMs(50);
        response.reset();
    });
    const Socket client = connectToLoopback(server.port());
    ASSERT_TRUE(sendAll(client.get(), "GET /a HTTP/1.1\r\n\r\n", 19));
    EXPECT_FALSE(receiveHttpHeader(client.get()).empty());
    char chunk[10]; // "5\r\nbegin\r\n"
    EXPECT_TRUE(receiveAll(client.get(), chunk, sizeof chunk));
    char byte = 0;
    EXPECT_EQ(receiveSome(client.get(), &byte, 1), -1);
    EXPECT_EQ(errno, ECONNRESET);
}

TEST(HttpServer, DribblesByteByByte) {
    HttpServer server;
    const std::vector<std::uint8_t> bytes(500, 'z');
    server.route("/a", [&](HttpResponse& response) { response.dribble(bytes, 1, 0us); });
    EXPECT_EQ(fetch(server.url("/a")).body, std::string(500, 'z'));
    EXPECT_EQ(server.exchanges().at(0).sends.size(), 500U);
}

TEST(HttpServer, SeesAClientThatLeavesWhileItWaits) {
    HttpServer server;
    std::promise<void> left;
    server.route("/a", [&](HttpResponse& response) {
        response.send("x");
        response.waitForClientToLeave();
        EXPECT_FALSE(response.send("y"));
        left.set_value();
    });
    {
        const Socket client = connectToLoopback(server.port());
        ASSERT_TRUE(sendAll(client.get(), "GET /a HTTP/1.1\r\n\r\n", 19));
        EXPECT_FALSE(receiveHttpHeader(client.get()).empty());
    }
    ASSERT_EQ(left.get_future().wait_for(10s), std::future_status::ready);
    EXPECT_TRUE(server.exchanges().at(0).clientLeft);
}

TEST(HttpServer, WaitsForAClientThatDoesNotRead) {
    HttpServer server({.sendBufferBytes = 65536});
    std::atomic<std::size_t> sent{0};
    server.route("/a", [&](HttpResponse& response) {
        const std::vector<std::uint8_t> piece(65536);
        while (response.send(piece)) {
            sent += piece.size();
        }
    });
    const Socket client = connectToLoopback(server.port());
    ASSERT_TRUE(sendAll(client.get(), "GET /a HTTP/1.1\r\n\r\n", 19));
    EXPECT_FALSE(receiveHttpHeader(client.get()).empty());
    std::size_t before = 1;
    while (before != sent || sent == 0) {
        before = sent;
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_LT(sent, std::size_t{16} << 20U) << "an endless body did not stop";
}

TEST(HttpServer, StopsAtOnceWhileHandlersWait) {
    HttpServer server;
    server.route("/a", [&](HttpResponse& response) {
        response.send("x");
        response.sleepMs(60'000);
    });
    const Socket client = connectToLoopback(server.port());
    ASSERT_TRUE(sendAll(client.get(), "GET /a HTTP/1.1\r\n\r\n", 19));
    EXPECT_FALSE(receiveHttpHeader(client.get()).empty());
    const auto begin = steady_clock::now();
    server.stop();
    EXPECT_LT(steady_clock::now() - begin, 5s);
}

TEST(HttpServer, PacesAStreamAfterItsBurst) {
    std::vector<TimedBytes> pieces;
    for (int i = 0; i < 10; ++i) {
        pieces.push_back({i * 40, {static_cast<std::uint8_t>('0' + i)}});
    }
    HttpServer server;
    server.route("/a", pacedHandler(pieces, {.burstMs = 160}));
    EXPECT_EQ(fetch(server.url("/a")).body, "0123456789");
    const auto sends = server.exchanges().at(0).sends;
    ASSERT_EQ(sends.size(), 10U);
    EXPECT_LT(sends[4].when - sends[0].when, 30ms);
    EXPECT_GE(sends[9].when - sends[4].when, 190ms);
}

TEST(HttpServer, ServesHttpsToClientsThatTrustItsAuthority) {
    const TestCertificates certificates;
    HttpServer server({.certificates = &certificates});
    server.route("/a", [](HttpResponse& response) {
        response.send("secret ");
        response.sleepMs(20);
        response.send(std::string(1'000'000, 's'));
    });
    const Fetched trusted = fetch(server.url("/a"), {.authority = certificates.authorityFile().string()});
    EXPECT_EQ(trusted.error, QNetworkReply::NoError);
    EXPECT_EQ(trusted.body.size(), 1'000'007U);

    const Fetched suspicious = fetch(server.url("/a"));
    EXPECT_EQ(suspicious.error, QNetworkReply::SslHandshakeFailedError);
    EXPECT_EQ(suspicious.body, "");
}

TEST(HttpServer, HttpsDeliversWhatCameBeforeAReset) {
    const TestCertificates certificates;
    HttpServer server({.certificates = &certificates});
    server.route("/a", [](HttpResponse& response) {
        response.send("begin");
        response.sleepMs(50);
        response.reset();
    });
    const Fetched got = fetch(server.url("/a"), {.authority = certificates.authorityFile().string()});
    EXPECT_EQ(got.body, "begin");
}

TEST(RefusingPort, Refuses) {
    const RefusingPort port;
    EXPECT_LT(connectToLoopback(port.port()).get(), 0);
}

} // namespace
} // namespace mediaworker::test
