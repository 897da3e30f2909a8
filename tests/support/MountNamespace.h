#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace mediaworker::test {

/// A command that goes before a program and its arguments, and runs it in a mount namespace of its own:
/// nothing that is mounted in there is seen outside, and all of it goes with the program. The program keeps
/// the process id and the working directory. Takes the rights of root.
///
/// `scratch` is a folder of the caller's, to be removed by it when the program has ended. Only a root folder
/// that is no mount (a plain chroot) needs it: the namespace then gets a private copy of the whole tree in
/// there, since a change would be seen outside otherwise. That takes a scratch folder on a mount of its own,
/// such as a /tmp in memory.
[[nodiscard]] std::vector<std::string> inMountNamespace(const std::filesystem::path& scratch);

} // namespace mediaworker::test
