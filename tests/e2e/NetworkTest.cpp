#include "Session.h"

#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"
#include "support/servers/ProxyServer.h"
#include "support/servers/TestCertificates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <span>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

class Network : public testing::Test {
protected:
    Network() {
        ClipSpec spec;
        spec.frames = 40;
        clip_ = encode(spec);
        pieces_ = makeFlv(clip_);
        server_.route("/live.flv", handler());
    }

    HttpServer::Handler handler() const { return pacedHandler(pieces_, {.burstMs = 1400}); }

    /// The worker shows the whole clip and ends with the response.
    static void expectWholeClip(Session& session) {
        ASSERT_EQ(session.waitForExit(), 3) << session.logText();
        EXPECT_EQ(session.shown().size(), 40U) << session.logText();
        EXPECT_EQ(session.lastPictureNumber(), 39);
    }

    static void expectNothingShown(Session& session) {
        ASSERT_EQ(session.waitForExit(), 3) << session.logText();
        EXPECT_EQ(session.shown().size(), 0U);
        EXPECT_EQ(session.countLines("http reader finished"), 1) << session.logText();
    }

    Clip clip_;
    std::vector<TimedBytes> pieces_;
    HttpServer server_;
};

TEST_F(Network, AsksOnceAndAcceptsAnything) {
    Session session;
    session.start(server_.url("/live.flv?camera=1&x=%20"));
    expectWholeClip(session);
    const auto exchanges = server_.exchanges();
    ASSERT_EQ(exchanges.size(), 1U);
    EXPECT_EQ(exchanges[0].request.method, "GET");
    EXPECT_EQ(exchanges[0].request.target, "/live.flv?camera=1&x=%20");
    EXPECT_EQ(exchanges[0].request.header("Accept"), "*/*");
}

TEST_F(Network, PlaysAStreamDribbledByteByByte) {
    ClipSpec spec;
    spec.frames = 40;
    spec.widthPx = 160;
    spec.heightPx = 90;
    spec.crf = 40; // each byte is a packet of its own
    server_.route("/live.flv", [bytes = toBytes(makeFlv(encode(spec)))](HttpResponse& response) {
        // In Wine it takes too long for all of them; these are the header, the configuration and some
        // pictures.
        const std::size_t single =
            platform::kIsWindows ? std::min<std::size_t>(6000, bytes.size()) : bytes.size();
        const std::span all(bytes);
        response.dribble(all.first(single), 1, 0us);
        response.dribble(all.subspan(single), 64, 0us);
    });
    Session session;
    session.start(server_.url("/live.flv"));
    expectWholeClip(session);
}

TEST_F(Network, PlaysAStreamThatArrivesInOnePiece) {
    server_.route("/live.flv", [this](HttpResponse& response) {
        const auto all = toBytes(pieces_);
        response.contentLength(all.size());
        response.send(all);
    });
    Session session;
    session.start(server_.url("/live.flv"));
    expectWholeClip(session);
}

