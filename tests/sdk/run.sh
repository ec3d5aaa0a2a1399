#!/usr/bin/env bash
# Proves that the daemon builds with a board's SDK and with nothing of the virtual board: makes a small SDK in the flat
# layout of such (usr/include, usr/lib, one codec library), builds with the unchanged toolchain file, and looks what the
# compiler has read. Usage: run.sh SYSROOT BUILD-FOLDER
set -euo pipefail
here=$(realpath "$(dirname "${BASH_SOURCE[0]}")")
readonly here root=${here%/tests/sdk}

fail() {
    echo "sdk: $*" >&2
    exit 1
}
(($# == 2)) || { echo "usage: ${0##*/} SYSROOT BUILD-FOLDER" >&2; exit 2; }
readonly sysroot=$1 build=$2 cross=arm-linux-gnueabihf

# Debian's files, with the directories of several processors folded into one.
make_sdk() {
    local sdk=$1 script
    mkdir -p "$sdk/usr/lib" "$sdk/usr/include"
    ln -s usr/lib "$sdk/lib"
    cp -a "$sysroot/usr/lib/$cross/." "$sdk/usr/lib/"
    cp -a "$sysroot/usr/include/." "$sysroot/usr/include/$cross/." "$sdk/usr/include/"
    rm -rf "$sdk/usr/include/$cross" "$sdk"/usr/lib/{libx264,libyuv,libgtest,libgmock}*
    ln -sf libfreetype.so.6 "$sdk/usr/lib/libfreetype.so"
    while read -r script; do
        sed -i "s#/$cross/#/#g" "$script"
    done < <(grep -rlIs "/lib/$cross/" "$sdk/usr/lib" --include='*.so' --include='*.pc')
    cp "$here"/include/* "$sdk/usr/include/"
    "$cross-gcc" --sysroot="$sdk" -shared -fPIC -I"$here/include" -Wl,-soname,libvpu.so.4 \
        -o "$sdk/usr/lib/libvpu.so.4" "$here/vpu.c"
    ln -s libvpu.so.4 "$sdk/usr/lib/libvpu.so"
}

rm -rf "$build"
mkdir -p "$build"
make_sdk "$build/sdk"
cmake -S "$root" -B "$build/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELCAM_WERROR=ON -DVELCAM_SYSROOT="$build/sdk" \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-arm.cmake" -DVELCAM_VBOARD=OFF -DVELCAM_TESTS=OFF -DVELCAM_TOOLS=OFF >"$build/log"
cmake --build "$build/build" --target velcamd >>"$build/log" || { tail -n 30 "$build/log" >&2; fail "does not build"; }

readonly daemon=$build/build/bin/velcamd
read_files=$(ninja -C "$build/build" -t deps | sed -n 's/^    //p' | sort -u)
grep -q "sdk/usr/include/vpu_lib.h" <<<"$read_files" || fail "the SDK's vpu_lib.h was not read"
! grep "/vboard/" <<<"$read_files" || fail "the files above belong to the virtual board"
! grep -h "vboard/" "$build/build/build.ninja" || fail "the rules above belong to the virtual board"
"$cross-readelf" -d "$daemon" | grep -q 'NEEDED.*libvpu.so.4' || fail "not linked with the SDK's codec library"
qemu-arm-static -L "$build/sdk" "$daemon" --version >/dev/null || fail "does not start"
echo "sdk: builds with the SDK alone, $(wc -l <<<"$read_files") files read, none of the virtual board"
