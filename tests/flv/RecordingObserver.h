#pragma once

#include "flv/Observer.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace ko_player::flv {

/// Writes down every event as text, payloads included, so that two readings compare as lists of lines.
class RecordingObserver final : public Observer {
public:
    std::vector<std::string> events;

    void onHeader(bool audio, bool video) override {
        std::ostringstream line;
        line << "header audio=" << audio << " video=" << video;
        events.push_back(line.str());
    }
    void onVideoTag(const VideoPacket& packet) override {
        std::ostringstream line;
        line << "video " << packet.timestamp << " key=" << packet.isKeyFrame
             << " seq=" << packet.isSequenceHeader << payload(packet);
        events.push_back(line.str());
    }
    void onAudioTag(const AudioPacket& packet) override {
        std::ostringstream line;
        line << "audio " << packet.timestamp << " fmt=" << packet.soundFormat << " rate=" << packet.sampleRate
             << " s16=" << packet.is16Bit << " ch=" << packet.channels << " seq=" << packet.isSequenceHeader
             << payload(packet);
        events.push_back(line.str());
    }
    void onScriptData(const NumberProperties& properties) override {
        std::ostringstream line;
        line << "script";
        for (const auto& [name, value] : properties) {
            line << ' ' << name << '=' << value;
        }
        events.push_back(line.str());
    }
    void onError(const std::string& message) override { events.push_back("error " + message); }

private:
    static std::string payload(const Packet& packet) {
        std::ostringstream text;
        text << " size=" << packet.size << " data=";
        for (std::uint32_t i = 0; i < packet.size; ++i) {
            text << std::hex << static_cast<unsigned>(packet.data[i]) << '.';
        }
        return text.str();
    }
};

/// A copy on the heap of exactly that size, so that the address sanitizer sees a read behind the end.
class ExactCopy {
public:
    ExactCopy(const std::uint8_t* data, std::size_t size)
        : bytes_(std::make_unique_for_overwrite<std::uint8_t[]>(size)), size_(size) {
        std::copy_n(data, size, bytes_.get());
    }
    explicit ExactCopy(const std::vector<std::uint8_t>& bytes) : ExactCopy(bytes.data(), bytes.size()) {}

    [[nodiscard]] const std::uint8_t* data() const { return bytes_.get(); }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] std::span<const std::uint8_t> span() const { return {bytes_.get(), size_}; }

private:
    std::unique_ptr<std::uint8_t[]> bytes_;
    std::size_t size_;
};

} // namespace ko_player::flv
