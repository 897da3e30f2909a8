#include "tools/ctl/Report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>

using namespace mediaworker::ctl;
using namespace std::chrono_literals;
using mediaworker::parent::PlaybackState;

namespace {

PlaySummary summary() {
    return {.frames = 151,
            .size = QSize(1280, 720),
            .watched = 6s,
            .intervalMedianMs = 40.0,
            .intervalLongestMs = 51.2,
            .delayMs = 3,
            .snapshots = 6};
}

} // namespace

TEST(CtlReport, SpeaksToPeople) {
    struct Row {
        Event event;
        const char* text;
    };
    for (const Row& row : {
             Row{Connected{4711}, "worker 4711 is connected"},
             Row{FirstPicture{102ms, QSize(1280, 720), 0}, "first picture after 0.10 s"},
             Row{Reconnecting{QStringLiteral("the server answered 404 Not Found"), 4000ms, 3},
                 "the server answered 404 Not Found; again in 4.0 s"},
             Row{PlayProgress{PlaybackState::Playing, 143, 25, 5680, 4, {}},
                 "  frames   143   fps  25   position    5.68 s   delay   0.00 s"},
             Row{PlayProgress{PlaybackState::Playing, 143, 25, 5680, -4, {}},
                 "  frames   143   fps  25   position    5.68 s   delay   0.00 s"},
             Row{PlayProgress{PlaybackState::Buffering, 143, 0, 5680, 1500, {}},
                 "  frames   143   fps   0   position    5.68 s   delay   1.50 s   buffering"},
             Row{PlayProgress{PlaybackState::Playing, 123456, 60, 1400000000000, -40, {}},
                 "  frames 123456   fps  60   position 1400000000.00 s   delay  -0.04 s"},
             Row{Snapshot{QStringLiteral("/a/b.png"), 40}, "saved /a/b.png"},
             Row{SoundUnavailable{QStringLiteral("x: y")}, "no sound: x: y"},
             Row{Ended{
                     ExportSummary{QStringLiteral("/a.mp4"), 9, 2s}, {}, 0, {}, {}, {}, QStringLiteral("r")},
                 "exported: /a.mp4 (9 bytes)\nr"},
             Row{Ended{ExportSummary{}, QStringLiteral("x"), 1, {}, {}, {}, QStringLiteral("r")}, ""},
             Row{ExportProgress{7, 2240ms}, "  exported   7 %   after 2.2 s"},
             Row{ExportProgress{100, 61s}, "  exported 100 %   after 61.0 s"},
             Row{Ended{summary(), {}, 0, {}},
                 "pictures: 151 of 1280x720 in 6.0 s (25.0 fps), interval median 40.0 ms, longest 51.2 ms"},
             Row{Ended{PlaySummary{.frames = 1, .size = QSize(2, 4)}, {}, 3, {}}, "pictures: 1 of 2x4"},
             Row{Ended{PlaySummary{}, QStringLiteral("x"), 3, {}}, ""},
             Row{Ended{ExportSummary{QStringLiteral("/a.mp4"), 262083, 2s}, {}, 0, {}},
                 "exported: /a.mp4 (262083 bytes)"},
             Row{Ended{ExportSummary{QStringLiteral("/a.mp4"), 9, 2s, 5s, 4960, true}, {}, 0, {}},
                 "exported: /a.mp4 (9 bytes, 5.0 s)"},
             Row{Ended{ExportSummary{QStringLiteral("/a.mp4"), 9, 2s, 60s, 4800, false, true}, {}, 0, {}},
                 "exported: /a.mp4 (9 bytes, 4.8 s, without sound)\n"
                 "the file is complete, but shorter than the 60.0 s that were asked for"},
             Row{Ended{ExportSummary{QStringLiteral("/a.mp4"), 9, 2s, 0s, 4800, true, true}, {}, 0, {}},
                 "exported: /a.mp4 (9 bytes, 4.8 s)\n"
                 "the file is complete, but the stream ended before it was stopped"},
             Row{ExportProgress{{}, 61s}, "  recording after 61.0 s"},
             Row{Ended{ExportSummary{}, QStringLiteral("x"), 1, {}}, ""},
         }) {
        EXPECT_EQ(toText(row.event, ProgressForm::Line).toStdString(), row.text);
    }
}

TEST(CtlReport, DrawsABar) {
    struct Row {
        int percent;
        const char* text;
    };
    for (const Row& row : {
             Row{0, "  [                                        ]   0 %   after 2.0 s"},
             Row{50, "  [====================                    ]  50 %   after 2.0 s"},
             Row{99, "  [======================================= ]  99 %   after 2.0 s"},
             Row{100, "  [========================================] 100 %   after 2.0 s"},
             Row{101, "  [========================================] 101 %   after 2.0 s"},
             Row{-1, "  [                                        ]  -1 %   after 2.0 s"},
         }) {
        EXPECT_EQ(toText(ExportProgress{row.percent, 2s}, ProgressForm::Bar).toStdString(), row.text);
    }
}

