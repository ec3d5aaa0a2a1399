#!/usr/bin/env bash
# Runs velcamd on a virtual board, drives it through its states and checks what it recorded. Does all that a fresh
# Debian 12 needs first.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

usage() {
    cat <<'END'
usage: run.sh [OPTION...]
  --seconds N         how long to run, at least 12 (default 15)
  --cpu quad|dual-lite
  --camera N=SOURCE   camera 1 to 4: pattern, file:PATH, v4l2:/dev/videoX or none; may be given often
  --board DIR         the board's folder; one that exists is used as it is (default: a fresh build/run/board)
  --console [[ADDR:]PORT]
                      run until Ctrl-C with a console for the browser, whose address is printed, instead of going
                      through the states; reached from this machine alone unless ADDR says else (default: any port)
  --help
Exit status 0 when the daemon did what it was asked and its recording is whole, else 1; 2 on bad usage, or while another
run is under way.
END
}

bad_usage() {
    echo "run.sh: $1; see run.sh --help" >&2
    exit 2
}

# --- what is asked for

seconds=15
cpu=quad
board=
console=
cameras=()
while (($# > 0)); do
    case $1 in
        --help)
            usage
            exit 0
            ;;
        --console)
            console=0
            shift
            if [[ ${1:-} =~ ^([^-].*:)?[0-9]+$ ]]; then
                console=$1
                shift
            fi
            ;;
        --console=?*)
            console=${1#*=}
            shift
            ;;
        --seconds | --cpu | --camera | --board)
            (($# > 1)) || bad_usage "$1 needs a value"
            case $1 in
                --seconds) seconds=$2 ;;
                --cpu) cpu=$2 ;;
                --camera) cameras+=(--camera "$2") ;;
                --board) board=$2 ;;
            esac
            shift 2
            ;;
        *) bad_usage "'$1' is not an option" ;;
    esac
done
if [[ ! $seconds =~ ^[1-9][0-9]{1,5}$ ]] || ((seconds < 12)); then
    bad_usage "--seconds takes a number from 12 up"
fi
if [[ $cpu != quad && $cpu != dual-lite ]]; then
    bad_usage "--cpu takes quad or dual-lite"
fi

readonly out=build/run
mkdir -p "$out"
exec {lock}>"$out/lock" # the daemon's launcher holds it too, should this script be killed
if ! flock -n "$lock"; then
    echo "run.sh: another run of it is under way here, or its board is still up" >&2
    exit 2
fi
if [[ -z $board ]]; then
    board=$out/board
    rm -rf "$board"
fi
readonly bin=build/release/bin recording=$board/root/velmarine/f/camrecord/cam.avi
readonly log=$out/velcamd.txt report=$out/report.json reported=$out/status.txt
if [[ $cpu == quad ]]; then readonly size=1440x990; else readonly size=1440x510; fi

# --- helpers

daemon=
follower=
began=0
faults=0

say() {
    printf '%3d s  %s\n' "$((SECONDS - began))" "$*"
}

fault() {
    echo "run.sh: $*" >&2
    faults=$((faults + 1))
}

running() {
    [[ -n $daemon ]] && kill -0 "$daemon" 2>/dev/null
}

end_follower() {
    [[ -n $follower ]] || return 0
    kill -INT "$follower" 2>/dev/null || true
    wait "$follower" || true
    follower=
}

# Ends the daemon as its users do. One that does not heed is killed, with its launcher.
end_daemon() {
    local i status=0
    if ! running; then
        end_follower
        return 1
    fi
    kill -INT "$daemon"
    for ((i = 0; i < 100; i++)); do
        running || break
        sleep 0.1
    done
    if running; then
        fault "velcamd did not end within 10 s of SIGINT"
        kill -KILL -- "-$daemon" 2>/dev/null || true # the group of the launcher, and of nobody else
    fi
    wait "$daemon" || status=$?
    daemon=
    end_follower
    return "$status"
}

cleanup() {
    trap - EXIT INT TERM
    end_daemon || true
}

control() {
    "$bin/vboard" attach --board "$board" -- "$bin/velcamctl" "$@"
}

# The pictures in the recording so far.
pictures() {
    local facts count
    facts=$("$bin/velcamrec" check --json "$recording" 2>/dev/null) || true # damaged, or not there yet
    count=$(sed -n 's/.*"frames":\([0-9]*\),.*/\1/p' <<<"$facts")
    echo "${count:-0}"
}

progress() {
    local bytes=0
    [[ -e $recording ]] && bytes=$(stat -c %s "$recording")
    say "$(tail -n 1 "$reported"); $(pictures) pictures, $((bytes / 1000)) kB in the recording"
}

# expect NAME REQUEST...: asks for a state, and waits until the daemon reports it.
expect() {
    local name=$1 i
    shift
    say "-> $*"
    control "$@" || fault "the request '$*' was not taken"
    for ((i = 0; i < 30; i++)); do
        if [[ $(tail -n 1 "$reported") == "state $name,"* ]]; then
            return 0
        fi
        sleep 0.1
    done
    fault "velcamd did not report the state $name"
}

# Lets time pass, a line a second; ends early when the daemon does.
watch_for() {
    local until=$((SECONDS + $1))
    while ((SECONDS < until)) && running; do
        progress
        sleep 1
    done
}

snapshot() {
    "$bin/vboard" snapshot --board "$board" "$out/$1.png" || fault "no picture of the panel could be taken"
}

