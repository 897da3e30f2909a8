// Prints what the worker makes of the streams that other programs wrote: one row of a Markdown table for
// each.
//
//   streams_table names         the rows' names, one a line
//   streams_table row NAME      plays and exports that stream with both readings

#include "Judge.h"

#include "support/ChildProcess.h"
#include "support/OwnEnvironment.h"

#include <QCoreApplication>

#include <algorithm>
#include <iostream>

namespace mediaworker::test {
namespace {

std::string seen(const Source& source, const Playing& playing) {
    if (!source.hasVideo) {
        return "–";
    }
    if (playing.shown == 0) {
        return "no";
    }
    std::string text = playing.shown == playing.sent
                           ? "all"
                           : std::to_string(playing.shown) + " of " + std::to_string(playing.sent);
    if (!playing.hasPresentationTimes) {
        text += ", wrong times";
    }
    if (!playing.wrongPictures.empty()) {
        text += ", wrong pictures";
    }
    return text;
}

std::string heard(const Source& source, const Playing& playing) {
    return source.sound == Sound::None ? "–" : isHeard(playing) ? "yes" : "no";
}

std::string exported(const Exporting& exporting) {
    if (exporting.exitCode != 0) {
        return "no, code " + std::to_string(exporting.exitCode.value_or(-1));
    }
    std::string text;
    for (const WrittenTrack& track : exporting.tracks) {
        text += (text.empty() ? "" : ", ") + track.codec + (track.isInStep ? "" : " out of step");
    }
    return text;
}

int printRow(const std::string& name) {
    const auto sources = allSources();
    const auto source = std::find_if(sources.begin(), sources.end(),
                                     [&](const Source& candidate) { return name == candidate.name; });
    if (source == sources.end()) {
        std::cerr << "streams_table: no row is called " << name << "\n";
        return 2;
    }
    std::cout << "| " << source->title << " | ";
    try {
        const Made made = Workshop::get(source->name, source->recipe);
        const PlayedBoth played = play(*source, made, StrictSound::On);
        const TemporaryFolder folder;
        const Exporting strict = exportStream(*source, made, Reading::Strict, folder / "strict.mp4");
        const Exporting standard = exportStream(*source, made, Reading::Standard, folder / "standard.mp4");
        std::cout << seen(*source, played.strict) << " | " << heard(*source, played.strict) << " | "
                  << exported(strict) << " | " << seen(*source, played.standard) << " | "
                  << heard(*source, played.standard) << " | " << exported(standard) << " |\n";
    } catch (const MissingTool& missing) {
        std::cout << "left out: " << missing.what() << " | | | | | |\n";
    }
    return 0;
}

} // namespace
} // namespace mediaworker::test

int main(int argc, char** argv) {
    const mediaworker::test::OwnEnvironment environment;
    const QCoreApplication application(argc, argv);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments == std::vector<std::string>{"names"}) {
        for (const auto& source : mediaworker::test::allSources()) {
            std::cout << source.name << "\n";
        }
        return 0;
    }
    if (arguments.size() == 2 && arguments[0] == "row") {
        return mediaworker::test::printRow(arguments[1]);
    }
    std::cerr << "usage: streams_table names | row NAME\n";
    return 2;
}
