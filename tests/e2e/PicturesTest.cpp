#include "Session.h"

#include "support/Platform.h"
#include "support/media/Clip.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <vector>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

std::vector<std::int64_t> stampsOf(const std::vector<ShownPicture>& pictures) {
    std::vector<std::int64_t> result;
    for (const ShownPicture& picture : pictures) {
        result.push_back(picture.stampMs);
    }
    return result;
}

/// All pictures were announced, in order and with their time stamps, and the last one was drawn.
void expectAllShown(Session& session, const std::vector<ShownPicture>& expected) {
    EXPECT_EQ(session.stamps(), stampsOf(expected)) << session.logText();
    EXPECT_EQ(session.lastPictureNumber(), expected.back().frameNumber);
}

/// Every message came with its picture or, since the next conversion begins at once, a later one.
void expectWholePicturesInOrder(const Session& session, const std::vector<ShownPicture>& expected) {
    // Pictures that share a time stamp are shown together.
    std::map<std::int64_t, int> firstOf;
    std::map<std::int64_t, int> lastOf;
    for (const ShownPicture& picture : expected) {
        firstOf.emplace(picture.stampMs, picture.frameNumber);
        lastOf[picture.stampMs] = picture.frameNumber;
    }
    int before = 0;
    int late = 0;
    for (const Shown& shown : session.shown()) {
        ASSERT_TRUE(shown.isWhole()) << "at " << shown.ptsMs << " ms: top " << shown.numbers.top.value_or(-1)
                                     << ", bottom " << shown.numbers.bottom.value_or(-1);
        const int number = *shown.numbers.top;
        EXPECT_GE(number, firstOf[shown.ptsMs]) << "at " << shown.ptsMs << " ms";
        EXPECT_GE(number, before);
        late += number > lastOf[shown.ptsMs] + 1 ? 1 : 0;
        before = number;
    }
    // A parent that was kept from its work may miss one; more would be another picture's time stamp.
    EXPECT_LE(late, static_cast<int>(session.shown().size()) / 20 * kSlowness);
}

struct Case {
    const char* name;
    VideoCodec codec;
    int bFrames;
    bool tenBit;
    AudioCodec audio;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class Stream : public testing::TestWithParam<Case> {};

TEST_P(Stream, ShowsAllPicturesInOrderWithTheirTimeStampsAndColours) {
    ClipSpec spec;
    spec.codec = GetParam().codec;
    spec.bFrames = GetParam().bFrames;
    spec.tenBit = GetParam().tenBit;
    spec.audio = GetParam().audio;
    spec.frames = 60;
    spec.firstFrameNumber = 5000;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(clip), {.burstMs = 1400}));

    Session session({.readsPatches = true});
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();

    const auto expected = shownPictures(clip);
    expectAllShown(session, expected);
    expectWholePicturesInOrder(session, expected);
    for (const Shown& shown : session.shown()) {
        EXPECT_EQ(shown.widthPx, 320);
        EXPECT_EQ(shown.heightPx, 180);
        EXPECT_LE(shown.patchError, 24) << "at " << shown.ptsMs << " ms";
    }
    EXPECT_EQ(session.formatChanges(), 1);
    EXPECT_EQ(session.malformedMessages(), 0);
    EXPECT_TRUE(session.hasLine("http reader finished"));
    EXPECT_TRUE(session.hasLine("video thread has stopped"));
}

INSTANTIATE_TEST_SUITE_P(Codecs, Stream,
                         testing::Values(Case{"H264", VideoCodec::Avc, 0, false, AudioCodec::None},
                                         Case{"H264WithBFrames", VideoCodec::Avc, 3, false, AudioCodec::Aac},
                                         Case{"H264TenBit", VideoCodec::Avc, 0, true, AudioCodec::None},
                                         Case{"Hevc", VideoCodec::Hevc, 0, false, AudioCodec::Aac},
                                         Case{"HevcWithBFrames", VideoCodec::Hevc, 3, false,
                                              AudioCodec::None}),
                         [](const auto& instance) { return instance.param.name; });

TEST(Pictures, AreNeverTornForAThousandOfThem) {
    ClipSpec spec;
    spec.fps = 100;
    spec.frames = 1100;
    spec.gop = 100;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(clip), {.burstMs = 1500}));
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(60s), 3) << session.logText();
    const auto expected = shownPictures(clip);
    expectAllShown(session, expected);
    expectWholePicturesInOrder(session, expected);
}

