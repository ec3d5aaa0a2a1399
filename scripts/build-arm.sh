#!/usr/bin/env bash
# Builds the release for the panel's processor: build/arm, programs in build/arm/bin, the package in build/arm. Makes the
# sysroot first. With a board's SDK, see docs/porting.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [[ ${1:-} == --help ]]; then
    echo "usage: ${0##*/} [TARGET...]    e.g. velcamd; 'package' makes the .deb; default: everything with its tests"
    exit 0
fi
if [[ ${1:-} == -* ]]; then
    echo "${0##*/}: '$1' is no option; see --help" >&2
    exit 2
fi

readonly packages=(g++-arm-linux-gnueabihf qemu-user-static cmake ninja-build pkg-config dpkg-dev)
missing=()
for package in "${packages[@]}"; do
    if [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
        missing+=("$package")
    fi
done
if ((${#missing[@]} > 0)); then
    root=()
    ((EUID == 0)) || root=(sudo -n)
    "${root[@]}" apt-get -q update || true # the index at hand may do
    "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300 install \
        --no-install-recommends "${missing[@]}" </dev/null || {
        echo "${0##*/}: could not install ${missing[*]}; install them as root and run this again" >&2
        exit 1
    }
fi

scripts/arm-sysroot.sh build/arm-sysroot
generator=()
[[ -e build/arm/CMakeCache.txt ]] || generator=(-G Ninja)
cmake --preset arm "${generator[@]}"
cmake --build --preset arm --parallel "$(nproc)" ${1:+--target "$@"}