TEST(CtlReport, SpeaksToScripts) {
    struct Row {
        Event event;
        const char* json;
    };
    for (const Row& row : {
             Row{Connected{4711}, R"({"event":"connected","pid":4711})"},
             Row{FirstPicture{102ms, QSize(1280, 720), 40},
                 R"({"event":"firstPicture","afterMs":102,"width":1280,"height":720,"positionMs":40})"},
             Row{PlayProgress{PlaybackState::Buffering, 143, 24, 5680, -4, {}},
                 R"({"event":"progress","state":"buffering","frames":143,"fps":24,"positionMs":5680,
                     "delayMs":-4})"},
             Row{PlayProgress{PlaybackState::Playing, 143, 24, 5680, 0, 1400000000000},
                 R"({"event":"progress","state":"playing","frames":143,"fps":24,"positionMs":5680,
                     "delayMs":0,"absoluteTimeMs":1400000000000})"},
             Row{Snapshot{QString::fromUtf8("/Bü\"ro.png"), 40},
                 R"({"event":"snapshot","file":"/Bü\"ro.png","positionMs":40})"},
             Row{ExportProgress{7, 2240ms}, R"({"event":"progress","percent":7,"elapsedMs":2240})"},
             Row{Ended{summary(), {}, 0, QStringLiteral("r")},
                 R"({"event":"ended","ok":true,"exitCode":0,"reason":"r","frames":151,"width":1280,
                     "height":720,"seconds":6,"fps":25,"intervalMedianMs":40,"intervalLongestMs":51.2,
                     "delayMs":3,"snapshots":6})"},
             Row{Reconnecting{QStringLiteral("x"), 450ms, 2},
                 R"({"afterMs":450,"attempt":2,"event":"reconnecting","reason":"x"})"},
             Row{SoundUnavailable{QStringLiteral("x: y")}, R"({"event":"soundUnavailable","reason":"x: y"})"},
             Row{Ended{PlaySummary{}, QStringLiteral("p"), 3, QStringLiteral("r"),
                       QStringLiteral("httpStatus"), 404, QStringLiteral("not for scripts")},
                 R"({"event":"ended","ok":false,"problem":"p","exitCode":3,"reason":"r","cause":"httpStatus",
                     "httpStatus":404,"frames":0,"snapshots":0})"},
             Row{Ended{PlaySummary{}, QStringLiteral("why\nnot"), {}, {}},
                 R"({"event":"ended","ok":false,"problem":"why\nnot","frames":0,"snapshots":0})"},
             Row{Ended{ExportSummary{QStringLiteral("/a.mp4"), 262083, 2s}, {}, 0, {}},
                 R"({"event":"ended","ok":true,"exitCode":0,"file":"/a.mp4","bytes":262083,
                     "isCutShort":false,"elapsedMs":2000})"},
             Row{Ended{ExportSummary{QStringLiteral("/a.mp4"), 9, 2s, 60s, 4800, true, true}, {}, 0, {}},
                 R"({"event":"ended","ok":true,"exitCode":0,"file":"/a.mp4","bytes":9,"isCutShort":true,
                     "recordedMs":4800,"tracks":["video","sound"],"percentOfAsked":8,"elapsedMs":2000})"},
             Row{Ended{ExportSummary{QStringLiteral("/a.mp4"), 9, 2s, 0s, 4800, false, false}, {}, 0, {}},
                 R"({"event":"ended","ok":true,"exitCode":0,"file":"/a.mp4","bytes":9,"isCutShort":false,
                     "recordedMs":4800,"tracks":["video"],"elapsedMs":2000})"},
             Row{ExportProgress{{}, 2s}, R"({"event":"progress","elapsedMs":2000})"},
             Row{Ended{ExportSummary{{}, 0, 2s}, QStringLiteral("x"), 1, {}},
                 R"({"event":"ended","ok":false,"problem":"x","exitCode":1,"elapsedMs":2000})"},
         }) {
        const QByteArray json = toJson(row.event);
        EXPECT_FALSE(json.contains('\n')) << json.toStdString();
        const QJsonDocument expected = QJsonDocument::fromJson(row.json);
        ASSERT_FALSE(expected.isNull()) << row.json;
        EXPECT_EQ(QJsonDocument::fromJson(json), expected) << json.toStdString() << "\n"
                                                           << expected.toJson().toStdString();
    }
}

TEST(CtlReport, KnowsWhatIsWrittenOver) {
    EXPECT_TRUE(isProgress(PlayProgress{}));
    EXPECT_TRUE(isProgress(ExportProgress{}));
    EXPECT_FALSE(isProgress(Connected{}));
    EXPECT_FALSE(isProgress(Snapshot{}));
    EXPECT_FALSE(isProgress(Ended{}));
}
