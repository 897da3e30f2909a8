#include "Session.h"

#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/media/Clip.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <random>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr int kFrames = 20;
constexpr int kFirstNumber = 3000;
constexpr int kFrameTimeout = 2; ///< exit code

ClipSpec shortClip() {
    ClipSpec spec;
    spec.frames = kFrames;
    spec.firstFrameNumber = kFirstNumber;
    spec.gop = 10;
    return spec;
}

/// Makes another file of the given ones with the ffmpeg program.
std::filesystem::path convert(const std::filesystem::path& from, const std::vector<std::string>& arguments,
                              const std::filesystem::path& to) {
    std::vector<std::string> command = {"ffmpeg", "-v", "error", "-nostdin", "-y", "-i", from.string()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    command.push_back(to.string());
    runCommand(command);
    return to;
}

using platform::fileUrl;

/// Pictures of these numbers were announced, each was whole and either the one announced or, since the next
/// conversion begins at once, the one after it; the last one stays in the frame file.
void expectPictures(Session& session, int first, int count, int widthPx, int heightPx) {
    ASSERT_EQ(session.shown().size(), static_cast<std::size_t>(count)) << session.logText();
    int announced = first;
    int before = 0;
    int late = 0;
    // Stamps a millisecond apart stand for pictures without any: those are shown as fast as they are decoded,
    // and a parent sees the ones that it finds.
    const bool isPaced = session.shown().back().ptsMs - session.shown().front().ptsMs > count * 10;
    for (const Shown& shown : session.shown()) {
        ASSERT_TRUE(shown.isWhole()) << "at " << shown.ptsMs << " ms: top " << shown.numbers.top.value_or(-1)
                                     << ", bottom " << shown.numbers.bottom.value_or(-1);
        EXPECT_EQ(shown.widthPx, widthPx);
        EXPECT_EQ(shown.heightPx, heightPx);
        EXPECT_GE(*shown.numbers.top, announced);
        EXPECT_GE(*shown.numbers.top, before);
        late += isPaced && *shown.numbers.top > announced + 1 ? 1 : 0;
        before = *shown.numbers.top;
        ++announced;
    }
    EXPECT_LE(late, count / 10 * kSlowness + 1) << "pictures of another time stamp";
    EXPECT_EQ(session.lastPictureNumber(), first + count - 1);
    EXPECT_EQ(session.formatChanges(), 1);
    EXPECT_EQ(session.malformedMessages(), 0);
}

/// The distances between the time stamps, in milliseconds.
std::vector<std::int64_t> steps(const Session& session) {
    const std::vector<std::int64_t> stamps = session.stamps();
    std::vector<std::int64_t> result;
    for (std::size_t i = 1; i < stamps.size(); ++i) {
        result.push_back(stamps[i] - stamps[i - 1]);
    }
    return result;
}

class LocalFile : public testing::Test {
protected:
    /// Plays the file to its end, which must be the one that local files have.
    static void play(Session& session, const std::string& url) {
        session.start(url);
        ASSERT_EQ(session.waitForExit(), kFrameTimeout) << session.logText();
        EXPECT_TRUE(session.hasLine("set timeouts for file " + url +
                                    ": first frame 1 seconds, inter frame 1 seconds"))
            << session.logText();
        EXPECT_TRUE(session.hasLine("exit on frame timeout")) << session.logText();
    }

    TemporaryFolder folder_;
};

struct FileCase {
    const char* name;
    const char* fileName;
    ClipSpec spec;                      ///< of what is there before
    std::vector<std::string> arguments; ///< that make the file of it; empty: as it is
    int widthPx = 0;                    ///< 0: as in `spec`
    int heightPx = 0;

    friend void PrintTo(const FileCase& file, std::ostream* out) { *out << file.fileName; }
};

std::vector<FileCase> fileCases() {
    const std::vector<std::string> copy = {"-map", "0", "-c", "copy"};
    const std::vector<std::string> annexB = {"-map", "0", "-c", "copy", "-bsf:v", "h264_mp4toannexb"};
    const ClipSpec plain = shortClip();
    const auto with = [&](auto change) {
        ClipSpec spec = plain;
        change(spec);
        return spec;
    };
    const ClipSpec sound = with([](ClipSpec& spec) { spec.audio = AudioCodec::Aac; });
    const ClipSpec hevc = with([](ClipSpec& spec) { spec.codec = VideoCodec::Hevc; });
    const ClipSpec tenBit = with([](ClipSpec& spec) { spec.tenBit = true; });
    const ClipSpec hevcTenBit = with([](ClipSpec& spec) {
        spec.codec = VideoCodec::Hevc;
        spec.tenBit = true;
    });
    const ClipSpec portrait = with([](ClipSpec& spec) {
        spec.widthPx = 360;
        spec.heightPx = 640;
    });
    const ClipSpec large = with([](ClipSpec& spec) {
        spec.widthPx = 3840;
        spec.heightPx = 2160;
        spec.frames = 8;
    });
    const ClipSpec medium = with([](ClipSpec& spec) {
        spec.widthPx = 640;
        spec.heightPx = 360;
    });
    return {
        {"Mov", "a.mov", sound, {}},
        {"Mp4", "a.mp4", sound, copy},
        {"Mp4BeginningWithItsIndex", "a.mp4", sound, {"-c", "copy", "-movflags", "faststart"}},
        {"Mp4InFragments", "a.mp4", plain, {"-c", "copy", "-movflags", "frag_keyframe+empty_moov"}},
        {"Matroska", "a.mkv", sound, copy},
        {"MpegTs", "a.ts", sound, annexB},
        {"Avi", "a.avi", plain, annexB},
        {"AviWithMpeg4", "a.avi", plain, {"-c:v", "mpeg4", "-q:v", "2"}},
        {"Flv", "a.flv", sound, copy},
        {"Hevc", "a.mp4", hevc, copy},
        {"HevcInMatroska", "a.mkv", hevc, copy},
        {"H264TenBit", "a.mp4", tenBit, copy},
        {"HevcTenBit", "a.mp4", hevcTenBit, copy},
        {"Portrait", "a.mp4", portrait, copy},
        {"UltraHd", "a.mp4", large, copy},
        {"OddSize", "a.avi", medium, {"-vf", "scale=641:359", "-c:v", "mpeg4", "-q:v", "2"}, 641, 359},
        {"OddSizeFullChroma",
         "a.mkv",
         medium,
         {"-vf", "scale=641:359", "-pix_fmt", "yuv444p", "-c:v", "libx264", "-preset", "ultrafast", "-bf",
          "0"},
         641,
         359},
    };
}

class LocalFileOf : public LocalFile, public testing::WithParamInterface<FileCase> {};

TEST_P(LocalFileOf, ShowsAllItsPicturesInOrderAndEndsWithTwo) {
    const FileCase& file = GetParam();
    std::filesystem::path path = encodedFile(file.spec);
    if (!file.arguments.empty()) {
        path = convert(path, file.arguments, folder_ / file.fileName);
    }
    Session session;
    play(session, fileUrl(path));
    expectPictures(session, kFirstNumber, file.spec.frames,
                   file.widthPx != 0 ? file.widthPx : file.spec.widthPx,
                   file.heightPx != 0 ? file.heightPx : file.spec.heightPx);
    EXPECT_THAT(steps(session), testing::Each(40));
    // The second runs from when the last picture was taken out of the queue, before its conversion.
    EXPECT_GT(*session.endedAt() - session.shown().back().when, 500ms);
}

INSTANTIATE_TEST_SUITE_P(Files, LocalFileOf, testing::ValuesIn(fileCases()),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(LocalFile, ThatIsTurnedByItsMetadataIsShownAsStored) {
    const auto path = convert(encodedFile(shortClip()), {"-c", "copy"}, folder_ / "turned.mp4");
    std::string bytes = readFile(path);
    // Track header: its type, version and flags, 5 x UI32, 2 x UI32 reserved, 4 x UI16, then the matrix.
    const std::size_t matrix = bytes.find("tkhd") + 44;
    ASSERT_LT(matrix + 36, bytes.size());
    const std::string quarterTurn = {0,      0,      0, 0, 0, 1, 0, 0, 0, 0, 0, 0, // a, b, u
                                     '\xFF', '\xFF', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    bytes.replace(matrix, quarterTurn.size(), quarterTurn);
    writeFile(path, bytes);
    ASSERT_THAT(runCommand({"ffprobe", "-v", "error", "-show_streams", path.string()}),
                HasSubstr("rotation=-90"));
    Session session;
    play(session, fileUrl(path));
    expectPictures(session, kFirstNumber, kFrames, 320, 180);
}

struct OrderCase {
    const char* name;
    const char* fileName;
    std::vector<std::string> arguments;

    friend void PrintTo(const OrderCase& file, std::ostream* out) { *out << file.fileName; }
};

class LocalFileWithBFrames : public LocalFile, public testing::WithParamInterface<OrderCase> {};

// The last pictures stay in the decoder: nothing flushes it. What comes is in the order of presentation.
TEST_P(LocalFileWithBFrames, ShowsItsPicturesInOrderButTheLastOnes) {
    ClipSpec spec = shortClip();
    spec.bFrames = 3;
    const auto path = convert(encodedFile(spec), GetParam().arguments, folder_ / GetParam().fileName);
    Session session;
    play(session, fileUrl(path));
    const int count = static_cast<int>(session.shown().size());
    EXPECT_GE(count, kFrames - 4) << session.logText();
    EXPECT_LE(count, kFrames);
    expectPictures(session, kFirstNumber, count, 320, 180);
    EXPECT_THAT(steps(session), testing::Each(testing::Gt(0)));
}

INSTANTIATE_TEST_SUITE_P(
    Files, LocalFileWithBFrames,
    testing::Values(
        OrderCase{"Mp4", "b.mp4", {"-c", "copy"}}, OrderCase{"Matroska", "b.mkv", {"-c", "copy"}},
        OrderCase{"MpegTs", "b.ts", {"-c", "copy", "-bsf:v", "h264_mp4toannexb"}},
        OrderCase{"FlvBeginningBelowZeroSoAtTheEndOfTime",
                  "b.flv",
                  {"-c", "copy", "-avoid_negative_ts", "disabled"}},
        OrderCase{"RawStreamWithoutTimeStamps", "b.h264", {"-c", "copy", "-bsf:v", "h264_mp4toannexb"}}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(LocalFile, BeginningBelowZeroBeginsAfterZero) {
    ClipSpec spec = shortClip();
    spec.bFrames = 3;
    const auto path = convert(encodedFile(spec), {"-c", "copy"}, folder_ / "b.mp4");
    Session session;
    play(session, fileUrl(path));
    EXPECT_TRUE(
        session.hasLine("ko_player::VideoPipeline::push: video packet time is fixed from: -80, to: 1"))
        << session.logText();
    ASSERT_FALSE(session.shown().empty());
    EXPECT_GT(session.shown().front().ptsMs, 0);
}

TEST_F(LocalFile, WithoutAnyTimeStampsIsShown) {
    const auto path =
        convert(encodedFile(shortClip()), {"-c", "copy", "-bsf:v", "h264_mp4toannexb"}, folder_ / "raw.h264");
    Session session;
    play(session, fileUrl(path));
    EXPECT_GE(session.shown().size(), static_cast<std::size_t>(kFrames) - 1) << session.logText();
}

TEST_F(LocalFile, WithSoundOnlyEndsWithTwoAfterASecond) {
    ClipSpec spec = shortClip();
    spec.audio = AudioCodec::Aac;
    for (const char* name : {"sound.m4a", "sound.mkv"}) {
        const auto path = convert(encodedFile(spec), {"-vn", "-c", "copy"}, folder_ / name);
        Session session;
        const auto begin = Clock::now();
        play(session, fileUrl(path));
        EXPECT_GT(*session.endedAt() - begin, 900ms);
        EXPECT_LT(*session.endedAt() - begin, 3s * kSlowness);
        EXPECT_TRUE(session.shown().empty());
        EXPECT_FALSE(session.hasLineBeginning("couldn't")) << session.logText();
    }
}

TEST_F(LocalFile, WithTwoVideosEndsWithTwo) {
    for (const char* name : {"two.mp4", "two.mkv"}) {
        const auto path =
            convert(encodedFile(shortClip()), {"-map", "0", "-map", "0", "-c", "copy"}, folder_ / name);
        Session session;
        play(session, fileUrl(path));
        EXPECT_TRUE(session.shown().empty());
        EXPECT_TRUE(session.hasLine("FfpStream::playLocalFile: VideoPipeline::open second call"))
            << session.logText();
    }
}

struct CoverCase {
    const char* name;
    const char* fileName;
    std::vector<std::string> arguments; ///< behind both inputs: the clip and a picture

    friend void PrintTo(const CoverCase& file, std::ostream* out) { *out << file.fileName; }
};

class LocalFileWithCover : public LocalFile, public testing::WithParamInterface<CoverCase> {
protected:
    /// A picture with another number and size.
    [[nodiscard]] std::filesystem::path cover(const char* name) const {
        ClipSpec spec = shortClip();
        spec.firstFrameNumber = 77;
        spec.widthPx = 640;
        spec.heightPx = 360;
        return convert(encodedFile(spec), {"-frames:v", "1", "-update", "1"}, folder_ / name);
    }
    [[nodiscard]] std::filesystem::path withCover(const std::vector<std::string>& more) const {
        ClipSpec spec = shortClip();
        spec.audio = AudioCodec::Aac;
        std::vector<std::string> arguments = {"-i", cover("cover.png").string()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return convert(encodedFile(spec), arguments, folder_ / GetParam().fileName);
    }
};

TEST_P(LocalFileWithCover, ShowsItsVideo) {
    std::vector<std::string> arguments = GetParam().arguments;
    if (arguments.empty()) { // a file of its own within the file
        arguments = {"-map",
                     "0",
                     "-c",
                     "copy",
                     "-attach",
                     cover("attached.jpg").string(),
                     "-metadata:s:t",
                     "mimetype=image/jpeg"};
    }
    const auto path = withCover(arguments);
    ASSERT_THAT(runCommand({"ffprobe", "-v", "error", "-show_streams", path.string()}),
                HasSubstr("attached_pic=1"));
    Session session;
    play(session, fileUrl(path));
    expectPictures(session, kFirstNumber, kFrames, 320, 180);
    EXPECT_TRUE(session.hasLine("format ctx stream: 0")) << session.logText();
}

INSTANTIATE_TEST_SUITE_P(
    Files, LocalFileWithCover,
    testing::Values(CoverCase{"Mp4",
                              "video.mp4",
                              {"-map", "0", "-map", "1", "-c", "copy", "-disposition:v:1", "attached_pic"}},
                    CoverCase{"Mp4WithTheCoverFirst",
                              "first.mp4",
                              {"-map", "1", "-map", "0", "-c", "copy", "-disposition:v:0", "attached_pic"}},
                    CoverCase{"Mp4WithTwoCovers",
                              "two.mp4",
                              {"-map", "0", "-map", "1", "-map", "1", "-c", "copy", "-disposition:v:1",
                               "attached_pic", "-disposition:v:2", "attached_pic"}},
                    CoverCase{"Matroska", "video.mkv", {}}),
    [](const auto& instance) { return instance.param.name; });

class LocalFileOfSoundWithACover : public LocalFile, public testing::WithParamInterface<const char*> {};

TEST_P(LocalFileOfSoundWithACover, ShowsTheCover) {
    if (platform::kIsWindows && GetParam() == std::string("png")) {
        GTEST_SKIP() << "FFmpeg as it is built for Windows has no zlib, and thus no decoder of PNG";
    }
    ClipSpec spec = shortClip();
    spec.audio = AudioCodec::Aac;
    const auto picture = convert(encodedFile(shortClip()), {"-frames:v", "1", "-update", "1"},
                                 folder_.path() / (std::string("cover.") + GetParam()));
    const auto path = convert(encodedFile(spec),
                              {"-i", picture.string(), "-map", "0:a", "-map", "1", "-map", "1", "-c", "copy",
                               "-disposition:v:0", "attached_pic", "-disposition:v:1", "attached_pic"},
                              folder_ / "song.m4a");
    Session session;
    play(session, fileUrl(path));
    expectPictures(session, kFirstNumber, 1, 320, 180);
}

INSTANTIATE_TEST_SUITE_P(Files, LocalFileOfSoundWithACover, testing::Values("jpg", "png"),
                         [](const auto& instance) { return std::string(instance.param); });

TEST_F(LocalFile, WithSubtitlesTellsAboutTheirStream) {
    writeFile(folder_ / "text.srt", "1\n00:00:00,000 --> 00:00:01,000\nHello\n");
    const auto path = convert(
        encodedFile(shortClip()),
        {"-i", (folder_ / "text.srt").string(), "-map", "0:v", "-map", "1", "-c:v", "copy", "-c:s", "srt"},
        folder_ / "subtitled.mkv");
    Session session;
    play(session, fileUrl(path));
    expectPictures(session, kFirstNumber, kFrames, 320, 180);
    EXPECT_TRUE(session.hasLine("format ctx stream: 3")) << session.logText();
}

struct UnreadableCase {
    const char* name;
    std::string (*make)(const std::filesystem::path& folder); ///< gives the path
    const char* text;

    friend void PrintTo(const UnreadableCase& file, std::ostream* out) { *out << file.name; }
};

class LocalFileThatIs : public LocalFile, public testing::WithParamInterface<UnreadableCase> {};

TEST_P(LocalFileThatIs, IsReportedAndEndsWithTwo) {
    if (platform::kIsWindows && GetParam().name == std::string("NotForUs")) {
        GTEST_SKIP() << "Windows has no /proc";
    }
    const std::string path = GetParam().make(folder_.path());
    Session session;
    const std::string url = fileUrl(path);
    play(session, url);
    const std::string named =
        path.starts_with('/') ? path : url.substr(8); // on Windows without the third slash
    EXPECT_TRUE(session.hasLine("couldn't open file " + named + " : " + GetParam().text))
        << session.logText();
    EXPECT_TRUE(session.shown().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Files, LocalFileThatIs,
    testing::Values(UnreadableCase{"Empty",
                                   [](const std::filesystem::path& folder) {
                                       writeFile(folder / "empty.mp4", "");
                                       return (folder / "empty.mp4").string();
                                   },
                                   "Invalid data found when processing input"},
                    UnreadableCase{"ADirectory",
                                   [](const std::filesystem::path& folder) { return folder.string(); },
                                   platform::kIsWindows ? "Permission denied" : "Is a directory"},
                    UnreadableCase{"NotForUs",
                                   [](const std::filesystem::path&) { return std::string("/proc/self/mem"); },
                                   "Input/output error"},
                    UnreadableCase{"CutBeforeItsIndex",
                                   [](const std::filesystem::path& folder) {
                                       const std::string whole = readFile(encodedFile(shortClip()));
                                       writeFile(folder / "cut.mov", whole.substr(0, whole.size() / 2));
                                       return (folder / "cut.mov").string();
                                   },
                                   "Invalid data found when processing input"},
                    UnreadableCase{"Text",
                                   [](const std::filesystem::path& folder) {
                                       writeFile(folder / "text.mp4", std::string(3000, 'x'));
                                       return (folder / "text.mp4").string();
                                   },
                                   "Invalid data found when processing input"}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(LocalFile, ThatIsMissingIsReportedAsItWasAskedFor) {
    // Neither this nor the path below the root exists, so nothing is put before it.
    Session session;
    play(session, "file:///nowhere/a b.mp4");
    EXPECT_TRUE(session.hasLine("couldn't open file nowhere/a b.mp4 : No such file or directory"))
        << session.logText();
}

TEST_F(LocalFile, ThatIsCutShowsWhatIsThere) {
    const auto whole = encodedFile(shortClip());
    const std::vector<std::pair<const char*, std::vector<std::string>>> files = {
        {"cut.mkv", {"-c", "copy"}},
        {"cut.ts", {"-c", "copy", "-bsf:v", "h264_mp4toannexb"}},
        {"cut.mp4", {"-c", "copy", "-movflags", "faststart"}},
    };
    for (const auto& [name, arguments] : files) {
        const auto path = convert(whole, arguments, folder_ / name);
        const std::string bytes = readFile(path);
        writeFile(path, bytes.substr(0, bytes.size() * 3 / 5));
        Session session;
        play(session, fileUrl(path));
        EXPECT_GE(session.shown().size(), 4U) << name << session.logText();
        EXPECT_LT(session.shown().size(), static_cast<std::size_t>(kFrames)) << name;
    }
}

TEST_F(LocalFile, OfRandomBytesEndsWithTwo) {
    std::mt19937 random(11);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int i = 0; i < 4; ++i) {
        std::string bytes(100000, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(byte(random)); });
        writeFile(folder_ / "random.mp4", bytes);
        Session session;
        play(session, fileUrl(folder_ / "random.mp4"));
        EXPECT_TRUE(session.shown().empty());
    }
}

TEST_F(LocalFile, WithDamagedContentsNeverCrashes) {
    const auto whole = convert(encodedFile(shortClip()), {"-c", "copy"}, folder_ / "whole.mkv");
    const std::string good = readFile(whole);
    std::mt19937 random(5);
    std::uniform_int_distribution<std::size_t> place(200, good.size() - 1);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int i = 0; i < 4; ++i) {
        std::string bytes = good;
        for (int k = 0; k < 100; ++k) {
            bytes[place(random)] = static_cast<char>(byte(random));
        }
        writeFile(folder_ / "bad.mkv", bytes);
        Session session;
        play(session, fileUrl(folder_ / "bad.mkv"));
    }
}

class LocalFileNamed : public LocalFile, public testing::WithParamInterface<std::string> {};

TEST_P(LocalFileNamed, IsFound) {
    const auto path = convert(encodedFile(shortClip()), {"-c", "copy", "-f", "mp4"}, folder_ / "plain.mp4");
    const std::filesystem::path named = folder_.path() / GetParam();
    std::filesystem::create_directories(named.parent_path());
    std::filesystem::rename(path, named);
    Session session({.environment = {{"LC_ALL", "C.UTF-8"}}});
    play(session, fileUrl(named));
    expectPictures(session, kFirstNumber, kFrames, 320, 180);
}

/// What can be the name of a file, and on a command line in the local code page.
std::vector<std::string> fileNames() {
    std::vector<std::string> names = {"two words.mp4", "Büro 3.mp4", "100%.mp4",
                                      "%20%41.mp4",    "a#b.mp4",    "without ending",
                                      "file.mp4",      "a&b'c.mp4",  "in a folder/of ours.mp4"};
    if (!platform::kIsWindows) {
        names.insert(names.end(),
                     {"東京.mp4", "a?b=c&d.mp4", "a:b.mp4", "archive?speed=2.mp4", "a \"quoted\" name.mp4"});
    }
    return names;
}

INSTANTIATE_TEST_SUITE_P(Names, LocalFileNamed, testing::ValuesIn(fileNames()));

TEST_F(LocalFile, IsFoundByABareName) {
    for (const char* name : {"file.mp4", "file 2#.mp4", "files/a.mp4"}) {
        const std::filesystem::path path = folder_.path() / name;
        std::filesystem::create_directories(path.parent_path());
        convert(encodedFile(shortClip()), {"-c", "copy"}, path);
        const platform::CurrentFolder inFolder(folder_.path());
        Session session;
        play(session, name);
        expectPictures(session, kFirstNumber, kFrames, 320, 180);
    }
}

TEST_F(LocalFile, BelowTheWorkersFolderGoesBeforeTheRoot) {
    std::filesystem::create_directories(folder_ / "tmp");
    convert(encodedFile(shortClip()), {"-c", "copy"}, folder_ / "tmp/relative.mp4");
    const platform::CurrentFolder inFolder(folder_.path());
    Session session;
    play(session, "file:///tmp/relative.mp4");
    expectPictures(session, kFirstNumber, kFrames, 320, 180);
}

TEST_F(LocalFile, WithABareNameThatIsMissingIsReported) {
    Session session;
    play(session, "file-that-is-not-there.mp4");
    EXPECT_TRUE(session.hasLine("couldn't open file file-that-is-not-there.mp4 : No such file or directory"))
        << session.logText();
}

TEST_F(LocalFile, WithQuotesAndBackslashesInItsNameIsReportedAsItWasGiven) {
    const std::string name = R"(file "of\" 50 % 'more' & ^more\\)";
    Session session;
    play(session, name);
    EXPECT_TRUE(session.hasLineBeginning("couldn't open file " + name + " : ")) << session.logText();
}

TEST_F(LocalFile, CanBePausedAndGoesOn) {
    ClipSpec spec = shortClip();
    spec.frames = 60;
    Session session;
    session.start(fileUrl(encodedFile(spec)));
    ASSERT_TRUE(session.waitForFrames(5)) << session.logText();
    session.worker().pause();
    ASSERT_TRUE(session.waitForLine("ko_player::Player::setPause: paused: 1")) << session.logText();
    session.listen(100ms * kSlowness);
    const std::size_t shown = session.shown().size();
    session.listen(1500ms);
    EXPECT_EQ(session.shown().size(), shown); // and no time-out
    session.worker().resume();
    ASSERT_EQ(session.waitForExit(), kFrameTimeout) << session.logText();
    EXPECT_EQ(session.shown().size(), 60U);
}

TEST_F(LocalFile, EndsWithZeroWhenTheParentGoes) {
    // More than the packet channel holds, so that the reader waits for the pictures.
    ClipSpec spec = shortClip();
    spec.widthPx = 1280;
    spec.heightPx = 720;
    spec.frames = 100;
    spec.noise = 64;
    spec.crf = 8;
    const auto path = encodedFile(spec);
    ASSERT_GT(std::filesystem::file_size(path), 0x800000U + 100000);
    Session session;
    session.start(fileUrl(path));
    ASSERT_TRUE(session.waitForFrames(3)) << session.logText();
    const auto left = Clock::now();
    session.worker().disconnectLink();
    ASSERT_EQ(session.waitForExit(), 0) << session.logText();
    EXPECT_LT(*session.endedAt() - left, 1s * kSlowness);
}

} // namespace
} // namespace mediaworker::test
