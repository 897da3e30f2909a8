#include "parent/WorkerFindings.h"

#include <gtest/gtest.h>

#include <vector>

using mediaworker::parent::WorkerFindings;

namespace {

constexpr bool kWanted = true;

struct Row {
    const char* line;
    bool isSoundWanted;
    std::optional<int> httpStatus = {};
    const char* httpReason = "";
    const char* networkError = "";
    const char* networkErrorText = "";
    const char* pictures = "";
    const char* sound = "";
};

TEST(WorkerFindings, ReadTheLinesThatTellOfProblems) {
    for (const Row& row : {
             Row{"", kWanted},
             Row{"http reader finished", kWanted},
             Row{"http failed: status 404 Not Found", false, 404, "Not Found"},
             Row{"http failed: status 404", false, 404},
             Row{"http failed: status 404  two  blanks", false, 404, " two  blanks"},
             Row{"http failed: status ", false},
             Row{"http failed: status not a number", false},
             Row{"http failed: status 99999999999 x", false},
             Row{"HTTP failed: status 404", false},
             Row{"x http failed: status 404", false},
             Row{"http failed: network: HostNotFoundError: Host a:b not found",
                 false,
                 {},
                 "",
                 "HostNotFoundError",
                 "Host a:b not found"},
             Row{"http failed: network: TimeoutError:", false, {}, "", "TimeoutError", ""},
             Row{"http failed: network: ", false},
             Row{"pictures unavailable: vp6: no decoder", false, {}, "", "", "", "vp6: no decoder"},
             Row{"sound unavailable: codec 6: none", false, {}, "", "", "", "", "codec 6: none"},
             Row{"sound unavailable: a\tb\x1b[2J", false, {}, "", "", "", "", "a?b?[2J"},
             Row{"Failed to create audio output", kWanted, {}, "", "", "", "", "no sound device"},
             Row{"Failed to create audio output", false},
             Row{"Trying to start audio device: an error occurred opening the audio device", kWanted},
             Row{"ko_player::AudioPipeline::getOutParams: outHandler.onAudioParams return false",
                 kWanted,
                 {},
                 "",
                 "",
                 "",
                 "",
                 "no sound device"},
             Row{"ko_player::AudioPipeline::getOutParams: outHandler.onAudioParams return false", false},
             Row{"Trying to start audio device: audio device has been sucessfully started", kWanted},
         }) {
        SCOPED_TRACE(row.line);
        WorkerFindings findings;
        findings.take(QString::fromUtf8(row.line), row.isSoundWanted);
        EXPECT_EQ(findings.httpStatus, row.httpStatus);
        EXPECT_EQ(findings.httpReason.toStdString(), row.httpReason);
        EXPECT_EQ(findings.networkError.toStdString(), row.networkError);
        EXPECT_EQ(findings.networkErrorText.toStdString(), row.networkErrorText);
        EXPECT_EQ(findings.picturesUnavailable.toStdString(), row.pictures);
        EXPECT_EQ(findings.soundUnavailable.toStdString(), row.sound);
        EXPECT_EQ(findings.isResponseFailed(), row.httpStatus || *row.networkError != '\0');
    }
}

// Before the stream's sound is known no device opens, and the worker tries again by itself.
TEST(WorkerFindings, KnowWhichAttemptAtADeviceIsTheLast) {
    const char* const failed = "Trying to start audio device: an error occurred opening the audio device";
    const char* const started = "Trying to start audio device: audio device has been sucessfully started";
    const char* const known = "ko_player::AudioPipeline::open: AudioPipeline has been openned";
    const char* const refused =
        "ko_player::AudioPipeline::getOutParams: outHandler.onAudioParams return false";
    struct Sequence {
        std::vector<const char*> lines;
        const char* sound;
    };
    for (const Sequence& row : std::vector<Sequence>{
             {{failed}, ""},
             {{failed, started, known}, ""},
             {{failed, failed, refused}, "no sound device"},
             {{known, failed}, "no sound device"},
             {{known, "Trying to start audio device: "}, "no sound device"},
             {{known, failed, started}, ""},
             {{"sound unavailable: x", started}, "x"},
         }) {
        WorkerFindings findings;
        for (const char* line : row.lines) {
            findings.take(QString::fromUtf8(line), kWanted);
        }
        EXPECT_EQ(findings.soundUnavailable.toStdString(), row.sound) << testing::PrintToString(row.lines);
    }
}

TEST(WorkerFindings, KeepWhatOtherLinesDoNotTouch) {
    WorkerFindings findings;
    for (const char* line : {"sound unavailable: x", "http failed: status 404 Not Found",
                             "pictures unavailable: y", "http reader finished", "sound unavailable: later",
                             "pictures unavailable: later", "Failed to create audio output"}) {
        findings.take(QString::fromUtf8(line), kWanted);
    }
    EXPECT_EQ(findings.httpStatus, 404);
    EXPECT_EQ(findings.soundUnavailable, QStringLiteral("x"));
    EXPECT_EQ(findings.picturesUnavailable, QStringLiteral("y"));
}

TEST(WorkerFindings, AreBounded) {
    const QString longText(100'000, u'x');
    for (const char* begin : {"http failed: status 404 ", "http failed: network: ",
                              "http failed: network: E: ", "pictures unavailable: ", "sound unavailable: "}) {
        WorkerFindings findings;
        findings.take(QString::fromUtf8(begin) + longText, false);
        for (const QString& text : {findings.httpReason, findings.networkError, findings.networkErrorText,
                                    findings.picturesUnavailable, findings.soundUnavailable}) {
            EXPECT_LE(text.size(), 300);
        }
    }
}

TEST(WorkerFindings, ReadWhatWasRecorded) {
    struct Recorded {
        const char* line;
        std::optional<qint64> lengthMs;
        bool hasSound;
    };
    for (const Recorded& row : {
             Recorded{"recorded: 5000 ms, with sound", 5000, true},
             Recorded{"recorded: 86400000 ms, without sound", 86400000, false},
             Recorded{"recorded: ", {}, false},
             Recorded{"recorded: much, with sound", {}, true},
             Recorded{"x recorded: 5000 ms, with sound", {}, false},
         }) {
        WorkerFindings findings;
        findings.take(QString::fromLatin1(row.line), false);
        EXPECT_EQ(findings.recordedMs, row.lengthMs) << row.line;
        EXPECT_EQ(findings.hasRecordedSound, row.hasSound) << row.line;
    }
}

} // namespace
