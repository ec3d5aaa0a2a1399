#!/usr/bin/env bash
# Makes a recording of 600 MB, 40 minutes of video, with restarts, a kill and a rotation in it, lets velcamrec and players work on it, and
# writes what was measured into docs/recordings.md.
# shellcheck disable=SC2016 # backquotes are for the document, and a dollar in quotes for an inner shell
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/measuring.sh

usage() {
    cat <<'END'
usage: measure-recordings.sh [--bin DIR] [--work DIR] [--print]
  --bin DIR   the programs to measure (default: build/release/bin, which is built first)
  --work DIR  where the recordings are put, about 3 GB; they are removed at the end (default: build/measure)
  --print     show the result instead of writing it into docs/recordings.md
Needs besides the build's packages: time, python3-gi, gir1.2-gstreamer-1.0, gstreamer1.0-plugins-base,
gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-libav.
END
}

bin=
work=build/measure
into=docs/recordings.md
measuring_options "$@"
if [[ -z $bin ]]; then
    bin=build/release/bin
    scripts/build.sh release velcamrec velcamctl velcamd vboard
fi
[[ -x /usr/bin/time ]] || { echo "${0##*/}: install the package time" >&2; exit 1; }
/usr/bin/python3 -c 'import gi; gi.require_version("Gst", "1.0")' || { echo "${0##*/}: see --help for what to install" >&2; exit 1; }

readonly header=792
readonly live=$work/board/root/velmarine/f/camrecord/cam.avi
readonly file=$live.00.avi
readonly seek=1500 # seconds
readonly result=$work/result.md

daemon=
reader=
cleanup() {
    trap - EXIT INT TERM
    if [[ -n $reader ]]; then
        kill "$reader" 2>/dev/null || true
    fi
    if [[ -n $daemon ]]; then
        kill -KILL -- "-$daemon" 2>/dev/null || true # the group of the launcher, and of nobody else
    fi
    rm -rf "$work"
}
rm -rf "$work"
mkdir -p "$work"
trap cleanup EXIT
trap 'exit 130' INT TERM

say() {
    printf '%4d s  %s\n' "$SECONDS" "$*" >&2
}

# --- the recording

record() {
    "$bin/vboard" run --board "$work/board" --cpu dual-lite --codec-preset ultrafast --fps max "$@" -- "$bin/velcamd" >>"$work/velcamd.txt" 2>&1 </dev/null
}

start_daemon() {
    set -m # a process group of its own, to be killed as a whole
    record &
    daemon=$!
    set +m
}

end_daemon() {
    kill "-$1" -- "-$daemon"
    wait "$daemon" 2>/dev/null || true
    daemon=
}

# Reads the daemon's reports as its controller does: while nobody reads, it looks at no file's size.
read_reports() {
    local -r ask=("$bin/vboard" attach --board "$work/board" -- "$bin/velcamctl" status)
    until "${ask[@]}" >/dev/null 2>&1 </dev/null; do
        sleep 0.1
    done
    exec "${ask[@]}" --follow >/dev/null 2>&1 </dev/null # in a process of its own, for make_recording to end
}

size() {
    stat -c %s "$1" 2>/dev/null || echo 0
}

wait_until() {
    local i
    for ((i = 0; i < 6000; i++)); do
        if "$@"; then
            return 0
        fi
        sleep 0.1
    done
    echo "${0##*/}: waited in vain for: $*" >&2
    return 1
}

grown_by() {
    (($(size "$live") > $1 + $2))
}

make_recording() {
    local run before
    for run in 1 2 3; do
        say "recording, run $run of 5"
        record --frames 20000
        [[ $run != 1 ]] || cp "$live" "$work/first.avi"
    done
    say "recording, run 4 of 5, which is killed"
    before=$(size "$live")
    start_daemon
    wait_until grown_by "$before" 20000000
    end_daemon KILL
    truncate -s -1500 "$live" # what a power cut takes: the end that had not reached the disk
    say "recording, run 5 of 5, until the file has been rotated"
    start_daemon
    read_reports &
    reader=$!
    wait_until test -e "$file"
    wait_until grown_by 0 3000000
    end_daemon INT
    kill "$reader" 2>/dev/null || true
    wait "$reader" 2>/dev/null || true
}

