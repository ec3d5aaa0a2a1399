#!/usr/bin/env bash
# Measures the whole recording on the virtual board against x264 alone, the same pixel work in plain C, FFmpeg and
# GStreamer, and writes a Markdown fragment and a plot.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

usage() {
    cat <<'END'
usage: pipeline.sh [OPTION...]
  --bin DIR      the programs to measure (default: build/release/bin, which is built first)
  --work DIR     where the input and the recordings are put, about 300 MB, best in memory (default: a new folder in
                 /dev/shm); what the script puts there is removed at the end
  --out FILE     the fragment (default: build/bench/pipeline.md)
  --plots DIR    where the plot goes (default: docs/images)
  --frames N     frames of a run (default 480; 1800 with --full)
  --rounds N     how often every row is run, in turns (default 3; 5 with --full)
  --budget S     begin no further round after S seconds (default 250; none with --full)
  --only REGEX   only the rows whose name matches
  --full         1800 frames, 5 rounds
  --once         one short run of each of velcam's own programs, to see that they work; nothing is written
  --help
Needs ffmpeg, gstreamer1.0-tools, gstreamer1.0-plugins-base, -good, -bad, -ugly, gstreamer1.0-x and, for the plot,
python3-matplotlib.
END
}

bad_usage() {
    echo "${0##*/}: $1; see --help" >&2
    exit 2
}

