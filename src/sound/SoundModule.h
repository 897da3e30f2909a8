#pragma once

#include "sound/AudioDevice.h"

/// What the module `mediaworker_sound` exports under kSoundEntryName: the caller owns the device; null if
/// that fails.
using SoundEntry = AudioDevice* (*)(const PcmFormat* format);

/// The number changes whenever SoundEntry, AudioDevice or PcmFormat do: a module of another build is refused.
inline constexpr const char* kSoundEntryName = "mediaworker_sound_2";

/// Devices of the system's sound, out of the module that lies in `applicationFolder` or, where the program is
/// installed, in `../lib/mediaworker` beside it.
///
/// The system's sound draws in some thirty libraries, and most workers stay silent. So the first call of the
/// factory loads the module, which then stays. If that fails the reason is logged once, and this call and all
/// later ones make no device. The factory, and each copy of it, belongs to one thread at a time.
[[nodiscard]] AudioDeviceFactory soundModule(const QString& applicationFolder);
