#pragma once

/// The volume to set on an output, 0.0 to 1.0, for what the parent asks (percent, of any size) and what the
/// output has now. A volume equal to the current one comes out 0.01 lower.
[[nodiscard]] double outputVolume(int percent, double current);
