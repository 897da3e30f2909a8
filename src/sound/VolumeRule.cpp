#include "sound/VolumeRule.h"

#include <algorithm>
#include <cmath>

double outputVolume(int percent, double current) {
    double volume = percent / 100.0;
    // An output ignores the volume that it already has, even where the system lost it at a restart; a nudge
    // that nobody hears makes it act.
    if (std::abs(volume - current) * 1e12 <= std::min(std::abs(volume), std::abs(current))) {
        volume -= 0.01;
    }
    return std::clamp(volume, 0.0, 1.0);
}
