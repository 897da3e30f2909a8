#pragma once

namespace mediaworker::soak {

/// The server of all streams, in a process of its own so that what it keeps is not counted: writes its port
/// to standard output, serves until standard input ends, and writes for each stream how many pictures it
/// sent.
[[nodiscard]] int broadcast(int streams);

} // namespace mediaworker::soak