TEST_F(Network, ShowsWhatCameBeforeAReset) {
    server_.route("/live.flv", [this](HttpResponse& response) {
        const std::vector<TimedBytes> begin(pieces_.begin(), pieces_.begin() + 23); // 20 pictures
        servePaced(response, begin, {.speed = 0});
        response.sleepMs(300);
        response.reset();
    });
    Session session;
    session.start(server_.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    EXPECT_EQ(session.shown().size(), 20U);
    EXPECT_EQ(session.lastPictureNumber(), 19);
    EXPECT_TRUE(session.hasLine("http reader finished"));
}

TEST_F(Network, FollowsARedirectToAnotherServer) {
    HttpServer other;
    other.route("/start",
                [this](HttpResponse& response) { response.redirect(server_.url("/live.flv"), 307); });
    Session session;
    session.start(other.url("/start"));
    expectWholeClip(session);
}

struct Refusal {
    const char* name;
    int status;
    std::size_t bodyBytes;
};

void PrintTo(const Refusal& row, std::ostream* out) {
    *out << row.name;
}

class ErrorPage : public testing::TestWithParam<Refusal> {};

TEST_P(ErrorPage, IsNotFedToTheReaderAndEndsTheWorkerAtOnce) {
    HttpServer server;
    server.route("/live.flv",
                 [](HttpResponse& response) { response.errorPage(GetParam().status, GetParam().bodyBytes); });
    const auto begin = Clock::now();
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    EXPECT_LT(*session.endedAt() - begin, 2000ms * kSlowness);
    EXPECT_EQ(session.countLines("http reader finished"), 1) << session.logText();
    EXPECT_FALSE(session.hasLineBeginning("ko_player::Player::consumeImpl")) << session.logText();
}

INSTANTIATE_TEST_SUITE_P(Pages, ErrorPage,
                         testing::Values(Refusal{"NotFound", 404, 9}, Refusal{"Empty", 500, 0},
                                         Refusal{"ThreeMiB", 503, 3 << 20}),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(Network, FailuresAreToldToAParentThatGivesOptions) {
    if (areWorkersConfined()) {
        GTEST_SKIP() << "every worker has options in this run";
    }
    const std::string nobody = [] {
        const RefusingPort gone;
        return "http://127.0.0.1:" + std::to_string(gone.port()) + "/live.flv";
    }();
    server_.route("/refused.flv", [](HttpResponse& response) {
        response.status(403, "Forbidden");
        response.contentLength(0);
    });
    for (const auto& [url, line] :
         {std::pair(server_.url("/refused.flv"), "http failed: status 403 Forbidden"),
          std::pair(nobody, "http failed: network: ConnectionRefusedError: "
                            "Connection refused")}) {
        Session bare;
        bare.start(url);
        expectNothingShown(bare);
        EXPECT_FALSE(bare.hasLineBeginning("http failed")) << bare.logText();

        Session asked({.environment = {{"MEDIAWORKER_OPTIONS", "flv=strict"}}});
        asked.start(url);
        expectNothingShown(asked);
        ASSERT_EQ(asked.log().size(), bare.log().size() + 1) << asked.logText();
        const auto told = std::find_if(asked.log().begin(), asked.log().end(),
                                       [text = line](const LogLine& logged) { return logged.text == text; });
        ASSERT_NE(told, asked.log().end()) << asked.logText();
        EXPECT_EQ(std::next(told)->text, "http reader finished");
    }
}

TEST(NetworkEnd, OfAServerThatRefusesTheConnection) {
    const RefusingPort port;
    Session session;
    session.start("http://127.0.0.1:" + std::to_string(port.port()) + "/live.flv");
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    EXPECT_TRUE(session.hasLine("http reader finished"));
}

TEST(NetworkEnd, OfAServerWhoseNameCannotBeFound) {
    // Without any network, the question for the name fails at once and the same on every machine. Where no
    // program can be kept from the network, nobody knows this name all the same (RFC 6761, 6.4).
    QStringList alone;
    if (!platform::kIsWindows) {
        alone = QStringList{QStringLiteral("unshare"), QStringLiteral("--net")};
        try {
            runCommand({"unshare", "--net", "true"});
        } catch (const std::exception& error) {
            GTEST_SKIP() << "no network namespace of our own here: " << error.what();
        }
    }
    Session session({.prefix = alone});
    session.start("http://camera.invalid/live.flv");
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    EXPECT_EQ(session.shown().size(), 0U);
    EXPECT_EQ(session.countLines("http reader finished"), 1) << session.logText();
}

struct Way {
    const char* name;
    ProxyServer::Kind kind;
    const char* type;
    bool withPassword;
};

void PrintTo(const Way& row, std::ostream* out) {
    *out << row.name;
}

class Proxy : public testing::TestWithParam<Way> {};

TEST_P(Proxy, CarriesTheStreamOfAHostThatOnlyItKnows) {
    ClipSpec spec;
    spec.frames = 40;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(clip), {.burstMs = 1400}));
    const auto credentials =
        GetParam().withPassword ? std::optional(Credentials{"anna", "secret"}) : std::nullopt;
    const ProxyServer proxy(GetParam().kind, {{"camera.test", server.port()}}, credentials);

    Session session({.proxyUrl = proxy.url(), .proxyType = GetParam().type});
    session.start("http://camera.test/live.flv");
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    EXPECT_EQ(session.lastPictureNumber(), 39) << session.logText();
    ASSERT_FALSE(proxy.requests().empty());
    EXPECT_EQ(proxy.requests().back().host, "camera.test");
    EXPECT_EQ(proxy.requests().back().credentials, credentials);
    EXPECT_TRUE(proxy.requests().back().wasServed);
}

