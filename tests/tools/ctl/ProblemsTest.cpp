#include "CtlProgram.h"

#include "support/servers/TestCertificates.h"

/// What users and scripts are told when a stream does not come, or only a part of it.
namespace mediaworker::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

struct RefusedStream {
    const char* name;
    std::function<std::string(HttpServer&)> url; ///< made on that server, or elsewhere
    const char* cause;
    std::optional<int> httpStatus;
    const char* reason; ///< begins so
};

void PrintTo(const RefusedStream& refused, std::ostream* out) {
    *out << refused.name;
}

/// A page of that status behind any path.
std::function<std::string(HttpServer&)> page(int status, const std::string& words, std::size_t bytes = 20) {
    return [=](HttpServer& server) {
        server.route("/refused.flv", [=](HttpResponse& response) {
            response.status(status, words);
            response.contentLength(bytes);
            response.send(std::string(bytes, 'x'));
        });
        return server.url("/refused.flv");
    };
}

std::string urlOfNobody(HttpServer&) {
    const RefusingPort gone;
    return "http://127.0.0.1:" + std::to_string(gone.port()) + "/live.flv";
}

std::string cutBeforeItsEnd(HttpServer& server) {
    server.route("/cut.flv", [](HttpResponse& response) {
        response.contentLength(1000);
        response.send(std::string());
    });
    return server.url("/cut.flv");
}

class CtlProblem : public CtlProgram, public testing::WithParamInterface<RefusedStream> {
protected:
    void expectTold(const std::string& whatFailed, int exitCode) {
        const std::string reason = GetParam().reason;
        EXPECT_THAT(errors(), StartsWith("mediaworker-ctl: " + whatFailed + reason));
        const QJsonObject end = events("ended").at(0);
        EXPECT_FALSE(end[QStringLiteral("ok")].toBool());
        EXPECT_EQ(intOf(end, "exitCode"), exitCode);
        EXPECT_THAT(textOf(end, "problem"), StartsWith(whatFailed + reason));
        EXPECT_THAT(textOf(end, "reason"), StartsWith(reason));
        EXPECT_EQ(textOf(end, "cause"), GetParam().cause);
        EXPECT_EQ(end.contains(QStringLiteral("httpStatus")), GetParam().httpStatus.has_value());
        EXPECT_EQ(end[QStringLiteral("httpStatus")].toInt(), GetParam().httpStatus.value_or(0));
    }
};

TEST_P(CtlProblem, IsToldByPlay) {
    EXPECT_EQ(run({"play", GetParam().url(server_), "--json"}), kNotDone);
    expectTold("no picture was shown: ", 3);
}

TEST_P(CtlProblem, IsToldByExport) {
    EXPECT_EQ(run({"export", GetParam().url(server_), (folder_ / "film.mp4").string(), "--duration", "2",
                   "--json"}),
              kNotDone);
    expectTold("the export failed: ", 1);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "film.mp4"));
}

