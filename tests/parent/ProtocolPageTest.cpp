#include "parent/ExitReason.h"
#include "parent/FrameChannel.h"
#include "parent/Job.h"
#include "parent/Message.h"
#include "parent/MessageReader.h"
#include "records/Options.h"

#include <QFile>
#include <QRegularExpression>
#include <QStringList>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <vector>

using namespace mediaworker::parent;

namespace {

/// The numbers of a text in the order in which they stand; commas group digits.
std::vector<qint64> numbersIn(const QString& text) {
    static const QRegularExpression number(QStringLiteral("-?[0-9][0-9,]*"));
    std::vector<qint64> found;
    for (auto match = number.globalMatch(text); match.hasNext();) {
        found.push_back(match.next().captured().remove(u',').toLongLong());
    }
    return found;
}

/// A packet as the page shows it, and what it says there about it.
struct Example {
    QByteArray packet;
    QString words;
};

QString textOf(const char* path) {
    QFile file(QString::fromUtf8(path));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QString::fromUtf8(file.readAll());
}

QString page() {
    return textOf(PROTOCOL_PAGE);
}

/// What the first group of an expression, which knows of lines, finds everywhere in a text.
std::set<QString> found(const QString& text, const QString& expression) {
    const QRegularExpression pattern(expression, QRegularExpression::MultilineOption);
    std::set<QString> result;
    for (auto match = pattern.globalMatch(text); match.hasNext();) {
        result.insert(match.next().captured(1));
    }
    return result;
}

/// An option as the page's table has it: "flv=strict".
struct PageOption {
    QString text;
    bool isDefault;
};

std::vector<PageOption> pageOptions() {
    static const QRegularExpression row(QStringLiteral("^\\| `([a-z]+=[a-z]+)`( \\(default\\))? \\|"),
                                        QRegularExpression::MultilineOption);
    std::vector<PageOption> options;
    const QString text = page();
    for (auto match = row.globalMatch(text); match.hasNext();) {
        const auto line = match.next();
        options.push_back({line.captured(1), !line.captured(2).isEmpty()});
    }
    return options;
}

/// Lines of code blocks that have words and then at least three bytes, or (in the dialogue) an arrow, bytes
/// and words.
std::vector<Example> examples() {
    static const QRegularExpression list(
        QStringLiteral("^    (\\S.*?)  +((?:[0-9a-f]{2} +){2,}[0-9a-f]{2})$"),
        QRegularExpression::MultilineOption);
    static const QRegularExpression dialogue(
        QStringLiteral("^    [<>]  ((?:[0-9a-f]{2} +){2,}[0-9a-f]{2})  +(\\S.*)$"),
        QRegularExpression::MultilineOption);
    const QString text = page();
    std::vector<Example> found;
    for (auto match = list.globalMatch(text); match.hasNext();) {
        const auto line = match.next();
        found.push_back({QByteArray::fromHex(line.captured(2).toLatin1()), line.captured(1)});
    }
    for (auto match = dialogue.globalMatch(text); match.hasNext();) {
        const auto line = match.next();
        found.push_back({QByteArray::fromHex(line.captured(1).toLatin1()), line.captured(2)});
    }
    return found;
}

/// What a worker's message says, in the page's words.
std::optional<Message> messageOf(const QString& words) {
    const std::vector<qint64> n = numbersIn(words);
    if (words.startsWith(QStringLiteral("connected")) && n.size() == 1) {
        return Connected{n[0]};
    }
    if (words.startsWith(QStringLiteral("frame")) && n.size() == 1) {
        return FrameShown{n[0]};
    }
    if (words.startsWith(QStringLiteral("fragment")) && n.size() == 2) {
        return Fragment{n[0], n[1]};
    }
    if (words.startsWith(QStringLiteral("absolute time")) && n.size() == 1) {
        return AbsoluteTime{n[0]};
    }
    if (words.startsWith(QStringLiteral("format"))) {
        return FormatChanged{};
    }
    if (words.startsWith(QStringLiteral("progress")) && n.size() == 1) {
        return Progress{static_cast<int>(n[0])};
    }
    return std::nullopt;
}

/// The packet of a command, in the page's words.
std::optional<QByteArray> commandOf(const QString& words) {
    const std::vector<qint64> n = numbersIn(words);
    if (words.startsWith(QStringLiteral("volume")) && n.size() == 1) {
        return encodeVolume(static_cast<std::uint32_t>(n[0]));
    }
    if (words == QStringLiteral("pause")) {
        return encodePacket(MessageType::Pause);
    }
    if (words == QStringLiteral("resume")) {
        return encodePacket(MessageType::Resume);
    }
    if (words == QStringLiteral("stop audio")) {
        return encodePacket(MessageType::StopAudio);
    }
    if (words == QStringLiteral("finish")) {
        return encodePacket(MessageType::Finish);
    }
    return std::nullopt;
}

TEST(ProtocolPage, ShowsEveryPacketAsItIs) {
    std::set<int> shown;
    for (const Example& example : examples()) {
        SCOPED_TRACE(example.words.toStdString() + ": " + example.packet.toHex(' ').toStdString());
        shown.insert(static_cast<unsigned char>(example.packet[0]));
        if (const auto command = commandOf(example.words)) {
            EXPECT_EQ(*command, example.packet);
            continue;
        }
        const auto message = messageOf(example.words);
        ASSERT_TRUE(message) << "the test does not know these words";
        MessageReader reader;
        reader.feed(example.packet);
        EXPECT_EQ(reader.next(), message);
        EXPECT_EQ(reader.bufferedBytes(), 0);
    }
    EXPECT_THAT(shown, testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
}

TEST(ProtocolPage, ShowsThePacketThatMeansNothing) {
    const QByteArray nothing = QByteArray::fromHex("05010000");
    EXPECT_TRUE(page().contains(QStringLiteral("`05 01 00 00`")));
    EXPECT_EQ(nothing, encodePacket(MessageType::Volume, QByteArray(1, '\0')));
}

TEST(ProtocolPage, ShowsTheNativeNameOfASemaphore) {
    static const QRegularExpression example(
        QStringLiteral("channel `([^`]+)`:\n\n    (qipc_systemsem_\\S+)\n"));
    const auto found = example.match(page());
    ASSERT_TRUE(found.hasMatch());
    EXPECT_EQ(found.captured(2), SharedLock::nativeName(found.captured(1)));
}

TEST(ProtocolPage, ShowsAFrameFile) {
    static const QRegularExpression example(
        QStringLiteral("^    ((?:[0-9a-f]{2} +){15}[0-9a-f]{2})  +and 64 more bytes$"),
        QRegularExpression::MultilineOption);
    const auto found = example.match(page());
    ASSERT_TRUE(found.hasMatch());
    FrameChannel channel;
    QFile file(channel.filePath());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray::fromHex(found.captured(1).toLatin1()) + QByteArray(64, '\0'));
    file.close();
    const auto picture = channel.read();
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->size(), QSize(2, 1));
    EXPECT_EQ(picture->pixel(0, 0), qRgb(255, 0, 0));
    EXPECT_EQ(picture->pixel(1, 0), qRgb(0, 0, 255));
}

