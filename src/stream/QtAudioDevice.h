#pragma once

#include "stream/AudioDevice.h"

/// An AudioDevice over QAudioOutput in push mode.
[[nodiscard]] std::unique_ptr<AudioDevice> makeQtAudioDevice(const QAudioFormat& format);
