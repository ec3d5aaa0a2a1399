#!/usr/bin/env bash
# Runs a command where this machine starts ARM programs as if they were its own: the kernel hands them to qemu-arm, and
# they find their libraries in the sysroot. The setting lives in a namespace of the command's own, the machine keeps none.
set -euo pipefail
here=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
readonly here

if [[ ${1:-} == --help ]]; then
    echo "usage: ${0##*/} COMMAND [ARGUMENT...]    VELCAM_SYSROOT: the sysroot (default build/arm-sysroot)"
    exit 0
fi
fail() {
    echo "${0##*/}: $1" >&2
    exit "${2:-1}"
}
(($# > 0)) || fail "name the command to run; see --help" 2

export QEMU_LD_PREFIX=${VELCAM_SYSROOT:-$here/build/arm-sysroot}
[[ -d $QEMU_LD_PREFIX ]] || fail "there is no sysroot in $QEMU_LD_PREFIX; run scripts/arm-sysroot.sh $QEMU_LD_PREFIX"
# The static variant: with it a preloaded library is the ARM program's alone.
qemu=$(command -v qemu-arm-static) || fail "needs qemu-arm-static; install the package qemu-user-static"

# Inside the namespaces. The magic is an ELF file's beginning, 32 bits, little endian, a program or library, for ARM; the
# mask leaves out the ABI bytes. Flag P keeps argv[0], F opens the interpreter now.
readonly magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00'
readonly mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
enter() {
    mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc &&
        printf '%s' ":velcam-arm:M::$magic:$mask:$qemu:PF" >/proc/sys/fs/binfmt_misc/register &&
        exec "$@"
}

if "$QEMU_LD_PREFIX/usr/bin/gencat" --version >/dev/null 2>&1; then
    exec "$@" # the machine does it already
fi
if ! unshare --user --map-root-user --mount --ipc true 2>/dev/null; then
    fail "this system lets nobody make a user namespace; set up qemu-user-static's binfmt_misc entry as root"
fi
export -f enter
export magic mask qemu
exec unshare --user --map-root-user --mount --ipc bash -c 'enter "$@" || exit 125' bash "$@"
