#include "sandbox/Needs.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <string>

namespace sandbox {
namespace {

using Kind = Work::Kind;

/// A user's session with its own sound server.
Surroundings session() {
    return {.programFolder = "/home/anna/app/bin",
            .libraryFolders = {"/usr/lib/x86_64-linux-gnu", "/opt/qt/lib"},
            .variables = {{"HOME", "/home/anna"}, {"XDG_RUNTIME_DIR", "/run/user/1000"}}};
}

Surroundings with(Surroundings surroundings, const std::string& name, const std::string& value) {
    surroundings.variables[name] = value;
    return surroundings;
}

Surroundings inFolder(const std::string& programFolder) {
    Surroundings surroundings = session();
    surroundings.programFolder = programFolder;
    return surroundings;
}

/// What may be done with a path, itself or by a folder above it; nothing where no rule lets it in.
std::optional<Access> accessTo(const std::string& path, const Needs& needs) {
    for (const PathRule& rule : needs.paths) {
        if (path == rule.path || path.starts_with(rule.path + "/")) {
            return rule.access;
        }
    }
    return std::nullopt;
}

struct PathCase {
    const char* name;
    const Work* work;
    Surroundings surroundings;
    std::string path;
    std::optional<Access> access;
};

void PrintTo(const PathCase& row, std::ostream* out) {
    *out << row.name;
}

class NeededBy : public ::testing::TestWithParam<PathCase> {};

TEST_P(NeededBy, LetsInWhatTheWorkNeeds) {
    const PathCase& row = GetParam();
    EXPECT_EQ(accessTo(row.path, neededBy(*row.work, row.surroundings)), row.access) << row.path;
}

const Work kStream{Kind::Stream};
const Work kFile{Kind::LocalFile, "/home/anna/Videos/clip.flv"};
const Work kExport{Kind::Export, "/home/anna/Videos/out.mp4"};
const Work kFileByName{Kind::Stream, "/srv/clip.flv"};
const Work kSchemeExport{Kind::Export, "file:out.mp4"};
const Work kColonExport{Kind::Export, "./a:b.mp4"};
const Work kProtocolExport{Kind::Export, "tcp://h/x"};

INSTANTIATE_TEST_SUITE_P(
    System, NeededBy,
    ::testing::Values(
        PathCase{"Libraries", &kStream, session(), "/usr/lib/x86_64-linux-gnu/libavcodec.so.59",
                 Access::Read},
        PathCase{"Configuration", &kExport, session(), "/etc/ssl/certs", Access::Read},
        PathCase{"OwnProcess", &kStream, session(), "/proc/self/maps", Access::Read},
        PathCase{"OtherProcesses", &kStream, session(), "/proc/1/environ", std::nullopt},
        PathCase{"Null", &kStream, session(), "/dev/null", Access::ReadWrite},
        PathCase{"Disks", &kStream, session(), "/dev/sda", std::nullopt},
        PathCase{"TemporaryFiles", &kStream, session(), "/tmp/other", std::nullopt},
        PathCase{"Root", &kStream, session(), "/", std::nullopt},
        PathCase{"Home", &kStream, session(), "/home/anna/.ssh/id_test", std::nullopt},
        PathCase{"HomeOfOthers", &kStream, session(), "/home/bert", std::nullopt},
        PathCase{"NamesOfHosts", &kStream, session(), "/run/systemd/resolve/stub-resolv.conf", Access::Read},
        PathCase{"NamesOfHostsForAFile", &kFile, session(), "/run/systemd/resolve/x", std::nullopt},
        PathCase{"OwnCertificates", &kStream, with(session(), "SSL_CERT_FILE", "/home/anna/ca.pem"),
                 "/home/anna/ca.pem", Access::Read}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Program, NeededBy,
    ::testing::Values(
        PathCase{"ItsFolder", &kStream, session(), "/home/anna/app/bin/mediaworker_sound.so", Access::Read},
        PathCase{"ItsModules", &kStream, session(), "/home/anna/app/lib/mediaworker/x.so", Access::Read},
        PathCase{"NothingElseBesideIt", &kStream, session(), "/home/anna/app/lib/other", std::nullopt},
        PathCase{"InTheHomeFolder", &kStream, inFolder("/home/anna"), "/home/anna/x", std::nullopt},
        PathCase{"AboveTheHomeFolder", &kStream, inFolder("/home"), "/home/anna/x", std::nullopt},
        PathCase{"BesideAHomeOfTheSameBeginning", &kStream, inFolder("/home/ann"), "/home/ann/x",
                 Access::Read},
        PathCase{"InTheRoot", &kStream, inFolder("/"), "/tmp", std::nullopt},
        PathCase{"Upwards", &kStream, inFolder("/opt/../home"), "/opt/../home", std::nullopt},
        PathCase{"OfLoadedLibraries", &kStream, session(), "/opt/qt/lib/libQt5Core.so.5", Access::Read},
        PathCase{"OfTheLibraryPath", &kStream, with(session(), "LD_LIBRARY_PATH", "/a/lib:/b/lib"),
                 "/b/lib/x.so", Access::Read},
        PathCase{"OfAnEmptyPartOfThatPath", &kStream, with(session(), "LD_LIBRARY_PATH", ":."), ".",
                 std::nullopt},
        PathCase{"OfAHomeInThatPath", &kStream, with(session(), "LD_LIBRARY_PATH", "/home/anna"),
                 "/home/anna/x", std::nullopt}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Sound, NeededBy,
    ::testing::Values(
        PathCase{"Cards", &kStream, session(), "/dev/snd/pcmC0D0p", Access::Device},
        PathCase{"SharedMemory", &kFile, session(), "/dev/shm/pulse-shm-1", Access::SharedFiles},
        PathCase{"Server", &kStream, session(), "/run/user/1000/pulse/native", Access::Read},
        PathCase{"NothingElseOfTheSession", &kStream, session(), "/run/user/1000/bus", std::nullopt},
        PathCase{"Cookie", &kStream, session(), "/home/anna/.config/pulse/cookie", Access::Read},
        PathCase{"CookieElsewhere", &kStream, with(session(), "PULSE_COOKIE", "/home/anna/c"), "/home/anna/c",
                 Access::Read},
        PathCase{"OtherConfiguration", &kStream, with(session(), "XDG_CONFIG_HOME", "/cfg"),
                 "/cfg/pulse/cookie", Access::Read},
        PathCase{"NothingElseOfTheConfiguration", &kStream, session(), "/home/anna/.config/chat",
                 std::nullopt},
        PathCase{"CardsOfAnExport", &kExport, session(), "/dev/snd/pcmC0D0p", std::nullopt},
        PathCase{"SharedMemoryOfAnExport", &kExport, session(), "/dev/shm/x", std::nullopt},
        PathCase{"CookieOfAnExport", &kExport, session(), "/home/anna/.config/pulse/cookie", std::nullopt}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Files, NeededBy,
    ::testing::Values(
        PathCase{"Played", &kFile, session(), "/home/anna/Videos/clip.flv", Access::Read},
        PathCase{"BesideThePlayed", &kFile, session(), "/home/anna/Videos/other.flv", std::nullopt},
        PathCase{"PlayedByAnotherName", &kFileByName, session(), "/srv/clip.flv", Access::Read},
        PathCase{"Recorded", &kExport, session(), "/home/anna/Videos/out.mp4", Access::Output},
        PathCase{"BesideTheRecorded", &kExport, session(), "/home/anna/Videos/other.mp4", std::nullopt},
        PathCase{"RecordedWithAScheme", &kSchemeExport, session(), "out.mp4", Access::Output},
        PathCase{"RecordedWithAColon", &kColonExport, session(), "./a:b.mp4", Access::Output},
        PathCase{"RecordedByAnotherProtocol", &kProtocolExport, session(), "tcp://h/x", std::nullopt}),
    [](const auto& row) { return row.param.name; });

TEST(NeededByWork, NothingIsWrittenButTheOutputWhereThereIsNoSound) {
    for (const PathRule& rule : neededBy(kExport, session()).paths) {
        EXPECT_TRUE(rule.access == Access::Read || rule.path.starts_with("/dev/") ||
                    rule.path == kExport.file)
            << rule.path;
    }
}

TEST(NeededByWork, ALocalFileNeedsNoNetworkUnlessItsSoundDoes) {
    EXPECT_TRUE(neededBy(kStream, session()).network);
    EXPECT_TRUE(neededBy(kExport, session()).network);
    EXPECT_FALSE(neededBy(kFile, session()).network);
    EXPECT_FALSE(neededBy(kFile, with(session(), "PULSE_SERVER", "unix:/run/pulse")).network);
    EXPECT_TRUE(neededBy(kFile, with(session(), "PULSE_SERVER", "tcp:studio:4713")).network);
}

TEST(NeededByWork, LooksAtNoVariableThatIsNotCollected) {
    const auto& names = variablesOfInterest();
    for (const char* name : {"HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "LD_LIBRARY_PATH", "SSL_CERT_FILE",
                             "PULSE_SERVER", "PULSE_COOKIE"}) {
        EXPECT_THAT(names, ::testing::Contains(::testing::StrEq(name)));
    }
}

} // namespace
} // namespace sandbox
