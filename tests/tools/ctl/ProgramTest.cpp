#include "CtlProgram.h"

#include "support/servers/ProxyServer.h"

namespace mediaworker::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

TEST_F(CtlPlay, TellsHowAStreamGoes) {
    ASSERT_EQ(run({"play", server_.url("/long.flv"), "--seconds", "2.5"}), kDone) << errors();
    const auto told = lines(output());
    ASSERT_GE(told.size(), 5U) << output();
    EXPECT_THAT(told[0], ContainsPattern("^worker [0-9]+ is connected$"));
    EXPECT_THAT(told[1], ContainsPattern("^first picture after [0-9.]+ s$"));
    EXPECT_THAT(told[2], ContainsPattern(
                             "^  frames +[0-9]+   fps +[0-9]+   position +[0-9.]+ s   delay +-?[0-9.]+ s"));
    EXPECT_THAT(told.back(), ContainsPattern("^pictures: [0-9]+ of 320x180 in [0-9.]+ s \\([0-9.]+ fps\\), "
                                             "interval median [0-9.]+ ms, longest [0-9.]+ ms$"));
    EXPECT_EQ(errors(), "");
}

TEST_F(CtlPlay, SpeaksJson) {
    ASSERT_EQ(run({"play", server_.url("/long.flv"), "--seconds", "2.5", "--json"}), kDone) << errors();
    const auto all = events();
    std::vector<std::string> kinds;
    kinds.reserve(all.size());
    for (const QJsonObject& event : all) {
        kinds.push_back(textOf(event, "event"));
    }
    ASSERT_GE(kinds.size(), 5U) << output();
    EXPECT_EQ(kinds[0], "connected");
    EXPECT_EQ(kinds[1], "firstPicture");
    EXPECT_THAT(std::vector(kinds.begin() + 2, kinds.end() - 1), Each("progress"));
    EXPECT_EQ(kinds.back(), "ended");
    EXPECT_GT(intOf(all[0], "pid"), 0);
    EXPECT_EQ(intOf(all[1], "width"), 320);
    EXPECT_EQ(intOf(all[1], "height"), 180);
    EXPECT_GE(intOf(all[1], "afterMs"), 0);
    EXPECT_EQ(textOf(all[3], "state"), "playing");
    EXPECT_GT(intOf(all[3], "frames"), intOf(all[2], "frames"));
    EXPECT_GT(intOf(all[3], "positionMs"), intOf(all[2], "positionMs"));
    EXPECT_TRUE(all[3][QStringLiteral("fps")].isDouble());
    EXPECT_TRUE(all[3][QStringLiteral("delayMs")].isDouble());
    const QJsonObject& end = all.back();
    EXPECT_TRUE(end[QStringLiteral("ok")].toBool());
    EXPECT_EQ(intOf(end, "exitCode"), 0);
    EXPECT_GE(intOf(end, "frames"), intOf(all[3], "frames"));
    EXPECT_GT(end[QStringLiteral("seconds")].toDouble(), 2.0);
    EXPECT_LT(end[QStringLiteral("seconds")].toDouble(), 3.5);
    EXPECT_GT(end[QStringLiteral("intervalMedianMs")].toDouble(), 10);
}

TEST_F(CtlPlay, SavesPictures) {
    ASSERT_EQ(run({"play", server_.url("/clip.flv"), "--snapshots", pictures_.string(), "--every", "0.48",
                   "--json"}),
              kDone)
        << errors();
    EXPECT_THAT(filesIn(pictures_), ElementsAre("picture-0001-at-0-ms.png", "picture-0002-at-480-ms.png",
                                                "picture-0003-at-960-ms.png", "picture-0004-at-1440-ms.png",
                                                "picture-0005-at-1920-ms.png"));
    const auto saved = events("snapshot");
    ASSERT_EQ(saved.size(), 5U);
    for (const QJsonObject& event : saved) {
        expectPicture(textOf(event, "file"), intOf(event, "positionMs"));
    }
    EXPECT_EQ(intOf(events("ended").at(0), "snapshots"), 5);
}

TEST_F(CtlPlay, SavesAPictureEachSecondUnlessToldOtherwise) {
    ASSERT_EQ(run({"play", server_.url("/clip.flv"), "--snapshots", pictures_.string()}), kDone) << errors();
    EXPECT_THAT(filesIn(pictures_), ElementsAre("picture-0001-at-0-ms.png", "picture-0002-at-1000-ms.png"));
    EXPECT_THAT(output(),
                HasSubstr("saved " + (pictures_ / "picture-0002-at-1000-ms.png").generic_string() + "\n"));
}

