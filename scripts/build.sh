#!/usr/bin/env bash
# Configures and builds one preset: build/PRESET, programs in build/PRESET/bin.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [[ ${1:-} == --help ]]; then
    echo "usage: ${0##*/} [PRESET [TARGET...]]    presets: release (default), dev, clang, asan, tsan, fuzz"
    exit 0
fi
readonly preset=${1:-release}
readonly targets=("${@:2}")

if [[ ! $preset =~ ^[a-z]+$ ]] || ! grep -q "\"name\": \"$preset\", \"configurePreset\"" CMakePresets.json; then
    echo "${0##*/}: no preset is called '$preset'; see --help" >&2
    exit 2
fi

generator=()
if [[ ! -e build/$preset/CMakeCache.txt ]] && command -v ninja >/dev/null; then
    generator=(-G Ninja)
fi
cmake --preset "$preset" "${generator[@]}"
cmake --build --preset "$preset" --parallel "$(nproc)" ${targets[@]:+--target "${targets[@]}"}
