#include "support/MountNamespace.h"

namespace mediaworker::test {
namespace {

constexpr const char* kEnter = R"sh(
if mount --make-rprivate / 2>/dev/null; then
    exec "$@"
fi
set -e
mount --make-private "$(findmnt --noheadings --output TARGET --target "$0")"
mkdir -p "$0/root"
mount --rbind / "$0/root"
mount --make-rprivate "$0/root"
exec chroot "$0/root" env --chdir="$PWD" "$@"
)sh";

} // namespace

std::vector<std::string> inMountNamespace(const std::filesystem::path& scratch) {
    return {"unshare", "--mount", "--propagation", "unchanged", "sh", "-c", kEnter, scratch.string()};
}

} // namespace mediaworker::test