TEST(ProtocolPage, ShowsEveryOptionThatAWorkerKnowsAndItsDefault) {
    std::set<QString> shown;
    for (const PageOption& option : pageOptions()) {
        SCOPED_TRACE(option.text.toStdString());
        shown.insert(option.text);
        ko_player::ParsedOptions parsed = ko_player::parseOptions(option.text.toStdString());
        EXPECT_THAT(parsed.complaints, testing::IsEmpty());
        parsed.options.explains = false; // every known option brings that
        EXPECT_EQ(parsed.options == ko_player::Options{}, option.isDefault);
    }
    std::set<QString> known;
    static const QRegularExpression choice(QStringLiteral("Choice\\{\"([a-z]+)\", \"([a-z]+)\""));
    const QString source = textOf(OPTIONS_SOURCE);
    for (auto match = choice.globalMatch(source); match.hasNext();) {
        const auto entry = match.next();
        known.insert(entry.captured(1) + u'=' + entry.captured(2));
    }
    EXPECT_FALSE(known.empty());
    EXPECT_EQ(shown, known);
    EXPECT_EQ(found(textOf(WORKER_MAN_PAGE), QStringLiteral("^\\.BR? ([a-z]+=[a-z]+)")), known);
}

TEST(ProtocolPage, ShowsWhatTheLibraryAsksFor) {
    EXPECT_TRUE(page().contains(u'`' + optionsOf(StreamJob{}) + u'`'));
    std::set<QString> shown;
    for (const PageOption& option : pageOptions()) {
        shown.insert(option.text);
    }
    for (const FlvReading flv : {FlvReading::Strict, FlvReading::Standard}) {
        for (const bool isOn : {false, true}) {
            const StreamJob job{.url = {}, .flv = flv, .lowLatency = isOn, .sync = isOn, .sandbox = isOn};
            for (const QString& option : optionsOf(job).split(u',')) {
                EXPECT_EQ(shown.count(option), 1U) << option.toStdString();
            }
        }
    }
}

