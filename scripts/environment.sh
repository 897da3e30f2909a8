# shellcheck shell=bash
# Read by the other scripts (". scripts/environment.sh"): makes them work from any folder, with an empty
# environment, and fast where ccache is installed. Leaves the shell in the source folder.
set -euo pipefail
export PATH=${PATH:-/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin}
export LANG=C.UTF-8
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [ -z "${HOME:-}" ]; then
    export HOME=$PWD/build/home
    mkdir -p "$HOME"
fi
if command -v ccache >/dev/null; then
    export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER:-ccache}
    export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}
fi
