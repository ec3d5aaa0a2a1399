#!/usr/bin/env bash
# Builds for the panel's processor and proves what can be proved without a panel: what the daemon is linked with, that it
# builds with an SDK alone, every test in an emulator, and the installed package recording on a virtual board.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [[ ${1:-} == --help ]]; then
    echo "usage: ${0##*/} [CTEST-OPTION...]"
    exit 0
fi
mkdir -p build
readonly build=$PWD/build/arm sysroot=$PWD/build/arm-sysroot cross=arm-linux-gnueabihf
readonly bin=$build/bin

step() {
    echo "== $* (${SECONDS} s)"
}
fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# --- what the panel has to carry

check_daemon() {
    local allowed='^(libc|libm|libgcc_s|libstdc\+\+|libfreetype|libvpu|ld-linux-armhf)\.so(\.[0-9]+)*$' library attributes tag
    while read -r library; do
        [[ $library =~ $allowed ]] || fail "velcamd needs $library, which a panel does not have"
    done < <("$cross-readelf" -d "$bin/velcamd" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    attributes=$("$cross-readelf" -A "$bin/velcamd")
    for tag in 'Tag_CPU_arch: v7$' 'Tag_FP_arch: VFPv3-D16$' 'Tag_ABI_VFP_args: VFP registers$'; do
        grep -q "$tag" <<<"$attributes" || fail "velcamd is not built for the panel's processor: no '$tag'"
    done
    # The lowest bit of a function's address says that it is in the Thumb set.
    "$cross-readelf" -sW "$bin/velcamd" | awk '$8 == "main" { odd = $2 ~ /[13579bdf]$/ } END { exit !odd }' ||
        fail "velcamd is not in the Thumb set"
    "$cross-strip" -o "$build/velcamd.stripped" "$bin/velcamd"
    echo "velcamd: $(stat -c %s "$build/velcamd.stripped") bytes stripped; needs" \
        "$("$cross-readelf" -d "$bin/velcamd" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd ' ')"
    "$cross-size" "$bin/velcamd"
}

# The newest version of each library's symbols in use must be one that the package asks for.
check_dependencies() {
    local deb=$1 program newest
    for program in velcamd velcamctl; do
        newest=$("$cross-objdump" -T "$bin/$program" | grep -o 'GLIBC_[0-9.]*' | sort -uV | tail -n 1)
        newest=${newest#GLIBC_}
        dpkg-deb -f "$deb" Depends | grep -q "libc6 (>= $newest)" ||
            dpkg --compare-versions "$(dpkg-deb -f "$deb" Depends | sed 's/.*libc6 (>= \([0-9.]*\)).*/\1/')" ge "$newest" ||
            fail "$program needs libc6 $newest, which the package does not ask for"
    done
}

# --- the package, installed where a panel's root would be

check_package() {
    local root=$build/panel board=$build/panel-board deb
    (cd "$build" && rm -f ./*.deb && cpack >"$build/cpack.log")
    deb=$(echo "$build"/velcam_*_armhf.deb)
    check_dependencies "$deb"
    if command -v lintian >/dev/null; then
        lintian --fail-on error,warning --allow-root "$deb" || fail "lintian has found the above"
    else
        echo "lintian is not installed: the package's form was not looked at"
    fi

    rm -rf "$root" "$board"
    cp -a "$sysroot" "$root"
    mkdir -p "$root"/var/lib/dpkg/{info,updates,triggers}
    touch "$root/var/lib/dpkg/status"
    # The other packages came with the sysroot, unregistered; the scripts are run by this machine's shell.
    dpkg --root="$root" --add-architecture armhf
    dpkg --root="$root" --force-not-root --force-depends --force-script-chrootless --log=/dev/null \
        --install "$deb" >"$build/dpkg.log" 2>&1 || { cat "$build/dpkg.log" >&2; fail "the package cannot be installed"; }
    [[ -x $root/usr/bin/velcamd && -s $root/velmarine/config/VelMain.cfg ]] || fail "the package lacks files"
    cp "$bin/libvpu.so" "$root/usr/lib/" # the SDK's library, on a panel

    # The launcher is this machine's, of 64 bits, the daemon the panel's, of 32: the board's state is the same to both.
    scripts/build.sh release vboard >"$build/vboard.log" || { tail "$build/vboard.log" >&2; fail "no launcher"; }
    build/release/bin/vboard run --board "$board" --cpu dual-lite --fps max --frames 60 --report "$build/panel.json" \
        --emulator "qemu-arm-static -L $root" --library "$bin/libvboard.so" -- "$root/usr/bin/velcamd" \
        >"$build/panel.log" 2>&1 || { cat "$build/panel.log" >&2; fail "the installed daemon failed"; }
    local recording=$board/root/velmarine/f/camrecord/cam.avi complaints pictures
    complaints=$(ffmpeg -nostdin -v error -i "$recording" -f null - 2>&1) || true
    [[ -z $complaints ]] || fail "the recording does not decode: $complaints"
    pictures=$(ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 "$recording")
    ((pictures >= 50)) || fail "the recording has $pictures pictures"
    echo "package: installed, and $pictures pictures recorded by its daemon"
}

scripts/install-deps.sh
step "build"
scripts/build-arm.sh >"$build.log" 2>&1 || { grep -E 'error|FAILED' "$build.log" >&2 || tail -n 30 "$build.log" >&2; fail "does not build"; }
step "what the daemon needs"
check_daemon
step "with an SDK alone"
tests/sdk/run.sh "$sysroot" "$PWD/build/arm-sdk"
step "tests in an emulator"
# Tests of whole programs take too long here, and some run this machine's own shell; release has them. The daemon as a
# whole is tried below, from its package.
scripts/arm-here.sh ctest --test-dir "$build" --output-on-failure --no-tests=error --parallel "$(nproc)" "$@"
step "the package"
check_package
step "done"