TEST(ProtocolPage, ShowsWhatAWorkerSaysToOptionsThatItDoesNotKnow) {
    std::set<QString> lines;
    for (const char* options : {"colour=blue", "flv=loose"}) {
        for (const std::string& line : ko_player::parseOptions(options).complaints) {
            lines.insert(QString::fromStdString(line));
        }
    }
    EXPECT_EQ(found(page(), QStringLiteral("^    (MEDIAWORKER_OPTIONS: .*)$")), lines);
}

TEST(ProtocolPage, ShowsLinesThatTheLibraryUnderstands) {
    const auto lines = found(
        page(), QStringLiteral("^\\| `((?:http failed|sound unavailable|pictures unavailable): [^`]+)`"));
    EXPECT_EQ(lines.size(), 6U);
    for (const QString& line : lines) {
        WorkerFindings findings;
        findings.take(line, false);
        EXPECT_TRUE(findings.isResponseFailed() || !findings.soundUnavailable.isEmpty() ||
                    !findings.picturesUnavailable.isEmpty())
            << line.toStdString();
    }
}

// Lines whose text other sources make up are compared with the sources.
TEST(ProtocolPage, ShowsEveryOutcomeOfAnAttemptToStartADevice) {
    const QString sources =
        textOf(AUDIO_SINK_SOURCE) + textOf(SOUND_MODULE_SOURCE) + textOf(AUDIO_PIPELINE_SOURCE);
    const QString text = page();
    const int begin = text.indexOf(QStringLiteral("### Whether there is sound"));
    ASSERT_GE(begin, 0);
    const QString part = text.mid(begin, text.indexOf(QStringLiteral("For a local file:"), begin) - begin);
    std::set<QString> outcomes = found(sources, QStringLiteral("^        return \"(.*)\";$"));
    EXPECT_EQ(outcomes.size(), 5U);
    outcomes.insert(QString()); // an error without a text
    EXPECT_EQ(found(part, QStringLiteral("^\\| `Trying to start audio device: ([^`]*)` \\|")), outcomes);
    for (const QString& line : found(part, QStringLiteral("^\\| `([^`]+)`"))) {
        // A function's name and what it says are two strings there.
        for (const QString& piece : line.split(QStringLiteral(": "), Qt::SkipEmptyParts)) {
            EXPECT_TRUE(sources.contains(piece)) << piece.toStdString();
        }
    }
}

/// What stands in bold or in italics on a manual page, word by word.
std::set<QString> wordsOf(const char* manualPage) {
    std::set<QString> words;
    for (const QString& line : found(textOf(manualPage), QStringLiteral("^\\.[BIR]+ (.*)$"))) {
        static const QRegularExpression word(QStringLiteral("[A-Za-z]+"));
        for (auto match = word.globalMatch(line); match.hasNext();) {
            words.insert(match.next().captured());
        }
    }
    return words;
}

TEST(ManualPage, OfTheControlProgramNamesEveryCause) {
    const std::set<QString> words = wordsOf(CTL_MAN_PAGE);
    for (int cause = 0; cause <= static_cast<int>(ExitCause::Killed); ++cause) {
        const QString name = exitCauseName(static_cast<ExitCause>(cause));
        EXPECT_EQ(words.count(name), 1U) << name.toStdString();
    }
}

TEST(ManualPage, OfTheControlProgramNamesEveryEventAndFieldOfItsJson) {
    const QString source = textOf(CTL_REPORT_SOURCE);
    std::set<QString> told =
        found(source, QStringLiteral("(?:insert\\(|\\{)QStringLiteral\\(\"(\\w+)\"\\),"));
    EXPECT_GT(told.size(), 20U);
    const auto events = found(source, QStringLiteral("\"event\"\\), QStringLiteral\\(\"(\\w+)\""));
    EXPECT_GT(events.size(), 5U);
    told.insert(events.begin(), events.end());
    const std::set<QString> words = wordsOf(CTL_MAN_PAGE);
    for (const QString& name : told) {
        EXPECT_EQ(words.count(name), 1U) << name.toStdString();
    }
}

} // namespace