TEST_F(CtlPlay, FailsWhenPicturesCannotBeSaved) {
    writeFile(folder_ / "file", "");
    EXPECT_EQ(run({"play", server_.url("/long.flv"), "--snapshots", (folder_ / "file/pictures").string()}),
              kNotDone);
    EXPECT_THAT(errors(), HasSubstr("cannot make the folder"));
    std::filesystem::create_directories(pictures_ / "picture-0001-at-0-ms.png");
    EXPECT_EQ(run({"play", server_.url("/long.flv"), "--snapshots", pictures_.string()}), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("cannot save "));
}

TEST_F(CtlPlay, PlaysAFileByItsPath) {
    const std::string file = encodedFile(clip_.spec).string();
    ASSERT_EQ(run({"play", file, "--snapshots", pictures_.string(), "--json"}), kDone) << errors();
    EXPECT_EQ(intOf(events("ended").at(0), "exitCode"), 2);
    EXPECT_GE(intOf(events("ended").at(0), "frames"), 49);
    expectPicture(pictures_ / "picture-0001-at-0-ms.png", 0);
    ASSERT_EQ(run({"play", platform::fileUrl(file), "--seconds", "1"}), kDone) << errors();
}

TEST_F(CtlPlay, GoesThroughAProxy) {
    const ProxyServer proxy(ProxyServer::Kind::Http, {{"camera.invalid", server_.port()}});
    const ProxyServer socks(ProxyServer::Kind::Socks5, {{"camera.invalid", server_.port()}});
    EXPECT_EQ(run({"play", "http://camera.invalid/long.flv", "--seconds", "0.2", "--proxy", proxy.url()}),
              kDone)
        << errors();
    EXPECT_EQ(run({"play", "http://camera.invalid/long.flv", "--seconds", "0.2", "--proxy", socks.url(),
                   "--proxy-type", "socks5"}),
              kDone)
        << errors();
    EXPECT_EQ(proxy.requests().size(), 1U);
    EXPECT_EQ(socks.requests().size(), 1U);
}

TEST_F(CtlPlay, AStreamThatEndsTooSoonIsAFailure) {
    EXPECT_EQ(run({"play", server_.url("/clip.flv"), "--seconds", "30", "--json"}), kNotDone);
    EXPECT_THAT(errors(),
                AllOf(ContainsPattern("^mediaworker-ctl: the pictures ended after [12]\\.[0-9] of 30 "
                                      "seconds: the server ended the stream"),
                      HasSubstr("(exit code 3)"), HasSubstr("its last words:\n")));
    const QJsonObject end = events("ended").at(0);
    EXPECT_FALSE(end[QStringLiteral("ok")].toBool());
    EXPECT_EQ(intOf(end, "exitCode"), 3);
    EXPECT_THAT(textOf(end, "problem"), HasSubstr("the pictures ended after"));
}

TEST_F(CtlPlay, AnErrorOfTheServerIsAFailure) {
    EXPECT_EQ(run({"play", server_.url("/nothing.flv")}), kNotDone);
    EXPECT_THAT(errors(),
                AllOf(StartsWith("mediaworker-ctl: no picture was shown: the server answered 404 Error "
                                 "(exit code 3)\n"),
                      HasSubstr("http reader finished")));
}

TEST_F(CtlPlay, AFileThatIsNotThereIsAFailure) {
    EXPECT_EQ(run({"play", (folder_ / "none.mp4").string()}), kNotDone);
    EXPECT_THAT(errors(), AllOf(HasSubstr("(exit code 2)"), HasSubstr("couldn't open file")));
}

TEST_F(CtlPlay, AMissingWorkerIsAFailure) {
    EXPECT_EQ(run({"play", server_.url("/clip.flv"), "--worker", "/nowhere/worker", "--json"}), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("the worker cannot be started: "));
    EXPECT_FALSE(events("ended").at(0).contains(QStringLiteral("exitCode")));
}