# --- times and memory

best=
peak=
# measure COMMAND...: the shortest of three runs in seconds, and the peak memory in kB.
measure() {
    local i seconds memory
    best=
    peak=0
    for ((i = 0; i < ${runs:-3}; i++)); do
        /usr/bin/time -q -f '%e %M' -o "$work/time" "$@" >"$work/out" 2>&1 || true
        read -r seconds memory < <(tail -n 1 "$work/time")
        if [[ -z $best ]] || awk "BEGIN { exit !($seconds < $best) }"; then best=$seconds; fi
        if ((memory > peak)); then peak=$memory; fi
    done
}

ratio() {
    awk "BEGIN { if ($2 > 0) printf \"%.1f\", $1 / $2; else printf \"-\" }"
}

row() {
    printf '| %s | %s s | %s | %s MB | %s |\n' "$1" "$best" "$(ratio "$best" "$cat_seconds")" \
        "$(awk "BEGIN { printf \"%.1f\", $peak / 1000 }")" "$(ratio "$peak" "$cat_peak")"
}

verbs() {
    cat "$file" >/dev/null # everything is measured with the file in memory, as far as it fits there
    measure sh -c 'cat "$1" >/dev/null' sh "$file"
    cat_seconds=$best cat_peak=$peak
    echo '| work on the file | time | to `cat` | peak memory | to `cat` |'
    echo '|---|---|---|---|---|'
    row '`cat FILE >/dev/null`'
    measure cp "$file" "$work/copy.avi"
    row '`cp FILE COPY`'
    rm "$work/copy.avi"
    measure "$bin/velcamrec" --version
    row '`velcamrec --version`'
    measure "$bin/velcamrec" list "$(dirname "$file")"
    row '`list` (with the live file)'
    measure "$bin/velcamrec" check "$file"
    row '`check`'
    measure "$bin/velcamrec" repair "$file" -o "$work/repaired.avi" --force
    row '`repair`'
    local kind
    for kind in avi mp4 mkv; do
        measure "$bin/velcamrec" index "$file" -o "$work/indexed.$kind" --force
        row "\`index -o OUT.$kind\`"
    done
    measure "$bin/velcamrec" cut "$file" --from 25:00 --to 26:00 -o "$work/cut.mp4" --force
    row '`cut --from 25:00 --to 26:00 -o OUT.mp4`'
    measure "$bin/velcamrec" grab "$file" --at 25:00 -o "$work/grabbed.png" --force
    row '`grab --at 25:00`'
    measure "$bin/velcamrec" check "$work/first.avi"
    printf '\n`check` on a recording of %s MB takes %s MB of memory: it does not grow with the file.\n' \
        "$(($(size "$work/first.avi") / 1000000))" "$(awk "BEGIN { printf \"%.1f\", $peak / 1000 }")"
}

# --- seeking

gstreamer_seek() {
    timeout 300 /usr/bin/python3 - "$1" "$seek" <<'END'
import sys, time, gi
gi.require_version("Gst", "1.0")
from gi.repository import Gst
Gst.init(None)
path, seconds = sys.argv[1], int(sys.argv[2])
began = time.monotonic()
pipeline = Gst.parse_launch("filesrc name=source ! decodebin ! fakesink name=sink sync=false")
pipeline.get_by_name("source").set_property("location", path)
pipeline.set_state(Gst.State.PAUSED)
if pipeline.get_state(120 * Gst.SECOND)[0] != Gst.StateChangeReturn.SUCCESS:
    sys.exit("does not play")
if not pipeline.seek_simple(Gst.Format.TIME, Gst.SeekFlags.FLUSH | Gst.SeekFlags.ACCURATE, seconds * Gst.SECOND):
    sys.exit("refuses to seek")
if pipeline.get_state(120 * Gst.SECOND)[0] != Gst.StateChangeReturn.SUCCESS:
    sys.exit("does not arrive")
took = time.monotonic() - began
segment_time = pipeline.get_by_name("sink").get_property("last-sample").get_buffer().pts / Gst.SECOND
pipeline.set_state(Gst.State.NULL)
if abs(segment_time - seconds) > 1:
    sys.exit(f"arrives at {segment_time:.0f} s")
print(f"{took:.2f} s")
END
}

