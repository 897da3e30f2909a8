#include "Workshop.h"

#include "support/ChildProcess.h"
#include "support/FileLock.h"
#include "support/media/TestPicture.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

namespace mediaworker::test {
namespace {

/// Part of every cache folder's name: raise it when a recipe changes.
constexpr int kCacheVersion = 5;

std::filesystem::path cacheFolder() {
    const char* named = std::getenv("MEDIAWORKER_TEST_CACHE"); // NOLINT(concurrency-mt-unsafe)
    std::filesystem::path folder = named != nullptr ? named : MEDIAWORKER_TEST_CACHE_FOLDER;
    folder /= "streams-" + std::to_string(kCacheVersion);
    std::filesystem::create_directories(folder);
    return folder;
}

/// The record of a finished stream: file names in the folder, and the shift.
void writeRecord(const std::filesystem::path& record, const Made& made) {
    std::ostringstream text;
    text << made.flv.filename().string() << '\n'
         << made.reference.filename().string() << '\n'
         << made.shift.count() << '\n';
    const std::filesystem::path unfinished = record.string() + ".part";
    writeFile(unfinished, text.str());
    std::filesystem::rename(unfinished, record);
}

Made readRecord(const std::filesystem::path& record) {
    std::istringstream text(readFile(record));
    std::string flv;
    std::string reference;
    std::chrono::milliseconds::rep shiftMs = 0;
    text >> flv >> reference >> shiftMs;
    const std::filesystem::path folder = record.parent_path();
    return {folder / flv, folder / reference, std::chrono::milliseconds(shiftMs)};
}

} // namespace

Made Workshop::get(const std::string& name, const Recipe& recipe) {
    const std::filesystem::path folder = cacheFolder() / name;
    const std::filesystem::path record = folder / "made";
    std::filesystem::create_directories(folder);
    const FileLock lock(folder / "lock");
    if (!std::filesystem::exists(record)) {
        Workshop workshop(folder);
        writeRecord(record, recipe(workshop));
    }
    return readRecord(record);
}

std::filesystem::path Workshop::pictures(int widthPx, int heightPx) {
    const std::filesystem::path folder = cacheFolder();
    const std::string name = std::to_string(widthPx) + "x" + std::to_string(heightPx);
    const std::filesystem::path target = folder / (name + ".yuv");
    const FileLock lock(folder / (name + ".lock"));
    if (!std::filesystem::exists(target)) {
        const std::filesystem::path unfinished = folder / (name + ".part");
        std::ofstream file(unfinished, std::ios::binary);
        TestPicture picture(widthPx, heightPx);
        for (int number = 0; number < kFilmPictures; ++number) {
            picture.draw(number);
            const auto bytes = picture.bytes();
            file.write(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<std::streamsize>(bytes.size()));
        }
        file.close();
        if (!file) {
            throw std::runtime_error("cannot write " + unfinished.string());
        }
        std::filesystem::rename(unfinished, target);
    }
    return target;
}

std::string Workshop::run(const Words& command,
                          const std::vector<std::pair<std::string, std::string>>& environment) {
    try {
        return runCommand(command, environment);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::no_such_file_or_directory) {
            throw MissingTool(command.at(0) + " is not installed: scripts/bootstrap --test installs it");
        }
        throw;
    }
}

void Workshop::ffmpeg(const Words& arguments) {
    run(joined({{"ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "error", "-y"}, arguments}));
}

Words joined(std::initializer_list<Words> lists) {
    Words result;
    for (const Words& list : lists) {
        result.insert(result.end(), list.begin(), list.end());
    }
    return result;
}

} // namespace mediaworker::test