// What looks like a URL is a script for the worker's stand-in.
TEST_F(CtlPlay, TellsTheLastWordsOfAWorker) {
    EXPECT_EQ(run({"play", "http://h/;connect;hello;log:one;log:two;log:three;log:four;exit:4", "--worker",
                   FAKE_WORKER}),
              kNotDone);
    EXPECT_THAT(errors(), HasSubstr("could not be decoded (exit code 4)\n"
                                    "  its last words:\n    two\n    three\n    four\n"));
}

TEST_F(CtlPlay, AWorkerThatDoesNotEndIsAFailure) {
    EXPECT_EQ(run({"play", "http://h/;connect;hello;picture:16x8;send:0108000000000000000000;wait:60000",
                   "--seconds", "0.1", "--worker", FAKE_WORKER}),
              kNotDone);
    EXPECT_THAT(errors(), HasSubstr("the worker does not end"));
    EXPECT_THAT(output(), HasSubstr("pictures: 1 of 16x8\n"));
}

TEST_F(CtlPlay, AWorkerThatNeverConnectsIsAFailure) {
    EXPECT_EQ(run({"play", "http://h/;log:asleep;wait:60000", "--worker", FAKE_WORKER, "--json"}), kNotDone);
    EXPECT_EQ(errors(),
              "mediaworker-ctl: the worker did not connect; the worker's last words:\n    asleep\n");
    EXPECT_FALSE(events("ended").at(0).contains(QStringLiteral("exitCode")));
}

TEST_F(CtlPlay, GarbageOfAWorkerIsSurvived) {
    for (const std::string seed : {"1", "2", "3"}) {
        // An unknown type, a frame without data, a command, and then no packets at all.
        EXPECT_EQ(run({"play",
                       "http://h/;connect;hello;send:c80200ffff;send:010000060000;garbage:" + seed +
                           ";log:all said;exit:4",
                       "--worker", FAKE_WORKER}),
                  kNotDone);
        EXPECT_THAT(errors(), HasSubstr("(exit code 4)\n  its last words:\n    all said\n")) << seed;
    }
}

TEST_F(CtlProgram, RefusesWrongUsage) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {},
             {"watch"},
             {"play"},
             {"play", "rtmp://camera/live"},
             {"play", "http://h/", "--every", "2"},
             {"play", "http://h/", "--volume", "200"},
             {"play", "http://h/", "--seconds", "0"},
             {"play", "http://h/", "--nonsense"},
             {"play", "http://h/", "--flv", "loose"},
             {"play", "http://h/", "--low-latency=yes"},
             {"export", "http://h/", "out.mp4", "--duration", "1", "--flv", ""},
             {"export", "http://h/", "out.mp4", "--duration", "1", "--no-sync"},
             {"export", "http://h/", "out.flv"},
             {"export", "http://h/", "--duration", "1"},
             {"export", "file:///a.flv", "out.mp4", "--duration", "1"},
         }) {
        EXPECT_EQ(run(arguments), kWrongUsage) << testing::PrintToString(arguments);
        EXPECT_THAT(errors(), ContainsPattern("^mediaworker-ctl: .+\nTry: mediaworker-ctl .*--help\n$"));
        EXPECT_EQ(output(), "");
    }
}

TEST_F(CtlProgram, HelpsAndTellsItsVersion) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"help"},
                                                                       {"--help"},
                                                                       {"play", "--help"},
                                                                       {"help", "play"},
                                                                       {"export", "--help"},
                                                                       {"help", "export"}}) {
        EXPECT_EQ(run(arguments), kDone) << testing::PrintToString(arguments);
        EXPECT_THAT(output(), StartsWith("Usage: mediaworker-ctl "));
        EXPECT_EQ(errors(), "");
    }
    EXPECT_EQ(run({"--version"}), kDone);
    EXPECT_THAT(output(), ContainsPattern("^mediaworker-ctl [0-9.]+\n$"));
}

TEST_F(CtlExport, RecordsAFile) {
    ASSERT_EQ(run({"export", server_.url("/fast.flv"), file_.generic_string(), "--duration", "2"}), kDone)
        << errors();
    EXPECT_THAT(files(), ElementsAre("film.mp4"));
    EXPECT_THAT(probe(), ElementsAre("codec_name=h264|nb_read_packets=50",
                                     StartsWith("codec_name=aac|nb_read_packets=")));
    EXPECT_EQ(lines(output()).back(), "exported: " + file_.generic_string() + " (" +
                                          std::to_string(std::filesystem::file_size(file_)) +
                                          " bytes, 2.0 s)");
    EXPECT_EQ(errors(), "");
}

