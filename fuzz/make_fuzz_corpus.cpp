// Writes the seeds of the fuzz targets, one folder for each: make_fuzz_corpus FOLDER

#include "support/FlvWriter.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

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
    } catch (const std::exception& error) {
        std::cerr << "make_fuzz_corpus: " << error.what() << '\n';
        return 1;
    }
}
