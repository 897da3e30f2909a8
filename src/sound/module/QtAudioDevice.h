#pragma once

#include "sound/AudioDevice.h"

#include <QAudio>
#include <QAudioFormat>

[[nodiscard]] QAudioFormat toQAudioFormat(const PcmFormat& format);
[[nodiscard]] AudioError toAudioError(QAudio::Error error);

/// An AudioDevice over QAudioOutput in push mode; null when there is no memory for it.
[[nodiscard]] std::unique_ptr<AudioDevice> makeQtAudioDevice(const PcmFormat& format);