TEST_F(CtlExport, TellsItsProgressInLines) {
    ASSERT_EQ(run({"export", server_.url("/clip.flv"), file_.generic_string(), "--duration", "2"}), kDone)
        << errors();
    int progressLines = 0;
    for (const std::string& line : lines(output())) {
        progressLines +=
            testing::Matches(ContainsPattern("^  exported +[0-9]+ %   after [0-9.]+ s$"))(line) ? 1 : 0;
    }
    EXPECT_GE(progressLines, 1) << output();
    EXPECT_THAT(output(), HasSubstr("  exported  98 %   after"));
    EXPECT_THAT(output(), Not(HasSubstr("\r")));
}

TEST_F(CtlExport, SpeaksJson) {
    ASSERT_EQ(run({"export", server_.url("/clip.flv"), file_.generic_string(), "--duration", "2", "--json"}),
              kDone)
        << errors();
    ASSERT_GE(events("progress").size(), 1U);
    EXPECT_EQ(intOf(events("progress").back(), "percent"), 98);
    const QJsonObject end = events("ended").at(0);
    EXPECT_TRUE(end[QStringLiteral("ok")].toBool());
    EXPECT_EQ(textOf(end, "file"), file_.generic_string());
    EXPECT_EQ(intOf(end, "bytes"), static_cast<int>(std::filesystem::file_size(file_)));
    EXPECT_EQ(intOf(end, "exitCode"), 0);
    EXPECT_EQ(intOf(end, "recordedMs"), 2000);
    EXPECT_EQ(intOf(end, "percentOfAsked"), 100);
    EXPECT_EQ(end[QStringLiteral("tracks")].toArray(), (QJsonArray{"video", "sound"}));
    EXPECT_FALSE(end[QStringLiteral("isCutShort")].toBool());
}

TEST_F(CtlExport, IsAsLongAsItWasToBe) {
    FlvOptions minutes;
    minutes.repeats = 60;
    server_.route("/minutes.flv", pacedHandler(makeFlv(clip_, minutes), {.speed = 0, .staysOpen = true}));
    ASSERT_EQ(
        run({"export", server_.url("/minutes.flv"), file_.generic_string(), "--duration", "5", "--json"}),
        kDone)
        << errors();
    EXPECT_EQ(intOf(events("progress").back(), "percent"), 100);
    EXPECT_EQ(intOf(events("ended").at(0), "recordedMs"), 5000);
    EXPECT_EQ(probe().at(0), "codec_name=h264|nb_read_packets=125");
}

TEST_F(CtlExport, TwoIntoOneFileAreBothWhole) {
    start({"export", server_.url("/clip.flv"), file_.generic_string(), "--duration", "2"});
    ASSERT_TRUE(eventually([&] { return files().size() == 1; }));
    ChildProcess second({.command = {MEDIAWORKER_CTL, "export", server_.url("/clip.flv"),
                                     file_.generic_string(), "--duration", "2"},
                         .environment = environment_,
                         .output = folder_ / "output2",
                         .errors = folder_ / "errors2"});
    ASSERT_TRUE(eventually([&] { return files().size() == 2; }));
    EXPECT_THAT(files(), ElementsAre("film.partial-2.mp4", "film.partial.mp4"));
    EXPECT_EQ(finish(), kDone) << errors();
    EXPECT_EQ(second.waitFor(std::chrono::seconds(60)), kDone) << readText(folder_ / "errors2");
    EXPECT_THAT(files(), ElementsAre("film.mp4"));
    EXPECT_EQ(probe().at(0), "codec_name=h264|nb_read_packets=50");
}

TEST_F(CtlExport, ReplacesNothingWhenItIsToldSo) {
    writeFile(file_, "an older film");
    EXPECT_EQ(
        run({"export", server_.url("/fast.flv"), file_.generic_string(), "--duration", "2", "--no-clobber"}),
        kNotDone);
    EXPECT_EQ(errors(), "mediaworker-ctl: " + file_.generic_string() + " exists\n");
    EXPECT_EQ(readFile(file_), "an older film");
    EXPECT_THAT(files(), ElementsAre("film.mp4"));

    // One that comes while it records.
    std::filesystem::remove(file_);
    start({"export", server_.url("/clip.flv"), file_.generic_string(), "--duration", "2", "--no-clobber"});
    ASSERT_TRUE(eventually([&] { return files().size() == 1; }));
    writeFile(file_, "a newer film");
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("; the recording is "));
    EXPECT_EQ(readFile(file_), "a newer film");
    EXPECT_THAT(files(), ElementsAre("film.mp4", "film.partial.mp4"));
}

