#include "tools/ctl/Arguments.h"

#include "support/ChildProcess.h"
#include "support/Platform.h"

#include <gmock/gmock.h>

using mediaworker::test::TemporaryFolder;
using mediaworker::test::writeFile;
using ::testing::AllOf;
using ::testing::HasSubstr;

namespace mediaworker::ctl {
namespace {

class PlaylistName : public testing::Test {
protected:
    PlaylistName() {
        writeFile(folder_ / "cameras.txt", "[Outside]\n"
                                           "Gate = http://cam/gate.flv\n"
                                           "Yard = films/yard.mp4\n"
                                           "Twice = http://cam/1.flv\n"
                                           "Twice = http://cam/2.flv\n"
                                           "http://cam/nameless.flv\n");
        writeFile(folder_ / "broken.txt", "Gate\n");
    }

    [[nodiscard]] Command parse(const QStringList& words) const {
        return parseArguments(QStringList{QStringLiteral("mediaworker-ctl")} + words,
                              QString::fromStdString(folder_.path().generic_string()));
    }
    [[nodiscard]] std::string refusal(const QStringList& words) const {
        const Command command = parse(words);
        const auto* misuse = std::get_if<Misuse>(&command);
        return misuse == nullptr ? "taken" : misuse->why.toStdString();
    }

    const TemporaryFolder folder_;
};

const QString kList = QStringLiteral("--playlist=cameras.txt");

TEST_F(PlaylistName, IsPlayed) {
    EXPECT_EQ(std::get<PlayCommand>(parse({QStringLiteral("play"), QStringLiteral("Gate"), kList})).url,
              QStringLiteral("http://cam/gate.flv"));
}

TEST_F(PlaylistName, OfAFileIsFoundBesideTheList) {
    EXPECT_EQ(std::get<PlayCommand>(parse({QStringLiteral("play"), QStringLiteral("Yard"), kList}))
                  .url.toStdString(),
              mediaworker::test::platform::fileUrl(folder_ / "films/yard.mp4"));
}

TEST_F(PlaylistName, IsRecorded) {
    EXPECT_EQ(std::get<ExportCommand>(
                  parse({QStringLiteral("export"), QStringLiteral("Gate"), QStringLiteral("a.mp4"), kList}))
                  .url,
              QStringLiteral("http://cam/gate.flv"));
    EXPECT_THAT(refusal({QStringLiteral("export"), QStringLiteral("Yard"), QStringLiteral("a.mp4"), kList}),
                HasSubstr("only http and https"));
}

TEST_F(PlaylistName, ThatIsNotThereOnceIsRefused) {
    EXPECT_THAT(refusal({QStringLiteral("play"), QStringLiteral("Cellar"), kList}),
                HasSubstr("has no stream named \"Cellar\""));
    EXPECT_THAT(refusal({QStringLiteral("play"), QStringLiteral("Twice"), kList}),
                HasSubstr("has 2 streams named \"Twice\""));
    EXPECT_THAT(refusal({QStringLiteral("play"), QStringLiteral("http://cam/nameless.flv"), kList}),
                HasSubstr("has no stream named"));
}

TEST_F(PlaylistName, NeedsAListThatCanBeRead) {
    EXPECT_THAT(
        refusal({QStringLiteral("play"), QStringLiteral("Gate"), QStringLiteral("--playlist=broken.txt")}),
        AllOf(HasSubstr("broken.txt cannot be used: "), HasSubstr("line 1")));
    EXPECT_THAT(
        refusal({QStringLiteral("play"), QStringLiteral("Gate"), QStringLiteral("--playlist=none.txt")}),
        HasSubstr("none.txt cannot be used: "));
}

} // namespace
} // namespace mediaworker::ctl
