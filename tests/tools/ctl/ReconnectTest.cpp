#include "CtlProgram.h"

#include <atomic>

namespace mediaworker::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

/// A camera that a test takes away and gives back.
class CtlReconnect : public CtlPlay {
protected:
    CtlReconnect() {
        FlvOptions minutes;
        minutes.repeats = 60;
        server_.route("/camera.flv", [this, live = pacedHandler(makeFlv(clip_, minutes), {.burstMs = 400})](
                                         HttpResponse& response) {
            ++requests_;
            if (!isThere_) {
                response.errorPage(503, 0);
                return;
            }
            live(response);
        });
        server_.route("/cut.flv", pacedHandler(pieces_, {.speed = 0}));
    }

    [[nodiscard]] std::vector<std::string> kinds() const {
        std::vector<std::string> result;
        for (const QJsonObject& event : events()) {
            const std::string kind = textOf(event, "event");
            if (kind != "progress") {
                result.push_back(kind);
            }
        }
        return result;
    }

    std::atomic<bool> isThere_{true};
    std::atomic<int> requests_{0};
};

TEST_F(CtlReconnect, WaitsForAServerThatIsNotThereYet) {
    isThere_ = false;
    start({"play", server_.url("/camera.flv"), "--reconnect", "--seconds", "1", "--json"});
    ASSERT_TRUE(waitForEvent("reconnecting", 2));
    isThere_ = true;
    ASSERT_EQ(finish(), kDone) << errors();
    const auto waits = events("reconnecting");
    EXPECT_EQ(textOf(waits[0], "reason"), "the server answered 503 Error");
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(intOf(waits[i], "attempt"), static_cast<int>(i) + 2);
        EXPECT_GE(intOf(waits[i], "afterMs"), 400);
        EXPECT_LE(intOf(waits[i], "afterMs"), 500);
    }
    EXPECT_THAT(events("firstPicture"), SizeIs(1));
    EXPECT_EQ(textOf(events("ended").at(0), "cause"), "linkClosed");
}

TEST_F(CtlReconnect, CountsGoOnAcrossWorkers) {
    // Each time a whole clip: of four seconds, sent at once and played in its time.
    const int perClip = [&] {
        EXPECT_EQ(run({"play", server_.url("/cut.flv"), "--json"}), kDone) << errors();
        return intOf(events("ended").at(0), "frames");
    }();
    const std::string watch = std::to_string(2 * perClip / 25 + 1);
    ASSERT_EQ(run({"play", server_.url("/cut.flv"), "--reconnect", "--seconds", watch, "--json"}), kDone)
        << errors();
    ASSERT_THAT(events("firstPicture"), SizeIs(testing::Ge(2U)));
    EXPECT_EQ(textOf(events("reconnecting").at(0), "reason"), "the server ended the stream");
    EXPECT_GT(intOf(events("ended").at(0), "frames"), perClip);
    const auto progress = events("progress");
    for (std::size_t i = 1; i < progress.size(); ++i) {
        EXPECT_GE(intOf(progress[i], "frames"), intOf(progress[i - 1], "frames")) << "they never fall back";
    }
}

TEST_F(CtlReconnect, SavesPicturesOfEveryWorker) {
    ASSERT_EQ(run({"play", server_.url("/cut.flv"), "--reconnect", "--seconds", "6", "--snapshots",
                   pictures_.string(), "--every", "60", "--json"}),
              kDone)
        << errors();
    const auto saved = events("snapshot");
    ASSERT_THAT(saved, SizeIs(testing::Ge(2U)));
    EXPECT_NE(textOf(saved[0], "file"), textOf(saved[1], "file"));
}

TEST_F(CtlReconnect, TellsPeople) {
    isThere_ = false;
    start({"play", server_.url("/camera.flv"), "--reconnect", "--seconds", "0.5"});
    ASSERT_TRUE(eventually([&] { return requests_ >= 1; }));
    isThere_ = true;
    ASSERT_EQ(finish(), kDone) << errors();
    EXPECT_THAT(output(), HasSubstr("the server answered 503 Error; again in 0."));
    EXPECT_THAT(lines(output()).back(), StartsWith("pictures: "));
}

TEST_F(CtlReconnect, GivesUpWhatNothingHereCanPlay) {
    const std::string script = "http://h/;connect;hello;log:pictures unavailable: H.263: this codec is not "
                               "supported;exit:2";
    EXPECT_EQ(run({"play", script, "--reconnect", "--worker", FAKE_WORKER, "--json"}), kNotDone);
    EXPECT_THAT(kinds(),
                ElementsAre("connected", "reconnecting", "connected", "reconnecting", "connected", "ended"));
    EXPECT_THAT(errors(), HasSubstr("no picture was shown: the pictures cannot be shown: H.263"));
}

TEST_F(CtlReconnect, AMissingWorkerIsTriedThreeTimes) {
    EXPECT_EQ(
        run({"play", server_.url("/camera.flv"), "--reconnect", "--worker", "/nowhere/worker", "--json"}),
        kNotDone);
    EXPECT_THAT(events("reconnecting"), SizeIs(2));
    EXPECT_THAT(errors(), AllOf(StartsWith("mediaworker-ctl: the worker cannot be started: "),
                                Not(HasSubstr("\nmediaworker-ctl"))));
}

TEST_F(CtlReconnect, WithoutItNothingIsStartedAgain) {
    isThere_ = false;
    EXPECT_EQ(run({"play", server_.url("/camera.flv"), "--json"}), kNotDone);
    EXPECT_EQ(requests_, 1);
}

} // namespace
} // namespace mediaworker::test
