#include "sound/SoundModule.h"

#include "support/ChildProcess.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

using mediaworker::test::LogCapture;
using mediaworker::test::TemporaryFolder;
using mediaworker::test::writeFile;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace fs = std::filesystem;

constexpr PcmFormat kFormat{.sampleRate = 48000, .channels = 2};

/// A program's folder as it is built (module beside it) or installed (module in lib).
class SoundModule : public ::testing::Test {
protected:
    SoundModule() {
        fs::create_directories(beside.parent_path());
        fs::create_directories(installed.parent_path());
    }

    AudioDeviceFactory factory() const {
        return soundModule(QString::fromStdString(beside.parent_path().string()));
    }

    /// Which module made a device; empty for none.
    static std::string nameOf(const std::unique_ptr<AudioDevice>& device) {
        return device ? device->errorString().toStdString() : std::string();
    }

    const TemporaryFolder root;
    const fs::path fileName = fs::path(FAKE_SOUND_MODULE_ONE).filename();
    const fs::path beside = root / "bin" / fileName;
    const fs::path installed = root / "lib" / "mediaworker" / fileName;
    LogCapture log;
};

TEST_F(SoundModule, IsFoundBesideTheProgram) {
    fs::copy_file(FAKE_SOUND_MODULE_ONE, beside);
    const auto device = factory()(kFormat);
    EXPECT_EQ(nameOf(device), "one");
    EXPECT_EQ(device->bytesFree(), 48000) << "the format did not arrive";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SoundModule, IsFoundWhereItIsInstalled) {
    fs::copy_file(FAKE_SOUND_MODULE_TWO, installed);
    EXPECT_EQ(nameOf(factory()(kFormat)), "two");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SoundModule, BesideTheProgramComesFirst) {
    fs::copy_file(FAKE_SOUND_MODULE_ONE, beside);
    fs::copy_file(FAKE_SOUND_MODULE_TWO, installed);
    EXPECT_EQ(nameOf(factory()(kFormat)), "one");
}

TEST_F(SoundModule, IsLoadedByTheFirstCallAndNotBefore) {
    const AudioDeviceFactory early = factory();
    fs::copy_file(FAKE_SOUND_MODULE_ONE, beside);
    EXPECT_EQ(nameOf(early(kFormat)), "one");
    // Once is enough. Windows lets nobody remove a library that is in use, but move it.
    fs::rename(beside, installed);
    EXPECT_EQ(nameOf(early(kFormat)), "one");
}

TEST_F(SoundModule, MayFailToMakeADevice) {
    fs::copy_file(FAKE_SOUND_MODULE_ONE, beside);
    const AudioDeviceFactory make = factory();
    EXPECT_EQ(make(PcmFormat{}), nullptr);
    EXPECT_NE(make(kFormat), nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SoundModule, ThatIsMissingIsReportedOnceAndMakesNoDevice) {
    const AudioDeviceFactory make = factory();
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(make(kFormat), nullptr);
    EXPECT_EQ(make(kFormat), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(AllOf(StartsWith("Failed to load the sound module: "),
                                               HasSubstr(beside.parent_path().string()),
                                               HasSubstr((fs::path("lib") / "mediaworker").string()))));
}

TEST_F(SoundModule, ThatIsNoLibraryIsReported) {
    writeFile(beside, "not a library");
    EXPECT_EQ(factory()(kFormat), nullptr);
    // Windows leaves the end of the name out.
    EXPECT_THAT(log.lines(), ElementsAre(AllOf(StartsWith("Failed to load the sound module: "),
                                               HasSubstr((beside.parent_path() / beside.stem()).string()))));
}

TEST_F(SoundModule, OfAnotherVersionIsRefused) {
    fs::copy_file(FAKE_SOUND_MODULE_OLD, beside);
    EXPECT_EQ(factory()(kFormat), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(AllOf(StartsWith("Failed to load the sound module: "),
                                               HasSubstr(kSoundEntryName))));
}

} // namespace