TEST_F(CtlExport, WritesIntoNoFolderThatIsNotThere) {
    EXPECT_EQ(run({"export", server_.url("/fast.flv"), (folder_ / "nothing/film.mp4").string()}), kNotDone);
    EXPECT_THAT(errors(), StartsWith("mediaworker-ctl: cannot write into "));
}

TEST_F(CtlExport, ReplacesAnOlderFile) {
    writeFile(file_, "an older film");
    writeFile(file_.parent_path() / "film.partial.mp4", "left by an accident");
    ASSERT_EQ(run({"export", server_.url("/fast.flv"), file_.generic_string(), "--duration", "2"}), kDone)
        << errors();
    EXPECT_THAT(files(), ElementsAre("film.mp4", "film.partial.mp4"));
    EXPECT_EQ(readFile(file_.parent_path() / "film.partial.mp4"), "left by an accident") << "not ours";
    EXPECT_EQ(probe().size(), 2U);
}

TEST_F(CtlExport, SoundThatAnMp4FileCannotHoldIsAFailure) {
    server_.route("/g711.flv", pacedHandler(makeFlv(clip(AudioCodec::ALaw)), {.speed = 0}));
    writeFile(file_, "an older film");
    EXPECT_EQ(run({"export", server_.url("/g711.flv"), file_.generic_string(), "--duration", "2", "--flv",
                   "strict", "--json"}),
              kNotDone);
    EXPECT_THAT(errors(), AllOf(StartsWith("mediaworker-ctl: the export failed: "),
                                HasSubstr("(exit code 1)"), HasSubstr("Muxer.writeHeader")));
    EXPECT_THAT(files(), ElementsAre("film.mp4"));
    EXPECT_EQ(readFile(file_), "an older film");
    EXPECT_FALSE(events("ended").at(0)[QStringLiteral("ok")].toBool());
    EXPECT_EQ(intOf(events("ended").at(0), "exitCode"), 1);
}

TEST_F(CtlExport, AnErrorOfTheServerIsAFailure) {
    EXPECT_EQ(run({"export", server_.url("/nothing.flv"), file_.generic_string(), "--duration", "2"}),
              kNotDone);
    EXPECT_THAT(errors(),
                AllOf(StartsWith("mediaworker-ctl: the export failed: "), HasSubstr("(exit code 1)")));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(CtlExport, AFolderIsNoFile) {
    std::filesystem::create_directory(file_);
    EXPECT_EQ(run({"export", server_.url("/fast.flv"), file_.string(), "--duration", "2"}), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("is a folder"));
}

TEST_F(CtlExport, OfAStreamThatStandsStillKeepsWhatCame) {
    server_.route("/stalls.flv", pacedHandler(pieces_, {.speed = 0, .staysOpen = true}));
    EXPECT_EQ(run({"export", server_.url("/stalls.flv"), file_.generic_string(), "--duration", "4",
                   "--timeout", "1"}),
              kCutShort);
    EXPECT_EQ(errors(), "");
    EXPECT_EQ(lines(output()).back(), "the file is complete, but shorter than the 4.0 s that were asked for");
    EXPECT_THAT(files(), ElementsAre("film.mp4"));
    EXPECT_EQ(probe().at(0), "codec_name=h264|nb_read_packets=50");

    EXPECT_EQ(run({"export", server_.url("/silent.flv"), file_.generic_string(), "--duration", "4",
                   "--timeout", "1"}),
              kNotDone);
    EXPECT_EQ(errors(), "mediaworker-ctl: the export stands still at 0 %, and nothing was recorded\n");
    EXPECT_THAT(files(), ElementsAre("film.mp4"));
}

TEST_F(CtlExport, AWorkerThatNeverConnectsIsAFailure) {
    EXPECT_EQ(run({"export", "http://h/;wait:60000", file_.generic_string(), "--duration", "4", "--worker",
                   FAKE_WORKER}),
              kNotDone);
    EXPECT_EQ(errors(), "mediaworker-ctl: the worker did not connect\n");
    EXPECT_THAT(files(), IsEmpty());
}

} // namespace
} // namespace mediaworker::test
