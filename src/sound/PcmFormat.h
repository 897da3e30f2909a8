#pragma once

/// The sound of a stream as a device gets it: interleaved signed 16-bit samples, least significant byte
/// first. A default one describes no sound yet: no device starts with it.
struct PcmFormat {
    int sampleRate = -1;
    int channels = -1;

    bool operator==(const PcmFormat&) const = default;
};