bin=
work=
out=build/bench/pipeline.md
plots=docs/images
frames=
rounds=
budget=
only=.
full=0
once=0
while (($# > 0)); do
    case $1 in
        --help)
            usage
            exit 0
            ;;
        --full) full=1 ;;
        --once) once=1 ;;
        --bin | --work | --out | --plots | --frames | --rounds | --budget | --only)
            (($# > 1)) || bad_usage "$1 needs a value"
            declare "${1#--}=$2"
            shift
            ;;
        *) bad_usage "'$1' is not an option" ;;
    esac
    shift
done
if ((full)); then
    : "${frames:=1800}" "${rounds:=5}" "${budget:=100000}"
fi
: "${frames:=480}" "${rounds:=3}" "${budget:=250}"
for number in "$frames" "$rounds" "$budget"; do
    [[ $number =~ ^[1-9][0-9]{0,5}$ ]] || bad_usage "'$number' is no number from 1 up"
done
((frames >= 180 || once)) || bad_usage "--frames takes a number from 180 up"
if [[ -z $bin ]]; then
    bin=build/release/bin
    scripts/build.sh release velcamd velcamctl vboard pipeline_bench
fi
readonly preset=ultrafast warm=60 # frames of the runs that are taken off: start-up and the first pictures
readonly python=/usr/bin/python3

board_process=
reader=
cleanup() {
    trap - EXIT INT TERM
    if [[ -n $board_process ]]; then
        kill -KILL -- "-$board_process" 2>/dev/null || true # the launcher's group, and nobody else's
    fi
    if [[ -n $reader ]]; then
        kill "$reader" 2>/dev/null || true
    fi
    rm -rf "$scratch"
}
if [[ -n $work ]]; then mkdir -p "$work"; fi
scratch=$(mktemp -d "${work:-/dev/shm}/pipeline.XXXXXX")
readonly scratch clips=$scratch/clips result=$scratch/rows.csv
trap cleanup EXIT
trap 'echo "${0##*/}: interrupted" >&2; exit 130' INT TERM

say() {
    printf '%4d s  %s\n' "$SECONDS" "$*" >&2
}

# --- the input: 60 pictures a camera, looped; every pipeline reads the same bytes

make_input() {
    local camera part
    mkdir -p "$clips" "$scratch/parts"
    "$bin/pipeline_bench" clips "$clips"
    # GStreamer cannot repeat a file; it can read many as one.
    for camera in 1 2 3 4; do
        for ((part = 0; part <= frames / 60; part++)); do
            ln -s "$clips/camera$camera.nv12" "$scratch/parts/camera$camera.$(printf %03d "$part").nv12"
        done
    done
}

# --- the pipelines: NAME CAMERAS THREADS FIELDS FRAMES, each leaves a file of FRAMES pictures

# The settings that the daemon gives the codec, in x264's own words.
readonly x264="keyint=300:min-keyint=1:scenecut=0:bframes=0:rc-lookahead=0:sync-lookahead=0:mbtree=0:psy=0:\
deblock=6,0:chroma-qp-offset=10:vbv-maxrate=2200:vbv-bufsize=1000:fullrange=on"

run_floor() {
    "$bin/pipeline_bench" floor --clips "$clips" --cameras "$1" --threads "$2" --frames "$4" --preset "$preset"
}

run_tight() {
    "$bin/pipeline_bench" tight --clips "$clips" --cameras "$1" --threads "$2" --frames "$4" --preset "$preset" \
        --output "$scratch/out"
}

run_board() {
    "$bin/vboard" run --board "$scratch/board" --report "$scratch/report.json" --fps max --frames "$4" \
        --cpu "$([[ $1 == 4 ]] && echo quad || echo dual-lite)" --codec-preset "$preset" --codec-threads "$2" \
        --camera "1=clip:$clips/camera1.nv12" --camera "2=clip:$clips/camera2.nv12" \
        --camera "3=clip:$clips/camera3.nv12" --camera "4=clip:$clips/camera4.nv12" \
        ${keep:+$keep} -- "$bin/velcamd" >"$scratch/velcamd.txt" 2>&1
}

run_velcam() {
    local keep='' i status=0
    [[ $3 == woven ]] && keep=--keep-fields
    set -m # a process group of its own
    { time run_board "$@"; } 2>"$times" &
    board_process=$!
    set +m
    for ((i = 0; i < 200; i++)); do
        # Camera 1 is shown alone; a board that captures two is to record camera 2 beside it.
        if "$bin/vboard" attach --board "$scratch/board" -- "$bin/velcamctl" state camera 1 0 0 2 &>/dev/null; then
            break
        fi
        sleep 0.01
    done
    # The daemon waits for a reader of its reports, as the device has one.
    "$bin/vboard" attach --board "$scratch/board" -- "$bin/velcamctl" status --follow &>/dev/null &
    reader=$!
    wait "$board_process" || status=$?
    board_process=
    kill "$reader" 2>/dev/null || true
    wait "$reader" || true
    reader=
    return "$status"
}

# The display has to be on: nearly all the copies that recording and display take for so many frames were made. And every
# camera has to be recorded, not a blank input in its place.
check_velcam() {
    local camera delivered copies wanted=$((($1 + 1) * $2))
    for ((camera = 0; camera < $1; camera++)); do
        delivered=$("$python" -c 'import json, sys; print(json.load(open(sys.argv[1]))["cameras"][int(sys.argv[2])]["delivered"])' \
            "$scratch/report.json" "$camera")
        if ((delivered * 100 < $2 * 95)); then
            echo "${0##*/}: velcam took $delivered frames of $2 from camera $((camera + 1))" >&2
            return 1
        fi
    done
    copies=$(grep -o '"IPU_QUEUE_TASK": *[0-9]*' "$scratch/report.json" | grep -o '[0-9]*$')
    if ((copies * 100 < wanted * 95)); then
        echo "${0##*/}: velcam made $copies copies of $wanted: the display was not on" >&2
        return 1
    fi
}

readonly page=800:500
run_ffmpeg() {
    local camera deinterlace='' chain='' stacked='' inputs=()
    [[ $3 == progressive ]] && deinterlace="setfield=tff,yadif=mode=send_frame,"
    for ((camera = 1; camera <= $1; camera++)); do
        inputs+=(-f rawvideo -pix_fmt nv12 -video_size 720x480 -framerate 30 -stream_loop -1 -threads 1
            -i "$clips/camera$camera.nv12")
        chain+="[$((camera - 1)):v]${deinterlace}$( ((camera == 1)) && echo 'split[c1][d]' || echo "null[c$camera]");"
        stacked+="[c$camera]"
    done
    [[ $3 == progressive ]] && chain=${chain//yadif/format=yuv420p,yadif}
    local places="0_30|720_30"
    (($1 == 4)) && places+="|0_510|720_510"
    ffmpeg -nostdin -v error -y -threads 1 "${inputs[@]}" -filter_complex_threads "$2" -filter_complex \
        "${chain}${stacked}xstack=inputs=$1:fill=black:layout=$places,drawtext=fontfile=$font:fontsize=25:\
fontcolor=white:x=2:y=3:text='%{localtime}'[record];[d]scale=$page:flags=bilinear[shown]" \
        -map '[record]' -frames:v "$4" -c:v libx264 -preset "$preset" -tune zerolatency -profile:v baseline \
        -b:v 2000k -x264-params "$x264:threads=$2:sliced-threads=$(($2 > 1))" "$scratch/out.avi" \
        -map '[shown]' -frames:v "$4" -c:v wrapped_avframe -f null -
}

run_gstreamer() {
    local camera fields=false deinterlace=() sources=() pads=()
    local queue=(queue max-size-buffers=3 max-size-bytes=0 max-size-time=0 '!')
    [[ $3 == progressive ]] && fields=true && deinterlace=(deinterlace mode=interlaced fields=top method=greedyl '!')
    for ((camera = 1; camera <= $1; camera++)); do
        local x=$(((camera - 1) % 2 * 720)) y=$((camera > 2 ? 510 : 30)) sink=mix.sink_$((camera - 1))
        pads+=("sink_$((camera - 1))::xpos=$x" "sink_$((camera - 1))::ypos=$y")
        sources+=(splitfilesrc "location=$scratch/parts/camera$camera.*.nv12" blocksize=518400 "num-buffers=$4" '!'
            rawvideoparse format=nv12 width=720 height=480 framerate=30/1 "interlaced=$fields" top-field-first=true '!'
            "${deinterlace[@]}")
        if ((camera == 1)); then
            sources+=(tee name=first first. '!' "${queue[@]}" "$sink" first. '!' "${queue[@]}" videoscale
                method=bilinear add-borders=false '!' "video/x-raw,width=${page%:*},height=${page#*:}" '!'
                fakesink sync=false async=false)
        else
            sources+=("${queue[@]}" "$sink")
        fi
    done
    gst-launch-1.0 -q compositor name=mix background=black "${pads[@]}" '!' \
        "video/x-raw,format=NV12,width=1440,height=$((30 + 240 * $1)),framerate=30/1" '!' \
        clockoverlay halignment=left valignment=top '!' "${queue[@]}" x264enc speed-preset="$preset" \
        tune=zerolatency "threads=$2" "sliced-threads=$( (($2 > 1)) && echo true || echo false)" bitrate=2000 \
        vbv-buf-capacity=500 key-int-max=300 bframes=0 option-string="$x264" '!' video/x-h264,profile=baseline '!' \
        avimux '!' filesink "location=$scratch/out.avi" "${sources[@]}"
}

# --- measuring

readonly times=$scratch/times
TIMEFORMAT='%U %S %R'

# measure NAME CAMERAS THREADS FIELDS FRAMES: appends what the run took. Fields are "woven" into each other or made
# "progressive".
measure() {
    local name=$1
    shift
    if [[ $name == velcam ]]; then
        run_velcam "$@" && { (($4 <= warm)) || check_velcam "$1" "$4"; }
    else
        { time "run_$name" "$@" >"$scratch/said" 2>&1; } 2>"$times"
    fi || {
        echo "${0##*/}: $name failed:" >&2
        tail -n 5 "$scratch/said" "$scratch/velcamd.txt" >&2 || true
        exit 1
    }
    if [[ $name == ffmpeg || $name == gstreamer ]]; then check_pictures "$name" "$4"; fi
    echo "$name,$1,$2,$3,$4,$(tail -n 1 "$times" | tr ' ' ,)" >>"$result"
}

check_pictures() {
    local made
    made=$(ffprobe -v error -count_packets -of csv=p=0 -show_entries stream=nb_read_packets "$scratch/out.avi")
    [[ $made == "$2" ]] || { echo "${0##*/}: $1 recorded $made pictures of $2" >&2 && exit 1; }
}

readonly rows=("floor woven" "tight woven" "velcam woven" "ffmpeg woven" "gstreamer woven"
    "velcam progressive" "ffmpeg progressive" "gstreamer progressive")

one_round() {
    local cameras threads row length
    for cameras in 4 2; do
        for threads in 1 2; do
            for row in "${rows[@]}"; do
                [[ "${row% *} $cameras $threads ${row#* }" =~ $only ]] || continue
                for length in "$warm" "$frames"; do
                    # shellcheck disable=SC2086 # name and fields
                    measure ${row% *} "$cameras" "$threads" "${row#* }" "$length"
                done
            done
        done
    done
}

# --- how good the de-interlaced picture is

quality() {
    local size="-f rawvideo -pix_fmt nv12 -video_size 720x480" method
    local like=("$bin/pipeline_bench" psnr "$clips/whole1.nv12")
    echo "none,$("${like[@]}" "$clips/camera1.nv12")"
    "$bin/pipeline_bench" deinterlace "$clips/camera1.nv12" "$scratch/made"
    echo "velcam,$("${like[@]}" "$scratch/made")"
    for method in yadif bwdif; do
        # shellcheck disable=SC2086 # several words
        ffmpeg -nostdin -v error -y $size -i "$clips/camera1.nv12" \
            -vf "setfield=tff,format=yuv420p,$method=mode=send_frame,format=nv12" -f rawvideo "$scratch/made"
        echo "FFmpeg $method,$("${like[@]}" "$scratch/made")"
    done
    for method in greedyl greedyh linear; do
        gst-launch-1.0 -q filesrc "location=$clips/camera1.nv12" '!' rawvideoparse format=nv12 width=720 height=480 \
            framerate=30/1 interlaced=true top-field-first=true '!' deinterlace mode=interlaced fields=top \
            "method=$method" '!' filesink "location=$scratch/made"
        echo "GStreamer $method,$("${like[@]}" "$scratch/made")"
    done
}

# --- what is asked for

font=$(find /usr/share/fonts -name 'DejaVuSans*.ttf' | sort | head -n 1)
readonly font

if ((once)); then
    frames=60
    make_input
    for row in floor tight velcam; do
        measure "$row" 4 1 woven 60
    done
    say "the benchmark's programs work"
    exit 0
fi

for tool in ffmpeg ffprobe gst-launch-1.0 "$python"; do
    command -v "$tool" >/dev/null || bad_usage "there is no $tool"
done
for element in x264enc clockoverlay compositor deinterlace; do
    gst-inspect-1.0 --exists "$element" || bad_usage "GStreamer has no $element"
done
say "making the input"
make_input
say "quality"
quality >"$scratch/quality.csv"
echo "name,cameras,threads,fields,frames,user,system,real" >"$result"
for ((round = 1; round <= rounds && SECONDS < budget; round++)); do
    say "round $round"
    one_round
done
mkdir -p "$(dirname "$out")" "$plots"
cp "$result" "${out%.md}.csv"
"$python" bench/pipeline/report.py "$result" "$scratch/quality.csv" "$plots/performance-pipeline.png" >"$scratch/report.md"
cp "$scratch/report.md" "$out"
say "written: $out"
