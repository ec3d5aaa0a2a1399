#!/usr/bin/env bash
# Installs what building, running and testing on Debian 12 needs, as far as it is missing. Never asks anything.
set -euo pipefail

declare -rA extras=(
    [--browser]="chromium chromium-driver python3-selenium"
    [--clang]="clang"
    [--fuzz]="clang libclang-rt-dev"
    [--bench]="libbenchmark-dev valgrind strace gnuplot-nox python3 python3-matplotlib time
        gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-x"
)
needed=(
    g++ cmake ninja-build pkg-config
    libfreetype-dev libx264-dev libyuv-dev libpng-dev libmicrohttpd-dev libturbojpeg0-dev
    libavformat-dev libavcodec-dev libavutil-dev libswscale-dev
    libcli11-dev nlohmann-json3-dev libgtest-dev libgmock-dev
    libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
    gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-libav
    ffmpeg fonts-dejavu-core
)

while (($# > 0)); do
    if [[ $1 == --help ]]; then
        cat <<END
usage: ${0##*/} [OPTION...]    installs the missing Debian packages, as root or through sudo without a password
  --browser  also those for looking at the console with a browser (large)
  --clang    also the other compiler
  --fuzz     also the compiler that brings the fuzzer
  --bench    also what only the benchmarks need: to measure, to draw, and their peers
END
        exit 0
    fi
    if [[ -z ${extras[$1]:-} ]]; then
        echo "${0##*/}: '$1' is not an option; see --help" >&2
        exit 2
    fi
    read -r -d "" -a more <<<"${extras[$1]}" || true
    needed+=("${more[@]}")
    shift
done
readonly needed
readonly wished=(ccache) # only makes building again faster

missing() {
    local package
    for package in "$@"; do
        if [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
            echo "$package"
        fi
    done
}

as_root() {
    if ((EUID == 0)); then
        "$@"
    else
        sudo -n "$@"
    fi
}

apt() {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300 "$@" </dev/null
}

install() {
    apt install --no-install-recommends "$@"
}

main() {
    if ! command -v dpkg-query >/dev/null; then
        echo "${0##*/}: not a Debian system; install by its own means what these hold: ${needed[*]}" >&2
        return 0 # the configuration that follows names whatever is not there
    fi
    local absent still
    mapfile -t absent < <(missing "${needed[@]}" "${wished[@]}")
    if ((${#absent[@]} == 0)); then
        return 0
    fi
    if ((EUID != 0)) && ! sudo -n true 2>/dev/null; then
        mapfile -t still < <(missing "${needed[@]}")
        if ((${#still[@]} == 0)); then
            return 0
        fi
        echo "${0##*/}: not root, and sudo would ask; run as root: apt-get install ${still[*]}" >&2
        return 1
    fi

    echo "Installing: ${absent[*]}"
    # An index that is partly out of date, or a mirror that lacks one file, shall cost a retry and not the run.
    apt update || echo "${0##*/}: the package index could not be refreshed, going on with the one at hand" >&2
    if ! install "${absent[@]}"; then
        apt update || true
        mapfile -t absent < <(missing "${needed[@]}")
        if ((${#absent[@]} > 0)); then
            install --fix-missing "${absent[@]}" || true
        fi
    fi

    mapfile -t still < <(missing "${needed[@]}")
    if ((${#still[@]} > 0)); then
        echo "${0##*/}: could not install ${still[*]}; check the package sources and run this again" >&2
        return 1
    fi
}

main
