#!/usr/bin/env bash
# Records 600 MB with and without the write-back beside the writer, on this machine's disk, and shows how long the writer
# was kept by it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [[ ${1:-} == --help ]]; then
    cat <<'END'
usage: measure-write-back.sh [FOLDER [MEGABYTES [FRAMES-PER-SECOND]]]
  FOLDER             where to record, on the disk in question (default: build/write-back; it is made and removed)
  MEGABYTES          default 600
  FRAMES-PER-SECOND  default 600: twenty times the daemon's, so that it takes two minutes each
The recording thread gets a real-time priority where that is allowed, so that other work on the machine does not count
as the disk's.
END
    exit 0
fi
readonly folder=${1:-build/write-back}
if [[ -e $folder ]]; then
    echo "${0##*/}: $folder exists; name a folder that can be made and removed" >&2
    exit 2
fi
cmake --preset release >/dev/null
cmake --build build/release --target write_times >/dev/null
trap 'rm -rf "$folder"' EXIT

first=()
if chrt -f 10 true 2>/dev/null; then
    first=(chrt -f 10)
fi
for how in without with without with; do
    mkdir -p "$folder"
    sync -f "$folder"
    "${first[@]}" build/release/tests/survival/write_times "$folder/" "${2:-600}" "${3:-600}" "$how" | grep '^{'
    rm -rf "$folder"
done