start_daemon() {
    : >"$log" # it is read before the launcher has opened it
    set -m # a process group of its own: an interrupt at the terminal reaches this script, which then ends the daemon
    # A script that is some shell's background job ignores interrupts, and would hand that down.
    env --default-signal=INT "$bin/vboard" run --board "$board" --cpu "$cpu" "${cameras[@]}" ${console:+--console "$console"} \
        --report "$report" -- "$bin/velcamd" \
        >"$log" 2>&1 </dev/null &
    daemon=$!
    set +m
    [[ -z $console ]] || return 0
    local i
    for ((i = 0; i < 100; i++)); do
        if control status >"$reported" 2>/dev/null; then
            # Somebody has to read all the time, as the device's controller does: a daemon whose queue is full waits.
            "$bin/vboard" attach --board "$board" -- "$bin/velcamctl" status --follow \
                >>"$reported" 2>/dev/null </dev/null {lock}>&- &
            follower=$!
            return 0
        fi
        running || break
        sleep 0.1
    done
    echo "run.sh: velcamd did not come up; it said:" >&2
    tail -n 20 "$log" >&2
    return 1
}

check_recording() {
    local errors facts chunks codec width height decoded
    if [[ ! -s $recording ]]; then
        fault "there is no recording at $recording"
        return
    fi
    errors=$(ffmpeg -nostdin -v error -i "$recording" -f null - 2>&1) || errors+=" (ffmpeg failed)"
    facts=$(ffprobe -v error -count_frames -select_streams v:0 -of default=noprint_wrappers=1 \
        -show_entries stream=codec_name,width,height,nb_read_frames "$recording" 2>&1) || errors+=" (ffprobe failed)"
    fact() { sed -n "s/^$1=//p" <<<"$facts"; }
    codec=$(fact codec_name) width=$(fact width) height=$(fact height) decoded=$(fact nb_read_frames)
    chunks=$(pictures)
    echo "ffprobe: $codec, ${width}x$height, $decoded pictures; $chunks in the file; errors: ${errors:-none}"
    [[ $codec == h264 ]] || fault "the recording is not H.264"
    [[ ${width}x$height == "$size" ]] || fault "the recording is not $size"
    if [[ $decoded != "$chunks" ]] || ((chunks == 0)); then
        fault "not every recorded picture can be decoded"
    fi
    [[ -z $errors ]] || fault "the recording does not decode without errors"
    ffmpeg -nostdin -v error -y -sseof -1 -i "$recording" -frames:v 1 "$out/recorded.png" ||
        ffmpeg -nostdin -v error -y -i "$recording" -frames:v 1 "$out/recorded.png" ||
        fault "no picture of the recording could be taken"
}

# A video to play, so that a new board has one.
provide_video() {
    local folder=$board/root/velmarine/f/video
    mkdir -p "$folder"
    if [[ -z $(ls -A "$folder") ]]; then
        ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=640x360:rate=30 -f lavfi -i sine=frequency=440 -t 10 \
            -c:v mpeg4 -q:v 4 -c:a aac "$folder/testcard.mp4" || fault "no video could be made"
    fi
}

# The address as soon as the launcher has said it.
await_console() {
    local i url
    for ((i = 0; i < 100; i++)); do
        url=$(sed -n 's/^vboard: console at //p' "$log")
        if [[ -n $url ]]; then
            printf '\nThe console is at  %s\nCtrl-C here ends the daemon.\n\n' "$url"
            return 0
        fi
        running || break
        sleep 0.1
    done
    echo "run.sh: the console did not come up:" >&2
    tail -n 5 "$log" >&2
    return 1
}

# Runs until it is interrupted, or the daemon ends by itself.
serve_console() {
    local interrupted=
    start_daemon
    await_console
    trap 'interrupted=1' INT TERM
    control state camera 1 2 || true # something to see; the page can ask for all else
    wait "$daemon" || true
    if [[ -z $interrupted ]]; then
        fault "velcamd ended by itself; the last that it said is:"
        tail -n 5 "$log" >&2
    elif ! end_daemon; then
        fault "velcamd did not end in good order"
    fi
    echo
    check_recording
}

# --- the run

scripts/install-deps.sh
scripts/build.sh release velcamd velcamctl velcamrec vboard

trap cleanup EXIT
trap 'echo "run.sh: interrupted" >&2; exit 130' INT TERM

if [[ -n $console ]]; then
    provide_video
    serve_console
    echo "The board, its recordings and logs are in $board; what velcamd said is in $log."
    exit $((faults > 0))
fi

began=$SECONDS
start_daemon
readonly step=$(((seconds + 5) / 6))
say "velcamd is up on the board $board"
watch_for "$step"
expect camera state camera 1
watch_for "$step"
snapshot panel-camera
expect camera state camera 1 2
watch_for "$step"
snapshot panel-two-panes
expect backup state backup 2
watch_for "$step"
snapshot panel-backup
expect transfer state transfer
watch_for "$step"
expect idle state idle
watch_for "$step"

if end_daemon; then
    say "velcamd ended in good order"
else
    fault "velcamd ended with status $?"
fi
grep -a -E '^(Encoded [0-9]+ Frames|FPS )' "$log" || fault "velcamd left no account of its run"
check_recording

cat <<END
To look at:
  $recording    the recording
  $out/recorded.png    a picture of it
  $out/panel-camera.png, panel-two-panes.png, panel-backup.png    what the panel showed
  $log    what velcamd said
  $report    what the board noted: calls, frames, refusals
END
if ((faults > 0)); then
    echo "run.sh: $faults of the checks failed" >&2
    exit 1
fi
echo "All is well."