TEST(Pictures, AreThoseOfTheLastMessageWhileTheParentHoldsTheSemaphore) {
    ClipSpec spec;
    spec.frames = 150;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(clip), {.burstMs = 1500}));
    Session session({.readsPictures = false});
    session.start(server.url("/live.flv"));
    for (const std::size_t frames : {5U, 20U, 40U, 60U}) {
        ASSERT_TRUE(session.waitForFrames(frames)) << session.logText();
        const auto hold = session.frames().hold();
        ASSERT_TRUE(hold);
        // What has been converted is announced at its time; the next conversion waits for us.
        session.listen(250ms * kSlowness);
        std::optional<int> number;
        ASSERT_TRUE(session.frames().withPicture(hold, [&](const std::uint8_t* bgra, int width, int height) {
            number = readFrameNumber({bgra, width, height, std::ptrdiff_t{4} * width});
        }));
        EXPECT_EQ(number, session.shown().back().ptsMs / 40);
    }
}

TEST(Pictures, BeginOnceAParentThatHeldTheSemaphoreFromTheStartLetsGo) {
    ClipSpec spec;
    spec.widthPx = 640;
    spec.heightPx = 360;
    spec.frames = 75;
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(encode(spec)), {.burstMs = 1500}));
    Session session({.readsPictures = false});
    session.start(server.url("/live.flv"));
    auto hold = session.frames().hold(); // the program is still being loaded
    ASSERT_TRUE(hold);
    // The script data tells the size of the pictures, and they are decoded and wait: nothing of that is seen.
    for (int look = 0; look < 30; ++look) {
        session.listen(50ms);
        ASSERT_EQ(QFileInfo(session.frames().filePath()).size(), 0) << "at look " << look;
    }
    EXPECT_TRUE(session.hasLineBeginning("ko_player::VideoOutput::handleFirstFrame: inParams: "))
        << "the worker has not come to its first picture yet\n"
        << session.logText();
    EXPECT_EQ(session.shown().size(), 0U);
    EXPECT_EQ(session.formatChanges(), 0);
    hold.release();
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    EXPECT_EQ(session.shown().size(), 75U);
}

TEST(Pictures, FollowAChangeOfSizeInMidStream) {
    ClipSpec small;
    small.frames = 40;
    ClipSpec large = small;
    large.widthPx = 640;
    large.heightPx = 360;
    large.firstFrameNumber = 40;
    ClipSpec smallAgain = small;
    smallAgain.firstFrameNumber = 80;
    const Clip clips[] = {encode(small), encode(large), encode(smallAgain)};
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv({&clips[0], &clips[1], &clips[2]}), {.burstMs = 1500}));
    Session session({.readsPatches = true});
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();

    ASSERT_EQ(session.shown().size(), 120U) << session.logText();
    EXPECT_EQ(session.lastPictureNumber(), 119);
    EXPECT_EQ(session.formatChanges(), 3);
    for (const Shown& shown : session.shown()) {
        const bool isLastOfItsSize = shown.ptsMs == 39 * 40 || shown.ptsMs == 79 * 40;
        if (isLastOfItsSize && !shown.isWhole()) {
            continue; // the file is already set up for the next size, whose first picture is not drawn yet
        }
        ASSERT_TRUE(shown.isWhole()) << "at " << shown.ptsMs << " ms";
        const int number = *shown.numbers.top;
        EXPECT_GE(number, shown.ptsMs / 40);
        EXPECT_EQ(shown.widthPx, number >= 40 && number < 80 ? 640 : 320) << number;
        EXPECT_LE(shown.patchError, 24) << number;
    }
}

TEST(Pictures, FollowChangesOfSizeUnderAParentThatNeverUnmaps) {
    std::vector<Clip> clips;
    for (const int widthPx : {320, 640, 160, 320}) {
        ClipSpec spec;
        spec.frames = 20;
        spec.widthPx = widthPx;
        spec.heightPx = widthPx / 16 * 9;
        spec.firstFrameNumber = static_cast<int>(clips.size()) * 20;
        clips.push_back(encode(spec));
    }
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv({&clips[0], &clips[1], &clips[2], &clips[3]}),
                                           {.burstMs = 1500, .staysOpen = true}));
    Session session;
    std::vector<std::unique_ptr<QFile>> mapped;
    QObject::connect(&session.worker(), &parent::WorkerProcess::formatChanged, [&] {
        mapped.push_back(std::make_unique<QFile>(QDir::temp().filePath(session.frames().name())));
        ASSERT_TRUE(mapped.back()->open(QIODevice::ReadOnly));
        EXPECT_NE(mapped.back()->map(0, mapped.back()->size()), nullptr);
    });
    session.start(server.url("/live.flv"));
    ASSERT_TRUE(session.waitForFrames(80)) << session.logText();
    EXPECT_EQ(session.formatChanges(), 4);
    EXPECT_EQ(session.shown().back().widthPx, 320);
    EXPECT_EQ(session.shown().at(50).widthPx, 160);
    EXPECT_EQ(session.shown().at(50).numbers.top, session.shown().at(50).numbers.bottom);
    EXPECT_FALSE(session.hasLineBeginning("QFSFileEngine")) << session.logText();
}

