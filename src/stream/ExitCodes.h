#pragma once

/// The codes with which the process ends; the parent tells the reasons apart by them.
namespace exit_code {

inline constexpr int kParentGone = 0;
inline constexpr int kFailure = 1; ///< command line, crash, stream that cannot be parsed
inline constexpr int kFrameTimeout = 2;
inline constexpr int kResponseEnded = 3;
inline constexpr int kVideoStopped = 4;

} // namespace exit_code
