#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace mediaworker::test {

/// The words of a command.
using Words = std::vector<std::string>;

/// A program, or a part of one, that is not there: no failure, but nothing can be made without it.
class MissingTool : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A stream as it was made.
struct Made {
    std::filesystem::path flv;
    /// What the ffprobe program is asked for the stream's packets: the same file, or the one that it was made
    /// of where not every ffprobe reads such an FLV.
    std::filesystem::path reference;
    /// What the stream's time stamps are later than those of the reference.
    std::chrono::milliseconds shift{0};
};

/// What a film has that programs make streams of.
inline constexpr int kFilmWidthPx = 320;
inline constexpr int kFilmHeightPx = 180;
inline constexpr int kFilmFps = 25;
inline constexpr int kFilmPictures = 75;
inline constexpr int kFilmSeconds = kFilmPictures / kFilmFps;
inline constexpr double kFilmToneHz = 1000;

/// The folder of one stream while it is made. Its files stay, so that it is made once.
class Workshop {
public:
    using Recipe = std::function<Made(Workshop&)>;

    /// The stream of that name, made now or earlier. Several processes may ask at once; one makes it, the
    /// others wait. Throws MissingTool, and std::runtime_error when a program fails.
    [[nodiscard]] static Made get(const std::string& name, const Recipe& recipe);

    /// A file in the folder.
    [[nodiscard]] std::filesystem::path operator/(const char* name) const { return folder_ / name; }

    /// Numbered test pictures of that size (planar 4:2:0), made once for all.
    [[nodiscard]] static std::filesystem::path pictures(int widthPx = kFilmWidthPx,
                                                        int heightPx = kFilmHeightPx);

    /// Runs a program, with these variables in its environment; its standard output. Throws MissingTool when
    /// it is not installed.
    static std::string run(const Words& command,
                           const std::vector<std::pair<std::string, std::string>>& environment = {});
    /// Runs ffmpeg with these arguments; it overwrites and is silent.
    static void ffmpeg(const Words& arguments);

private:
    explicit Workshop(std::filesystem::path folder) : folder_(std::move(folder)) {}

    std::filesystem::path folder_;
};

/// Lists of words in one.
[[nodiscard]] Words joined(std::initializer_list<Words> lists);

} // namespace mediaworker::test
