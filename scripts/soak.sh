#!/usr/bin/env bash
# Runs the daemon on a virtual board for long, as fast as the cameras deliver, with its recording rotated again and again,
# and fails when memory, descriptors, threads or the disk grow. The last line is for machines.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

usage() {
    cat <<END
usage: ${0##*/} [--preset PRESET] [SECONDS | --day]

Runs for SECONDS (default 40), or until a day of video at 30 frames per second is recorded, on a board whose devices move
no pixels. Meanwhile the states change. A recording needs long to reach the size at which it is rotated, so this script
extends it by a hole in the file: it is rotated about every six seconds. Older files are emptied, to spare the disk.
END
}

bad_usage() {
    echo "${0##*/}: $1; see --help" >&2
    exit 2
}

preset=release
seconds=40
frames=0
while (($# > 0)); do
    case $1 in
        --help) usage; exit 0 ;;
        --preset)
            (($# > 1)) || bad_usage "--preset takes a name"
            preset=$2
            shift
            ;;
        --day) frames=$((24 * 3600 * 30 * 11 / 10)); seconds=0 ;; # some of them while nothing is recorded
        *)
            [[ $1 =~ ^[1-9][0-9]*$ ]] || bad_usage "'$1' is no number of seconds"
            seconds=$1
            ;;
    esac
    shift
done

readonly bin=$PWD/build/$preset/bin
readonly limit=600000000     # bytes: from here on a recording is rotated
readonly most_generations=31 # besides the live file
readonly settled=10          # seconds until everything is in use that ever will be
readonly memory_growth=4096  # kB that may be found later all the same
folder=$(mktemp -d)
readonly folder
readonly recordings=$folder/board/root/velmarine/f/camrecord
board=
reader=

finish() {
    [[ -z $board ]] || kill -INT "$board" 2>/dev/null || true
    [[ -z $board ]] || wait "$board" || true # a blocked daemon needs its reader until it ends
    [[ -z $reader ]] || kill -INT "$reader" 2>/dev/null || true
    wait
    rm -rf "$folder"
}
trap finish EXIT

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

child_of() {
    local -a children=()
    read -r -a children <"/proc/$1/task/$1/children" || true # the line has no end
    ((${#children[@]} > 0)) && echo "${children[0]}"
}

# The daemon's process, once it records.
recording_daemon() {
    local found
    found=$(child_of "$board") && [[ $(cat "/proc/$found/comm") == velcamd && -s $recordings/cam.avi ]] && echo "$found"
}

start() {
    local options=()
    ((frames == 0)) || options=(--devices idle --frames "$frames")
    "$bin/vboard" run --board "$folder/board" --cpu dual-lite --fps max --codec-preset ultrafast \
        --report "$folder/report" "${options[@]}" -- "$bin/velcamd" \
        >"$folder/output" 2>&1 &
    board=$!
    local tries
    for ((tries = 0; tries < 300; ++tries)); do
        daemon=$(recording_daemon) && break
        kill -0 "$board" 2>/dev/null || fail "the daemon did not start: $(tail -n 3 "$folder/output")"
        sleep 0.1
    done
    [[ -n $daemon ]] || fail "the daemon does not record: $(tail -n 3 "$folder/output")"
    # As a controller would: nobody is kept waiting by a full queue.
    "$bin/vboard" attach --board "$folder/board" -- "$bin/velcamctl" status --follow >/dev/null 2>&1 &
    reader=$!
}

control() {
    timeout 10 "$bin/vboard" attach --board "$folder/board" -- "$bin/velcamctl" "$@" >/dev/null 2>&1 || true
}

# Keeps least and most of a measure.
note() {
    local -n least=$1_least most=$1_most
    ((least < 0 || $2 < least)) && least=$2
    (($2 > most)) && most=$2
    return 0
}
rss_least=-1 rss_most=-1 fds_least=-1 fds_most=-1 threads_least=-1 threads_most=-1 files_most=-1
# shellcheck disable=SC2034 # note() keeps both ends of every measure
files_least=-1

measure() {
    local status
    status=$(cat "/proc/$daemon/status" 2>/dev/null) || return 0
    # Resident memory without the board's own, which is shared with it.
    note rss "$(awk '/^RssAnon/ { print $2 }' <<<"$status")"
    note threads "$(awk '/^Threads/ { print $2 }' <<<"$status")"
    note fds "$(find "/proc/$daemon/fd" -mindepth 1 2>/dev/null | wc -l)"
    note files "$(find "$recordings" -type f | wc -l)"
}

# Has the live file rotated at the daemon's next look at it.
enlarge() {
    local size
    size=$(stat -c %s "$recordings/cam.avi" 2>/dev/null) || return 0
    if ((size > 2000 && size < limit)); then
        truncate -s "+$limit" "$recordings/cam.avi"
    fi
}

rotations=0
largest=0 # bytes of a recording, its hole left out
empty_older() {
    local file bytes
    for file in "$recordings"/cam.avi.*.avi; do
        bytes=$(($(stat -c '%b * %B' "$file" 2>/dev/null || echo 0)))
        if ((bytes > 0)); then
            rotations=$((rotations + 1))
            ((bytes <= largest)) || largest=$bytes
            truncate -s 0 "$file" 2>/dev/null || true # it may have moved on meanwhile
        fi
    done
}

exercise() {
    local -r states=("camera 1 2" "camera 1" "backup 2" "idle" "camera 2")
    control state transfer 1 # for a moment: it records nothing
    # shellcheck disable=SC2086 # words on purpose
    control state ${states[$(($1 % ${#states[@]}))]}
}

main() {
    [[ -x $bin/velcamd ]] || scripts/build.sh "$preset" velcamd vboard velcamctl >/dev/null
    start
    local -r began=$SECONDS
    local passes=0
    while kill -0 "$board" 2>/dev/null && ((seconds == 0 || SECONDS - began < seconds)); do
        empty_older
        enlarge
        ((passes % 5 == 0)) && exercise $((passes / 5))
        ((SECONDS - began < settled)) || measure
        passes=$((passes + 1))
        sleep 1
    done
    kill -INT "$board" 2>/dev/null || true
    local status=0
    wait "$board" || status=$?
    board=
    ((status == 0)) || fail "the daemon ended with status $status: $(tail -n 3 "$folder/output")"
    judge $((SECONDS - began))
}

judge() {
    local encoded verdict=ok
    encoded=$(sed -n 's/.*"framesEncoded": \([0-9]*\).*/\1/p' "$folder/report")
    ((rss_most - rss_least <= memory_growth)) || verdict=memory
    ((fds_most - fds_least <= 2)) || verdict=descriptors # a log line or a status file may be open at that instant
    ((threads_most == threads_least)) || verdict=threads
    ((files_most <= most_generations + 1)) || verdict=files
    ((encoded > 0 && rotations > 0)) || verdict=nothing
    echo "soak: verdict=$verdict seconds=$1 frames=$encoded video_s=$((encoded / 30)) rotations=$rotations" \
        "rss_kb=$rss_least-$rss_most fds=$fds_least-$fds_most threads=$threads_least-$threads_most" \
        "files=$files_most largest_file_kb=$((largest / 1024))"
    [[ $verdict == ok ]]
}

main