INSTANTIATE_TEST_SUITE_P(
    OfAResponse, CtlProblem,
    testing::Values(RefusedStream{"NotFound", page(404, "Not Found"), "httpStatus", 404,
                                  "the server answered 404 Not Found"},
                    RefusedStream{"Unauthorized", page(401, "Unauthorized"), "httpStatus", 401,
                                  "the server answered 401 Unauthorized"},
                    RefusedStream{"LargePage", page(503, "Too many viewers", 3 << 20), "httpStatus", 503,
                                  "the server answered 503 Too many viewers"},
                    RefusedStream{"RedirectionWithoutAim", page(302, "Found"), "httpStatus", 302,
                                  "the server answered 302 Found, a redirection that is not followed"},
                    RefusedStream{
                        "NobodyListens", urlOfNobody, "connectionRefused", {}, "connection refused"},
                    RefusedStream{"NoSuchHost",
                                  [](HttpServer&) { return std::string("http://camera.invalid/live.flv"); },
                                  "unknownHost",
                                  {},
                                  "unknown host"},
                    RefusedStream{"Cut", cutBeforeItsEnd, "connectionLost", {}, "connection lost"}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(CtlProgram, TellsOfAServerThatItDoesNotTrust) {
    const TestCertificates certificates;
    const HttpServer secure({.certificates = &certificates});
    EXPECT_EQ(run({"play", secure.url("/live.flv"), "--json"}), kNotDone);
    EXPECT_EQ(textOf(events("ended").at(0), "cause"), "tlsFailure");
    EXPECT_THAT(errors(), StartsWith("mediaworker-ctl: no picture was shown: no secure connection: "));
}

/// A stream that promises more than it brings.
class CtlBrokenStream : public CtlProgram {
protected:
    CtlBrokenStream() {
        server_.route("/broken.flv", [this](HttpResponse& response) {
            response.contentLength(100'000'000);
            for (const TimedBytes& piece : pieces_) {
                response.send(piece.bytes);
            }
        });
    }

    static constexpr const char* kBrokeOff = "the stream broke off: connection lost: it was closed before "
                                             "the answer was complete";
};

TEST_F(CtlBrokenStream, IsPlayedToWhereItBreaksOff) {
    EXPECT_EQ(run({"play", server_.url("/broken.flv"), "--seconds", "30", "--json"}), kNotDone);
    EXPECT_THAT(errors(), ContainsPattern("^mediaworker-ctl: the pictures ended after [0-9.]+ of 30 seconds: "
                                          "connection lost"));
    EXPECT_EQ(textOf(events("ended").at(0), "cause"), "connectionLost");

    EXPECT_EQ(run({"play", server_.url("/broken.flv")}), kDone) << errors();
    EXPECT_EQ(lines(output()).back(), kBrokeOff);
}

TEST_F(CtlBrokenStream, IsExportedToWhereItBreaksOff) {
    const std::string file = (folder_ / "film.mp4").generic_string();
    EXPECT_EQ(run({"export", server_.url("/broken.flv"), file, "--duration", "30"}), kCutShort) << errors();
    EXPECT_THAT(output(),
                HasSubstr("\nthe file is complete, but shorter than the 30.0 s that were asked for\n"));
    EXPECT_EQ(lines(output()).back(), kBrokeOff);
    EXPECT_EQ(run({"export", server_.url("/broken.flv"), file, "--duration", "30", "--json"}), kCutShort);
    const QJsonObject end = events("ended").at(0);
    EXPECT_TRUE(end[QStringLiteral("ok")].toBool());
    EXPECT_TRUE(end[QStringLiteral("isCutShort")].toBool());
    EXPECT_EQ(intOf(end, "recordedMs"), 2000);
    EXPECT_EQ(intOf(end, "percentOfAsked"), 6);
    EXPECT_EQ(run({"export", server_.url("/broken.flv"), file, "--duration", "2"}), kDone)
        << "all that was asked for had come";
    EXPECT_EQ(run({"export", server_.url("/broken.flv"), file}), kCutShort) << "nobody has stopped it";
    EXPECT_EQ(textOf(end, "cause"), "connectionLost");
    EXPECT_EQ(textOf(end, "reason"), std::string("the file is complete, but ") + kBrokeOff);
}

TEST_F(CtlPlay, SaysNothingOfAStreamThatEndsAsItShould) {
    ASSERT_EQ(run({"play", server_.url("/fast.flv"), "--json"}), kDone) << errors();
    const QJsonObject end = events("ended").at(0);
    EXPECT_EQ(textOf(end, "cause"), "endOfStream");
    EXPECT_EQ(textOf(end, "reason"), "the server ended the stream");
    EXPECT_FALSE(end.contains(QStringLiteral("httpStatus")));
    ASSERT_EQ(run({"play", server_.url("/fast.flv")}), kDone) << errors();
    EXPECT_THAT(lines(output()).back(), StartsWith("pictures: "));
}

// What looks like a URL is a script for the worker's stand-in.
constexpr const char* kSilent = "http://h/;connect;hello;picture:16x8;send:0108000000000000000000;"
                                "log:sound unavailable: nellymoser: no decoder;log:sound unavailable: x: y;"
                                "exit:3";

TEST_F(CtlPlay, TellsOnceThatThereIsNoSound) {
    ASSERT_EQ(run({"play", kSilent, "--worker", FAKE_WORKER}), kDone) << errors();
    // It may be the first line.
    EXPECT_THAT(output(), AllOf(AnyOf(StartsWith("no sound: nellymoser: no decoder\n"),
                                      HasSubstr("\nno sound: nellymoser: no decoder\n")),
                                Not(HasSubstr("x: y"))));
    ASSERT_EQ(run({"play", kSilent, "--worker", FAKE_WORKER, "--json"}), kDone) << errors();
    ASSERT_THAT(events("soundUnavailable"), SizeIs(1));
    EXPECT_EQ(textOf(events("soundUnavailable")[0], "reason"), "nellymoser: no decoder");
}

TEST_F(CtlPlay, MissesADeviceOnlyForSoundThatWasAskedFor) {
    const std::string script = "http://h/;connect;hello;wait:300;log:Failed to create audio output;exit:4";
    EXPECT_EQ(run({"play", script, "--worker", FAKE_WORKER, "--volume", "50"}), kNotDone);
    EXPECT_THAT(output(), HasSubstr("no sound: no sound device\n"));
    EXPECT_EQ(run({"play", script, "--worker", FAKE_WORKER}), kNotDone);
    EXPECT_THAT(output(), Not(HasSubstr("no sound")));
}

TEST_F(CtlPlay, TellsThatThePicturesCannotBeShown) {
    EXPECT_EQ(run({"play", "http://h/;connect;hello;log:pictures unavailable: vp6: no decoder;exit:2",
                   "--worker", FAKE_WORKER, "--json"}),
              kNotDone);
    EXPECT_THAT(errors(), StartsWith("mediaworker-ctl: no picture was shown: the pictures cannot be shown: "
                                     "vp6: no decoder (exit code 2)\n"));
    EXPECT_EQ(textOf(events("ended").at(0), "cause"), "picturesUnavailable");
}

TEST_F(CtlExport, TellsThatTheSoundIsLeftOut) {
    EXPECT_EQ(run({"export", "http://h/;connect;hello;log:sound unavailable: speex: not in MP4;exit:1",
                   file_.generic_string(), "--duration", "4", "--worker", FAKE_WORKER}),
              kNotDone);
    EXPECT_THAT(output(), HasSubstr("no sound: speex: not in MP4\n"));
}

/// What the worker's stand-in was told.
class CtlOptions : public CtlProgram {
protected:
    std::string toldBy(std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--worker", FAKE_WORKER});
        EXPECT_EQ(run(std::move(arguments)), kNotDone);
        const std::string text = errors();
        const auto begin = text.find("env: ");
        return begin == std::string::npos ? text : text.substr(begin + 5, text.find('\n', begin) - begin - 5);
    }

    const std::string script_ = "http://h/;connect;hello;env:MEDIAWORKER_OPTIONS;exit:1";
};

TEST_F(CtlOptions, ReachTheWorker) {
    EXPECT_EQ(toldBy({"play", script_}), "flv=standard,buffering=on,sync=on,sandbox=on");
    EXPECT_EQ(toldBy({"play", script_, "--flv", "strict", "--low-latency", "--no-sync", "--no-sandbox"}),
              "flv=strict,buffering=off,sync=off,sandbox=off");
    const std::string file = (folder_ / "film.mp4").string();
    EXPECT_EQ(toldBy({"export", script_, file, "--duration", "1"}),
              "flv=standard,length=exact,sandbox=on,mp4=safe");
    EXPECT_EQ(toldBy({"export", script_, file, "--duration", "1", "--flv", "strict", "--no-sandbox"}),
              "flv=strict,length=exact,sandbox=off,mp4=safe");
}

TEST_F(CtlOptions, AreTheCommandLinesAndNotTheEnvironments) {
    environment_.emplace_back("MEDIAWORKER_OPTIONS", "flv=strict");
    EXPECT_EQ(toldBy({"play", script_}), "flv=standard,buffering=on,sync=on,sandbox=on");
}

TEST_F(CtlOptions, AreKnownToTheWorker) {
    EXPECT_EQ(run({"play", server_.url("/nothing.flv"), "--flv", "strict", "--low-latency", "--no-sync"}),
              kNotDone);
    EXPECT_THAT(errors(), Not(HasSubstr("MEDIAWORKER_OPTIONS")));
    EXPECT_EQ(run({"play", server_.url("/nothing.flv")}), kNotDone);
    EXPECT_THAT(errors(), Not(HasSubstr("MEDIAWORKER_OPTIONS")));
}

TEST_F(CtlOptions, LeaveOutBuffering) {
    ASSERT_EQ(run({"play", server_.url("/long.flv"), "--low-latency", "--seconds", "0.2"}), kDone)
        << errors();
    ASSERT_EQ(run({"play", server_.url("/fast.flv"), "--flv", "strict", "--no-sync"}), kDone) << errors();
}

} // namespace
} // namespace mediaworker::test
