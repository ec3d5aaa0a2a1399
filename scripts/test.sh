#!/usr/bin/env bash
# Does all that a fresh Debian 12 needs to run every test of one preset, and runs them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [[ ${1:-} == --help ]]; then
    echo "usage: ${0##*/} [PRESET [CTEST-OPTION...]]    presets: release (default), dev, clang, asan, tsan"
    exit 0
fi
readonly preset=${1:-release}
packages=()
case $preset in
    release | dev | asan | tsan) ;;
    clang) packages=(--clang) ;;
    *)
        echo "${0##*/}: '$preset' is no preset with tests; see --help" >&2
        exit 2
        ;;
esac

scripts/install-deps.sh "${packages[@]}"
scripts/build.sh "$preset"

runner=()
if [[ $preset == tsan ]] && setarch "$(uname -m)" -R true 2>/dev/null; then
    # The thread sanitizer's fixed memory map does not get along with a widely randomised address space.
    runner=(setarch "$(uname -m)" -R)
fi
progress=()
if [[ -t 1 ]]; then
    progress=(--progress)
fi
"${runner[@]}" ctest --preset "$preset" --parallel "$(($(nproc) + 1))" "${progress[@]}" "${@:2}"