struct Shape {
    const char* name;
    int codedWidth;
    int codedHeight;
    int sarNumerator;
    int sarDenominator;
    int shownWidth;
    int shownHeight;
    const char* line;
};

void PrintTo(const Shape& row, std::ostream* out) {
    *out << row.name;
}

class AspectRatio : public testing::TestWithParam<Shape> {};

TEST_P(AspectRatio, StretchesThePictureOfTheFrameFile) {
    const Shape& shape = GetParam();
    ClipSpec spec;
    spec.widthPx = shape.codedWidth;
    spec.heightPx = shape.codedHeight;
    spec.sarNumerator = shape.sarNumerator;
    spec.sarDenominator = shape.sarDenominator;
    spec.frames = 40;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(clip), {.burstMs = 1500}));
    Session session({.readsPatches = true});
    session.start(server.url("/live.flv"));
    ASSERT_TRUE(session.waitForFrames(10)) << session.logText();
    const Shown& shown = session.shown().back();
    EXPECT_TRUE(shown.isWhole());
    EXPECT_LE(shown.patchError, 24);
    EXPECT_EQ(shown.widthPx, shape.shownWidth);
    EXPECT_EQ(shown.heightPx, shape.shownHeight);
    const bool isLogged = std::any_of(session.log().begin(), session.log().end(), [&](const LogLine& line) {
        return line.text.find(shape.line) != std::string::npos;
    });
    EXPECT_TRUE(isLogged) << session.logText();
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, AspectRatio,
    testing::Values(Shape{"Wider", 704, 576, 12, 11, 768, 576,
                          ": Out video resize to:  fmt: 28, w: 768, h: 576, sar: 12/11"},
                    Shape{"Higher", 720, 480, 8, 9, 720, 544,
                          ": Out video resize to:  fmt: 28, w: 720, h: 544, sar: 8/9"},
                    Shape{"OutOfRange", 320, 180, 1, 3, 320, 180,
                          ": Out video ignore invalid sar:  fmt: 28, w: 320, h: 180, sar: 1/3"}),
    [](const auto& instance) { return instance.param.name; });

TEST(Pictures, FollowAnAspectRatioThatChangesWithTheSize) {
    ClipSpec square;
    square.frames = 40;
    ClipSpec wide;
    wide.widthPx = 352;
    wide.heightPx = 288;
    wide.sarNumerator = 12;
    wide.sarDenominator = 11;
    wide.frames = 40;
    wide.firstFrameNumber = 40;
    const Clip clips[] = {encode(square), encode(wide)};
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv({&clips[0], &clips[1]}), {.burstMs = 1500}));
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    EXPECT_EQ(session.formatChanges(), 2);
    ASSERT_EQ(session.shown().size(), 80U);
    EXPECT_EQ(session.shown().front().widthPx, 320);
    EXPECT_EQ(session.shown().back().widthPx, 384);
    EXPECT_EQ(session.shown().back().heightPx, 288);
    EXPECT_EQ(session.lastPictureNumber(), 79);
}

TEST(Pictures, KeepTheirSizeWhenOnlyTheAspectRatioChanges) {
    ClipSpec square;
    square.frames = 40;
    ClipSpec wide = square;
    wide.sarNumerator = 12;
    wide.sarDenominator = 11;
    wide.firstFrameNumber = 40;
    const Clip clips[] = {encode(square), encode(wide)};
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv({&clips[0], &clips[1]}), {.burstMs = 1500}));
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    EXPECT_EQ(session.formatChanges(), 1);
    ASSERT_EQ(session.shown().size(), 80U);
    EXPECT_EQ(session.shown().back().widthPx, 320);
    EXPECT_EQ(session.lastPictureNumber(), 79);
}

TEST(FrameFile, HasTheSizeOfThePictureAndBelongsToItsOwner) {
    ClipSpec spec;
    spec.widthPx = 1920;
    spec.heightPx = 1080;
    spec.frames = 30;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(clip), {.burstMs = 1500}));
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_TRUE(session.waitForFrames(3)) << session.logText();
    const QFileInfo file(session.frames().filePath());
    EXPECT_EQ(file.size(), 8'294'472);
    // On Windows the temporary directory belongs to the user.
    EXPECT_EQ((platform::kIsWindows ? QFile::Permissions() : file.permissions()) &
                  (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther |
                   QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther),
              0);
    EXPECT_TRUE(session.shown().back().isWhole());
    ASSERT_EQ(session.waitForExit(), 3);
    EXPECT_TRUE(file.exists()) << "the file is the parent's to remove";
}

} // namespace
} // namespace mediaworker::test