# Seconds for one picture, or why there is none.
ffmpeg_seek() {
    local said began ended
    began=$(date +%s.%N)
    said=$(timeout 300 ffmpeg -nostdin -v error -ss "$seek" -i "$1" -frames:v 1 -f framemd5 - 2>/dev/null | grep -c '^0') || true
    ended=$(date +%s.%N)
    if [[ $said == 1 ]]; then
        awk "BEGIN { printf \"%.2f s\", $ended - $began }"
    else
        echo "no picture"
    fi
}

seeks() {
    echo "| one picture at 25:00 of | FFmpeg | GStreamer |"
    echo '|---|---|---|'
    local name path
    for name in raw avi mp4 mkv; do
        path=$work/indexed.$name
        [[ $name == raw ]] && path=$file
        printf '| %s | %s | %s |\n' "$([[ $name == raw ]] && echo 'the recording' || echo "\`index -o OUT.$name\`")" \
            "$(ffmpeg_seek "$path")" "$(gstreamer_seek "$path" 2>&1 | tail -n 1)"
    done
}

# --- frame by frame

# A hash a coded picture, without what containers may add or leave out.
frames() {
    ffmpeg -nostdin -v error -i "$1" -c copy -bsf:v "${2}filter_units=remove_types=6-9" -f framemd5 - |
        grep -v '^#' | sed 's/.*, *//'
}

comparison() {
    local name first second lost added
    frames "$file" '' >"$work/raw.frames"
    frames "$work/repaired.avi" '' >"$work/repaired.frames"
    for name in avi mp4 mkv; do
        frames "$work/indexed.$name" "$([[ $name == avi ]] || echo h264_mp4toannexb,)" >"$work/$name.frames"
    done
    echo '| frames compared one by one | in the first | in the second | only in the first | only in the second |'
    echo '|---|---|---|---|---|'
    for name in "raw repaired" "repaired avi" "repaired mp4" "repaired mkv"; do
        first=${name% *} second=${name#* }
        lost=$(diff "$work/$first.frames" "$work/$second.frames" | grep -c '^<' || true)
        added=$(diff "$work/$first.frames" "$work/$second.frames" | grep -c '^>' || true)
        printf '| %s | %s | %s | %s | %s |\n' "${name/ / and }" "$(wc -l <"$work/$first.frames")" \
            "$(wc -l <"$work/$second.frames")" "$lost" "$added"
    done
}

shown() {
    printf '\n```\n$ velcamrec %s\n' "$1"
    shift
    "$bin/velcamrec" "$@" 2>&1 | sed -e "s#$(dirname "$file")/##g; s#$(dirname "$file")#camrecord#g; s#$work/##g" || true
    echo '```'
}

outputs() {
    local records
    records=$(dirname "$file")
    shown 'list camrecord' list "$records"
    shown 'check cam.avi.00.avi' check "$file"
    shown 'repair cam.avi.00.avi -o repaired.avi' repair "$file" -o "$work/repaired.avi" --force
    shown 'check repaired.avi' check "$work/repaired.avi"
    shown 'index cam.avi.00.avi -o indexed.avi' index "$file" -o "$work/indexed.avi" --force
    shown 'cut cam.avi.00.avi --from 25:03 --to 25:05 -o cut.mp4' cut "$file" --from 25:03 --to 25:05 \
        -o "$work/cut.mp4" --force
    shown 'grab cam.avi.00.avi --at 25:00 --camera 2 -o grabbed.png' grab "$file" --at 25:00 --camera 2 \
        -o "$work/grabbed.png" --force
}

report() {
    printf 'Measured on %s processors (load %s at the begin); the shortest of three runs each.\n' "$(nproc)" \
        "$(cut -d ' ' -f 1 /proc/loadavg)"
    say "outputs" && outputs && echo
    say "times and memory" && verbs && echo
    say "seeking" && seeks && echo
    say "frames" && comparison
}

make_recording
say "measuring"
report >"$result"
if [[ -n $into ]]; then
    write_between measured "$result" "$into"
    say "written into $into"
else
    cat "$result"
fi
