#!/usr/bin/env bash
# Makes the sysroot that the ARM build links with and that qemu-arm runs its programs in: Debian's armhf packages,
# unpacked into a folder. The machine's own packages and architectures are left alone; apt works in a state of its own.
set -euo pipefail

usage() {
    cat <<'END'
usage: arm-sysroot.sh [--force] DIR
Makes DIR from Debian's armhf packages, unless it is there and complete. --force makes it anew.
The downloaded packages and apt's state are kept in DIR.apt: a run that was cut short goes on from there.
END
}

fail() {
    echo "${0##*/}: $1" >&2
    exit "${2:-1}"
}

force=
case ${1:-} in
    --help)
        usage
        exit 0
        ;;
    --force)
        force=1
        shift
        ;;
esac
(($# == 1)) && [[ $1 != -* ]] || fail "takes one folder; see --help" 2
mkdir -p "$1.apt"
sysroot=$(realpath -m "$1")
state=$(realpath "$1.apt")
readonly sysroot state
readonly needed=(
    libc6-dev libstdc++6 libfreetype-dev                    # the daemon
    libx264-dev libyuv-dev libpng-dev                       # the virtual board
    libgtest-dev libgmock-dev libcli11-dev nlohmann-json3-dev # tools and tests
)

readonly have="${needed[*]}"
if [[ -z $force && -e $sysroot/.packages && $(head -n 1 "$sysroot/.packages") == "$have" ]]; then
    exit 0
fi
command -v apt-get dpkg-deb >/dev/null || fail "needs Debian's apt-get and dpkg-deb"

# --- apt, with its own state and the machine's sources

readonly archives=$state/cache/archives
mkdir -p "$state/lists/partial" "$archives/partial"
: >>"$state/status" # nothing is installed: the whole closure of dependencies is wanted
cat >"$state/apt.conf" <<END
Dir::State "$state";
Dir::State::status "$state/status";
Dir::Cache "$state/cache";
Dir::Log "$state";
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Install-Recommends "false";
APT::Sandbox::User "";
Acquire::Retries "3";
Acquire::Languages "none";
Debug::NoLocking "true";
END

with_state() {
    APT_CONFIG=$state/apt.conf "$@"
}

# The machine's settings for apt are read after the file above, and some empty the package cache.
apt() {
    with_state apt-get -q -y -o APT::Keep-Downloaded-Packages=true -o Dir::Cache="$state/cache" "$@" </dev/null
}

# What is to be unpacked: "name version" a line.
closure() {
    apt install --simulate "${needed[@]}" | sed -n 's/^Inst \([^ ]*\) (\([^ ]*\) .*/\1 \2/p'
}

# The file that a package was downloaded to; without a version, of any. Colons in versions are escaped in names.
archive_of() {
    local begin=$archives/${1}_${2:+${2//:/%3a}_} file
    for file in "$begin"*.deb; do
        if [[ -e $file ]] && dpkg-deb --info "$file" >/dev/null 2>&1; then
            echo "$file"
            return 0
        fi
    done
    return 1
}

# An index may name a version that its mirror has dropped, or not have yet: any version the index knows will do.
fetch_alone() {
    local name=$1 version
    while read -r version; do
        echo "${0##*/}: $name: trying version $version" >&2
        if (cd "$archives" && apt download "$name=$version") && archive_of "$name" "$version" >/dev/null; then
            return 0
        fi
    done < <(with_state apt-cache madison "$name" | awk -F ' *[|] *' '{ print $2 }' | uniq)
    return 1
}

refresh() {
    local attempt
    for attempt in 1 2 3; do
        if apt update; then
            return 0
        fi
        echo "${0##*/}: part of the armhf index could not be had (attempt $attempt)" >&2
    done
}

download() {
    local name version lost=()
    apt install --download-only --fix-missing "${needed[@]}" ||
        echo "${0##*/}: not every package came at the first go, fetching those one by one" >&2
    while read -r name version; do
        if ! archive_of "$name" "$version" >/dev/null && ! fetch_alone "$name"; then
            lost+=("$name")
        fi
    done <<<"$1"
    ((${#lost[@]} == 0)) || fail "could not get ${lost[*]}; check the package sources and run this again"
}

# --- the tree

# What is linked to from the root of the system has to be found below the sysroot's.
relate_links() {
    local link target
    while read -r -d '' link; do
        target=$(readlink "$link")
        ln -sfn "$(realpath -m -s --relative-to="$(dirname "$link")" "$1$target")" "$link"
    done < <(find "$1" -type l -lname '/*' -print0)
}

unpack() {
    local tree=$sysroot.new name version file
    rm -rf "$tree"
    mkdir -p "$tree/usr/lib" "$tree/usr/bin" "$tree/usr/sbin"
    ln -s usr/lib usr/bin usr/sbin "$tree/" # merged, as in every installed system
    while read -r name version; do
        file=$(archive_of "$name" "$version" || archive_of "$name" "") || fail "lost the package $name"
        dpkg-deb --fsys-tarfile "$file" |
            tar -x -C "$tree" --no-same-owner --keep-directory-symlink --exclude='./usr/share/doc/*' \
                --exclude='./usr/share/locale/*' --exclude='./usr/share/man/*' --exclude='./usr/lib/*/gconv/*'
    done <<<"$1"
    relate_links "$tree"
    printf '%s\n' "$have" "$1" >"$tree/.packages"
    rm -rf "$sysroot"
    mv "$tree" "$sysroot"
}

refresh || true # with an index from an earlier run the packages may all be at hand
packages=$(closure) && [[ -n $packages ]] ||
    fail "the armhf index does not offer ${needed[*]}; check the package sources and run this again"
download "$packages"
unpack "$packages"
echo "${0##*/}: $(wc -l <<<"$packages") packages in $sysroot"