INSTANTIATE_TEST_SUITE_P(Ways, Proxy,
                         testing::Values(Way{"HttpByDefault", ProxyServer::Kind::Http, "", false},
                                         Way{"HttpForAnyOtherType", ProxyServer::Kind::Http, "SOCKS5", false},
                                         Way{"HttpWithPassword", ProxyServer::Kind::Http, "http", true},
                                         Way{"Socks5", ProxyServer::Kind::Socks5, "socks5", false},
                                         Way{"Socks5WithPassword", ProxyServer::Kind::Socks5, "socks5",
                                             true}),
                         [](const auto& instance) { return instance.param.name; });

TEST(ProxyEnd, OfAHostThatTheProxyDoesNotKnow) {
    const ProxyServer proxy(ProxyServer::Kind::Http, {});
    Session session({.proxyUrl = proxy.url()});
    session.start("http://camera.test/live.flv");
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    ASSERT_EQ(proxy.requests().size(), 1U);
}

class Https : public Network {
protected:
    void SetUp() override {
        if (const auto obstacle = private_.obstacle()) {
            GTEST_SKIP() << *obstacle;
        }
        secure_.route("/live.flv", handler());
    }

    Session::Options trusting() const {
        Session::Options options;
        for (const std::string& word : private_.commandPrefix()) {
            options.prefix << QString::fromStdString(word);
        }
        return options;
    }

    TestCertificates certificates_;
    PrivateCertificates private_{certificates_};
    HttpServer secure_{{.certificates = &certificates_}};
};

TEST_F(Https, PlaysAStreamOfATrustedServer) {
    Session session(trusting());
    session.start(secure_.url("/live.flv"));
    expectWholeClip(session);
    EXPECT_TRUE(session.hasLine("set timeouts for live cloud: first frame 8 seconds, inter frame 5 seconds"))
        << session.logText();
}

TEST_F(Https, DoesNotPlayThatOfAnUnknownServer) {
    Session session;
    session.start(secure_.url("/live.flv"));
    expectNothingShown(session);
    EXPECT_TRUE(secure_.exchanges().empty());
}

TEST_F(Https, IsReachedByARedirectFromHttp) {
    server_.route("/start", [this](HttpResponse& response) { response.redirect(secure_.url("/live.flv")); });
    Session session(trusting());
    session.start(server_.url("/start"));
    expectWholeClip(session);
}

TEST_F(Https, IsNotLeftByARedirectToHttp) {
    secure_.route("/start", [this](HttpResponse& response) { response.redirect(server_.url("/live.flv")); });
    Session session(trusting());
    session.start(secure_.url("/start"));
    expectNothingShown(session);
    EXPECT_TRUE(server_.exchanges().empty());
}

TEST_F(Https, GoesThroughAProxy) {
    const TestCertificates certificates({"camera.test"});
    const PrivateCertificates trusted(certificates);
    HttpServer server({.certificates = &certificates});
    server.route("/live.flv", handler());
    const ProxyServer tunnel(ProxyServer::Kind::Http, {{"camera.test", server.port()}});
    Session::Options options;
    for (const std::string& word : trusted.commandPrefix()) {
        options.prefix << QString::fromStdString(word);
    }
    options.proxyUrl = tunnel.url();
    Session session(options);
    session.start("https://camera.test/live.flv");
    expectWholeClip(session);
    EXPECT_EQ(tunnel.requests().back().method, "CONNECT");
}

} // namespace
} // namespace mediaworker::test
