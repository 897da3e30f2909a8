// Writes the seeds of the fuzz targets, one folder for each: make_fuzz_corpus FOLDER

#include "support/FlvWriter.h"
#include "support/media/Clip.h"
#include "support/media/FlvStream.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string_view>

namespace {

using mediaworker::test::AmfValue;
using mediaworker::test::FlvWriter;
using mediaworker::test::lengthPrefixed;
using mediaworker::test::scriptBody;
using mediaworker::test::VideoCodec;

using Bytes = std::vector<std::uint8_t>;

void write(const std::filesystem::path& folder, const std::string& name, const Bytes& bytes) {
    std::filesystem::create_directories(folder);
    std::ofstream file(folder / name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file) {
        throw std::runtime_error("cannot write " + (folder / name).string());
    }
}

const AmfValue::Properties kServerMetadata{
    {"videocodecid", 7},         {"width", 1920},          {"height", 1080},     {"audiocodecid", 175},
    {"audiosamplerate", 44100},  {"audiosamplesize", 16},  {"audiochannels", 2}, {"fragmentPosition", 1000},
    {"fragmentDuration", 60000}, {"absolute_time", 1.4e12}};

/// One value of each type that an array may hold.
const AmfValue::Properties kEveryType{{"number", 2.5},
                                      {"boolean", true},
                                      {"string", "text"},
                                      {"clip", AmfValue::movieClip("clip")},
                                      {"null", AmfValue::null()},
                                      {"undefined", AmfValue::undefined()},
                                      {"reference", AmfValue::reference(1)},
                                      {"date", AmfValue::date(1.4e12, 60)},
                                      {"long", AmfValue::longString("text")}};

const AmfValue::Properties kNested{{"object", AmfValue::object({{"x", 1}})},
                                   {"array", AmfValue::ecmaArray({{"x", 1}})},
                                   {"strict", AmfValue::strictArray({1, "two"})}};

void writeScriptData(const std::filesystem::path& folder) {
    write(folder, "server", scriptBody("onMetaData", kServerMetadata));
    write(folder, "every_type", scriptBody("onMetaData", kEveryType));
    write(folder, "nested", scriptBody("onMetaData", kNested));
    write(folder, "foreign", scriptBody("onCuePoint", kServerMetadata));
    Bytes twice = scriptBody("onMetaData", kServerMetadata);
    const Bytes second = scriptBody("onMetaData", kEveryType);
    twice.insert(twice.end(), second.begin(), second.end());
    write(folder, "twice", twice);
    // As publishers send it: a command, then an object with a table of key frames and codecs by name.
    Bytes command = AmfValue("@setDataFrame").bytes();
    for (const AmfValue& value :
         {AmfValue("onMetaData"),
          AmfValue::object({{"width", 1920},
                            {"stereo", true},
                            {"videocodecid", "avc1"},
                            {"keyframes", AmfValue::object({{"times", AmfValue::strictArray({0, 2, 4})}})},
                            {"audiocodecid", "mp4a"}})}) {
        command.insert(command.end(), value.bytes().begin(), value.bytes().end());
    }
    write(folder, "publisher", command);
}

Bytes avcStream() {
    FlvWriter writer;
    writer.header().metadata(0, kServerMetadata);
    writer.video(0, VideoCodec::Avc, true, FlvWriter::kSequenceHeader, Bytes{1, 0x64, 0, 0x28, 0xFF});
    writer.aac(0, FlvWriter::kSequenceHeader, Bytes{0x12, 0x10});
    writer.video(0, VideoCodec::Avc, true, FlvWriter::kFrames, lengthPrefixed({{6, 1}, {0x65, 0x88}}));
    writer.aac(20, FlvWriter::kFrames, Bytes{0x21, 0x10});
    writer.video(40, VideoCodec::Avc, false, FlvWriter::kFrames, lengthPrefixed({{6, 1}}));
    writer.video(40, VideoCodec::Avc, true, FlvWriter::kSequenceHeader, Bytes{1, 2, 3});
    writer.video(0x1000040, VideoCodec::Avc, false, FlvWriter::kFrames, lengthPrefixed({{0x41, 0x9A}}), 40);
    return writer.video(80, VideoCodec::Avc, true, FlvWriter::kEndOfSequence, Bytes{0}).take();
}

Bytes hevcStream() {
    FlvWriter writer;
    writer.header(0x05, 20).metadata(
        0, {{"videocodecid", 12}, {"audiocodecid", 0x7E}, {"audiosamplerate", 8000}, {"audiochannels", 1}});
    writer.video(0, VideoCodec::Hevc, true, FlvWriter::kSequenceHeader, Bytes(23, 1));
    writer.video(0, VideoCodec::Hevc, true, FlvWriter::kFrames, lengthPrefixed({{0x26, 1, 2}}));
    writer.video(40, VideoCodec::Hevc, false, FlvWriter::kFrames, lengthPrefixed({{78, 1}, {2, 1}}));
    return writer.audio(40, 0x70, Bytes(20, 0xD5)).audio(60, 0xB2, Bytes(5, 1)).take();
}

Bytes text(std::string_view characters) {
    return {characters.begin(), characters.end()};
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes enhancedStream() {
    FlvWriter writer;
    writer.header().metadata(0, {{"videocodecid", 1752589105}, {"audiocodecid", "Opus"}});
    writer.enhancedVideo(0, "hvc1", true, FlvWriter::kSequenceHeader, Bytes(23, 1));
    writer.enhancedVideo(0, "hvc1", true, FlvWriter::kFrames, lengthPrefixed({{0x26, 1, 2}}), 80);
    writer.enhancedVideo(40, "hvc1", false, FlvWriter::kFramesX, lengthPrefixed({{2, 1}}));
    writer.enhancedAudio(40, "Opus", FlvWriter::kFrames, Bytes{0xFC, 0xFF, 0xFE});
    writer.enhancedVideo(80, "hvc1", true, FlvWriter::kEndOfSequence, {});
    writer.enhancedVideo(80, "av01", true, 4, AmfValue("colorInfo").bytes());
    return writer.take();
}

/// A header in front of the header, and several tracks in a tag.
Bytes trackStream() {
    FlvWriter writer;
    writer.header();
    writer.tag(9, 0, Bytes{0x97, 2, 1, 2, 3, 0x01} + text("av01") + Bytes{0x12, 0, 0x0A});
    writer.tag(9, 40, Bytes{0x97, 0xFF, 0, 1, 1, 2, 0x06, 0x01} + text("av01") + Bytes{0, 0x12, 0});
    writer.tag(9, 80,
               Bytes{0x96, 0x21} + text("av01") + Bytes{0, 0, 0, 2, 0x12, 0} + text("vp09") +
                   Bytes{1, 0, 0, 1, 0x82});
    writer.tag(8, 80, Bytes{0x95, 0x11} + text("ac-3") + Bytes{0, 0, 0, 2, 0x0B, 0x77, 1, 0, 0, 1, 0x0B});
    return writer.tag(8, 80, Bytes{0x94} + text("mp4a") + Bytes{0, 2}).take();
}

/// What live servers and old cameras send.
Bytes looseStream() {
    FlvWriter writer;
    writer.header(0x04).tag(0x28, 0, Bytes{1, 2, 3}).tag(15, 0, {});
    writer.tagHeader(9, 6, 0, 5).raw(Bytes{0x17, 1, 0, 0, 40, 5}).backPointer(0);
    writer.video(0, VideoCodec::Avc, true, FlvWriter::kSequenceHeader, Bytes{1, 0x64, 0, 0x28, 0xFF, 0xE1});
    writer.video(0xFFFFFFF0, VideoCodec::Avc, true, FlvWriter::kFrames, lengthPrefixed({{0x65, 0x88}}), -40);
    writer.video(16, VideoCodec::Avc, false, FlvWriter::kFrames, lengthPrefixed({{0x41, 0x9A}}), 80);
    writer.aac(16, FlvWriter::kSequenceHeader, Bytes{0x17, 0x80, 0x56, 0x22, 0x10});
    writer.aac(16, FlvWriter::kFrames, Bytes{0x21, 0x10, 4, 0x60, 0x8C, 0x1C});
    return writer.audio(40, 0xB2, Bytes(5, 1)).tag(9, 40, Bytes{0x52, 0}).take();
}

Bytes brokenStream() {
    FlvWriter writer;
    writer.header()
        .metadata(0, kNested)
        .tag(FlvWriter::kAudioTag, 0, Bytes{0xAF})
        .tag(FlvWriter::kVideoTag, 0, {});
    return writer.tagHeader(FlvWriter::kAudioTag, 2, 5).raw(Bytes{0x2E, 1}).backPointer(12).take();
}

/// The first byte says how the stream is cut into pieces.
Bytes cut(std::uint8_t pieces, const Bytes& stream) {
    Bytes bytes{pieces};
    bytes.insert(bytes.end(), stream.begin(), stream.end());
    return bytes;
}

void writeStreams(const std::filesystem::path& folder) {
    write(folder, "avc_bytewise", cut(0, avcStream()));
    write(folder, "avc_in_17s", cut(16, avcStream()));
    write(folder, "hevc", cut(200, hevcStream()));
    write(folder, "enhanced", cut(12, enhancedStream()));
    write(folder, "tracks", cut(200, trackStream()));
    write(folder, "loose", cut(6, looseStream()));
    write(folder, "broken", cut(4, brokenStream()));
    write(folder, "bad_type", cut(9, FlvWriter().header().tag(0x28, 0, Bytes{1, 2, 3}).take()));
}

/// Type, size in little-endian order, data.
void writeLinkPackets(const std::filesystem::path& folder) {
    const Bytes volume{5, 4, 0, 50, 0, 0, 0};
    const Bytes pauseAndResume{6, 0, 0, 7, 0, 0};
    Bytes both = pauseAndResume;
    both.insert(both.end(), volume.begin(), volume.end());
    Bytes large{1, 0, 1};
    large.insert(large.end(), 256, 0x11);
    write(folder, "volume_bytewise", cut(0, volume));
    write(folder, "several", cut(200, both));
    write(folder, "several_in_2s", cut(1, both));
    write(folder, "large", cut(99, large));
    write(folder, "incomplete", cut(3, Bytes{9, 0xFF, 0xFF, 1}));
}

/// Streams that can be decoded, small ones: with everything that the first two bytes choose.
void writePlayer(const std::filesystem::path& folder) {
    using namespace mediaworker::test;
    const auto clipOf = [](VideoCodec video, AudioCodec audio, int rate) {
        ClipSpec spec;
        spec.codec = video;
        spec.widthPx = 160;
        spec.heightPx = 90;
        spec.frames = 20;
        spec.gop = 10;
        spec.bFrames = video == VideoCodec::Avc ? 2 : 0;
        spec.crf = 40;
        spec.audio = audio;
        spec.sampleRate = rate;
        spec.channels = audio == AudioCodec::ALaw ? 1 : 2;
        return encode(spec);
    };
    const Clip avc = clipOf(VideoCodec::Avc, AudioCodec::Aac, 44100);
    const Clip hevc = clipOf(VideoCodec::Hevc, AudioCodec::ALaw, 8000);
    const Clip vp9 = clipOf(VideoCodec::Vp9, AudioCodec::Opus, 48000);
    ClipSpec large = avc.spec;
    large.widthPx = 176;
    const Clip other = encode(large);
    for (std::uint8_t flags = 0; flags < 64; flags = static_cast<std::uint8_t>(flags + 7)) {
        const std::string name = std::to_string(flags);
        const auto begin = [&](const std::vector<TimedBytes>& pieces) {
            return Bytes{flags, 143} + toBytes(pieces); // pieces of 128 bytes
        };
        write(folder, "avc_aac_" + name, begin(makeFlv(avc)));
        write(folder, "hevc_alaw_" + name, begin(makeFlv(hevc)));
        write(folder, "vp9_opus_" + name, begin(makeFlv(vp9)));
        write(folder, "sizes_" + name, begin(makeFlv({&avc, &other, &avc}, {.metadataForEveryClip = true})));
        write(folder, "made_up_" + name, Bytes{flags, 3} + avcStream() + enhancedStream());
    }
}

Bytes message(std::uint8_t type, const Bytes& data) {
    return Bytes{type, static_cast<std::uint8_t>(data.size()), 0} + data;
}

void writeParentMessages(const std::filesystem::path& folder) {
    const Bytes eight{0, 1, 2, 3, 4, 5, 6, 7};
    const Bytes all = message(0, eight) + message(4, {}) + message(1, eight) + message(2, eight + eight) +
                      message(3, eight) + message(8, Bytes{50, 0, 0, 0});
    write(folder, "all", cut(255, all));
    write(folder, "bytewise", cut(0, all));
    write(folder, "wrong_sizes", cut(7, message(0, {1}) + message(1, {}) + message(8, Bytes(4, 0xFF))));
    write(folder, "unknown", cut(7, message(99, eight) + Bytes{1, 0xFF, 0xFF}));
}

void writeParentLog(const std::filesystem::path& folder) {
    write(
        folder, "lines",
        cut(16,
            text("url: http://127.0.0.1/\nCommand from parent process: \x06\n"
                 "http failed: status 404 Not Found\nsound unavailable: Speex: this codec is not supported\n"
                 "pictures unavailable: AV1: no decoder\nTrying to start audio device: no\nhttp reader "
                 "finished\r\nlast words")));
    write(folder, "network",
          cut(3, text("http failed: network: ConnectionRefusedError: Connection refused\n\n\n")));
}

void writePlaylists(const std::filesystem::path& folder) {
    write(folder, "groups",
          text("# cameras\n[Ground floor]\nEntrance = http://a.example/live.flv?x=1\r\nhttp://b.example/\n"));
    write(folder, "marks", text("\xef\xbb\xbf<b>x</b>\xe2\x80\xae\xf0\x9f\x8e\xa5 = file.mp4\n[]\n"));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: make_fuzz_corpus FOLDER\n";
        return 2;
    }
    try {
        const std::filesystem::path folder(argv[1]);
        writeStreams(folder / "flv_reader");
        writeScriptData(folder / "script_data");
        writeLinkPackets(folder / "link_packets");
        writePlayer(folder / "player");
        writeParentMessages(folder / "parent_messages");
        writeParentLog(folder / "parent_log");
        writePlaylists(folder / "playlist");
    } catch (const std::exception& error) {
        std::cerr << "make_fuzz_corpus: " << error.what() << '\n';
        return 1;
    }
}
