#include "Broadcast.h"

#include "Roles.h"
#include "support/media/FlvStream.h"
#include "support/servers/HttpServer.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <iostream>
#include <random>
#include <string>
#include <vector>

namespace mediaworker::soak {
namespace {

using namespace std::chrono_literals;
using test::HttpResponse;

constexpr std::int64_t kBurstMs = 1500;

/// Ten seconds of camera, with sound. Different sizes for decoder and frame file.
std::vector<test::Clip> encodeClips() {
    std::vector<test::Clip> clips;
    for (const auto& [width, height] : {std::pair{640, 360}, {320, 180}, {480, 270}}) {
        test::ClipSpec spec;
        spec.widthPx = width;
        spec.heightPx = height;
        spec.frames = 250;
        spec.gop = 50;
        spec.bFrames = 2;
        spec.bitrateKbps = 600;
        spec.noise = 8;
        spec.preset = "veryfast";
        spec.audio = test::AudioCodec::Aac;
        clips.push_back(test::encode(spec));
    }
    return clips;
}

/// What happens to a stream, and when.
class Mishaps {
public:
    enum class Kind { None, Stall, Silence, Reset, End, Garbage };

    Mishaps(Role role, std::uint32_t seed) : role_(role), random_(seed) { plan(0); }

    Kind at(std::int64_t ms) {
        if (ms < nextMs_) {
            return Kind::None;
        }
        plan(ms);
        if (role_ == Role::Changing) {
            return Kind::Stall;
        }
        constexpr std::array kEnds{Kind::Reset, Kind::End, Kind::Silence, Kind::Garbage, Kind::Reset};
        return kEnds[static_cast<std::size_t>(between(0, 4))];
    }
    /// Shorter than the time after which a worker gives a live stream up.
    std::int64_t stallMs() { return between(200, 1500); }

private:
    std::int64_t between(std::int64_t least, std::int64_t most) {
        return std::uniform_int_distribution<std::int64_t>(least, most)(random_);
    }
    void plan(std::int64_t ms) {
        switch (role_) {
        case Role::Changing:
            nextMs_ = ms + between(8000, 25000);
            break;
        case Role::Broken:
            nextMs_ = ms + between(200, 20000);
            break;
        default:
            nextMs_ = INT64_MAX;
        }
    }

    const Role role_;
    std::mt19937 random_;
    std::int64_t nextMs_ = 0;
};

class Channel {
public:
    Channel(Role role, const std::vector<test::Clip>& clips) : role_(role), clips_(clips) {}

    void serve(HttpResponse& response) {
        response.header("Content-Type", "video/x-flv");
        Mishaps mishaps(role_, ++viewers_);
        const auto begin = std::chrono::steady_clock::now();
        std::int64_t startMs = 0;
        for (std::size_t round = 0;; ++round) {
            const test::Clip& clip = clips_[role_ == Role::Changing ? round % clips_.size() : 0];
            const bool isFirst = round == 0;
            test::FlvOptions options;
            options.startMs = static_cast<std::uint32_t>(startMs);
            options.hasMetadata = isFirst || role_ == Role::Changing;
            for (const test::TimedBytes& piece : test::makeFlv(clip, options)) {
                const std::int64_t ms = startMs + piece.ms;
                if (piece.kind == test::PieceKind::Header && !isFirst) {
                    continue;
                }
                if (!response.sleepUntil(begin + std::chrono::milliseconds(ms - kBurstMs)) ||
                    !happen(mishaps.at(ms), mishaps, response) || !response.send(piece.bytes)) {
                    return;
                }
                pictures_ += piece.kind == test::PieceKind::Video ? 1 : 0;
            }
            startMs += clip.durationMs();
        }
    }

    [[nodiscard]] std::uint64_t pictures() const { return pictures_; }

private:
    /// False when that was the end.
    static bool happen(Mishaps::Kind kind, Mishaps& mishaps, HttpResponse& response) {
        switch (kind) {
        case Mishaps::Kind::None:
            return true;
        case Mishaps::Kind::Stall:
            return response.sleepMs(mishaps.stallMs());
        case Mishaps::Kind::Silence:
            response.waitForClientToLeave();
            return false;
        case Mishaps::Kind::Reset:
            response.reset();
            return false;
        case Mishaps::Kind::Garbage:
            static_cast<void>(response.send(std::string(5000, '\xAA')));
            response.waitForClientToLeave();
            return false;
        case Mishaps::Kind::End:
            break;
        }
        return false;
    }

    const Role role_;
    const std::vector<test::Clip>& clips_;
    std::atomic<std::uint64_t> pictures_{0};
    std::atomic<std::uint32_t> viewers_{0};
};

} // namespace

int broadcast(int streams) {
    const std::vector<test::Clip> clips = encodeClips();
    std::deque<Channel> channels;
    test::HttpServer server;
    for (std::size_t i = 0; i < static_cast<std::size_t>(streams); ++i) {
        Channel& channel = channels.emplace_back(roleOf(i), clips);
        server.route(pathOf(i), [&channel](HttpResponse& response) { channel.serve(response); });
    }
    std::cout << server.port() << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
    }
    server.stop();
    for (const Channel& channel : channels) {
        std::cout << channel.pictures() << std::endl;
    }
    return 0;
}

} // namespace mediaworker::soak
