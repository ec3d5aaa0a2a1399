#!/usr/bin/env bash
# Tears a recording in many ways, has players play it, and writes into docs/recording-format.md what each of them loses.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/measuring.sh

usage() {
    cat <<'END'
usage: measure-tears.sh [--bin DIR] [--work DIR] [--print]
  --bin DIR   the programs to record with (default: build/release/bin, which is built first)
  --work DIR  where the torn recordings are put, about 100 MB; they are removed at the end (default: build/tears)
  --print     show the result instead of writing it into docs/recording-format.md
Runs as root (VLC is run as the user nobody). Needs besides the build's packages: python3, mplayer, vlc-bin,
vlc-plugin-base, gstreamer1.0-tools, gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-libav.
END
}

bin=
work=build/tears
into=docs/recording-format.md
measuring_options "$@"
for player in ffmpeg gst-launch-1.0 cvlc mplayer runuser python3; do
    command -v "$player" >/dev/null || { echo "${0##*/}: $player is missing; see --help" >&2; exit 1; }
done
((EUID == 0)) || { echo "${0##*/}: run it as root; see --help" >&2; exit 1; }
if [[ -z $bin ]]; then
    bin=build/release/bin
    scripts/build.sh release velcamd vboard
fi

readonly players=(ffmpeg gstreamer vlc mplayer)
readonly size=1440x510
readonly limit=120 # seconds that a player may take
rm -rf "$work"
mkdir -p "$work/torn"
work=$(cd "$work" && pwd)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM
home=$(mktemp -d) # that nobody can enter, with what VLC reads and writes
trap 'rm -rf "$work" "$home"' EXIT
chmod 777 "$home"

record() {
    "$bin/vboard" run --board "$work/$1" --cpu dual-lite --fps max --frames "$2" -- "$bin/velcamd" \
        >"$work/$1.txt" 2>&1 </dev/null
    mv "$work/$1/root/velmarine/f/camrecord/cam.avi" "$work/$1.avi"
}

# A hash for each raw picture on standard input.
raw() {
    ffmpeg -v quiet -f rawvideo -pix_fmt yuv420p -s "$size" -i - -f framemd5 - | sed -n '/^#/!s/.*, *//p'
}

play_ffmpeg() {
    timeout "$limit" ffmpeg -nostdin -v quiet -i "$1" -fps_mode passthrough -pix_fmt yuv420p -f framemd5 - |
        sed -n '/^#/!s/.*, *//p'
}

play_gstreamer() {
    timeout "$limit" gst-launch-1.0 -q filesrc location="$1" ! avidemux ! h264parse ! avdec_h264 ! \
        video/x-raw,format=I420 ! fdsink fd=1 2>/dev/null | raw
}

# A player that never opened its pipe leaves a reader that waits for it.
end_reader() {
    sleep 0.1
    if kill -0 "$1" 2>/dev/null; then
        timeout 1 sh -c ': >"$1"' sh "$2" || true
    fi
}

play_vlc() {
    cp "$1" "$home/torn.avi"
    mkfifo -m 666 "$home/raw"
    timeout "$limit" runuser -u nobody -- env HOME="$home" cvlc -q -I dummy --no-audio "$home/torn.avi" \
        --sout "#transcode{vcodec=I420}:std{access=file,mux=dummy,dst=$home/raw}" vlc://quit >/dev/null 2>&1 &
    local vlc=$!
    timeout "$limit" cat <"$home/raw" | raw &
    local reader=$!
    wait "$vlc" || true
    end_reader "$reader" "$home/raw"
    wait "$reader" || true
    rm -f "$home/raw" "$home/torn.avi"
}

play_mplayer() {
    timeout "$limit" mplayer -really-quiet -benchmark -nosound -noframedrop -vo "md5sum:outfile=$home/md5" "$1" \
        >/dev/null 2>&1 </dev/null || true
    sed 's/ .*//' "$home/md5"
    rm -f "$home/md5"
}

# What a player gives, as hashes beside the file: FILE.PLAYER.
play_all() {
    local player
    for player in "${players[@]}"; do
        "play_$player" "$1" >"${1%.avi}.$player" || true
    done
}

# Files torn/KIND.NUMBER.avi; the pictures that a perfect player gives, as "RECORDING NUMBER", in KIND.NUMBER.whole.
make_tears() {
    /usr/bin/python3 - "$work" <<'END'
import struct, sys

work = sys.argv[1]
HEADER, HEAD = 792, 8


def chunks(data):
    at = HEADER
    while at + HEAD <= len(data):
        end = at + HEAD + struct.unpack_from("<I", data, at + 4)[0]
        yield data[at:end]
        at = end


def pictures(name, chunks):
    return [f"{name} {number}" for number in range(len(chunks))]


first, follow = (open(f"{work}/{name}.avi", "rb").read() for name in ("first", "next"))
header, before, after = first[:HEADER], list(chunks(first)), list(chunks(follow))
before_pictures, after_pictures = pictures("first", before), pictures("next", after)
counts = {}


def write(kind, parts, whole):
    number = counts[kind] = counts.get(kind, 0) + 1
    name = f"{work}/torn/{kind}.{number:02}"
    open(name + ".avi", "wb").write(b"".join(parts))
    open(name + ".whole", "w").write("".join(line + "\n" for line in whole))


def positions(chunk):
    yield from (4, 6, HEAD, HEAD + 1, HEAD + 5, HEAD + 40)
    yield from (HEAD + (len(chunk) - HEAD) * part // 10 for part in (1, 5, 9))
    yield len(chunk) - 20
    yield len(chunk) - 2


for torn in (0, 20):
    for cut in positions(before[torn]):
        # A killed process or a power cut: the next run goes on with a key frame.
        kind = "key" if torn == 0 else "frame"
        parts = [header, *before[:torn], before[torn][:cut], *after]
        write(kind, parts, before_pictures[:torn] + after_pictures)
# A write that failed once: the same run goes on with the next frame, which builds on the torn one.
for cut in positions(after[20]):
    write("write", [header, *after[:20], after[20][:cut], *after[21:]], after_pictures[:20] + after_pictures[21:])
# The length of a file got to the medium before its last pages.
for zeros in (100, 4096, 20000):
    write("zeros", [header, *before[:20], bytes(zeros), *after], before_pictures[:20] + after_pictures)
    cut = min(zeros, len(before[20]) - HEAD)
    write("zeros", [header, *before[:20], before[20][:-cut], bytes(cut), *after], before_pictures[:20] + after_pictures)
for cut in (100, 200):  # the next run writes a header of its own
    write("header200", [header[:cut], header, *after], after_pictures)
for cut in (201, 400, 791):  # and here it does not
    write("header", [header[:cut], *after], after_pictures)
END
}

report() {
    /usr/bin/python3 - "$work" "${players[@]}" <<'END'
import collections, glob, sys

work, players = sys.argv[1], sys.argv[2:]
KINDS = {
    "frame": "a frame, the next run goes on (killed, power cut)",
    "key": "a run's first frame, the next run goes on",
    "write": "a frame, the same run goes on (a write that failed)",
    "zeros": "zeros where the end was, the next run goes on",
    "header200": "the header, up to 200 bytes of it",
    "header": "the header, 201 to 791 bytes of it",
}


def lines(name):
    return [line.strip() for line in open(f"{work}/{name}")]


# A player's own decoding of the whole recordings says what its pictures are like.
reference = {player: {name: lines(f"{name}.{player}") for name in ("first", "next")} for player in players}
expected = len(lines("next.ffmpeg"))
for player, recordings in reference.items():
    if len(recordings["next"]) != expected:
        sys.exit(f"{player} gives {len(recordings['next'])} of the {expected} frames of a whole recording")


def worst(kind, player):
    given_worst = right_worst = 0
    wholes = glob.glob(f"{work}/torn/{kind}.[0-9]*.whole")
    for whole in wholes:
        name = whole[len(work) + 1 : -len(".whole")]
        pictures = [line.split() for line in lines(f"{name}.whole")]
        wanted = [reference[player][recording][int(number)] for recording, number in pictures]
        given = lines(f"{name}.{player}")
        right = collections.Counter(wanted) & collections.Counter(given)
        given_worst = max(given_worst, len(wanted) - len(given))
        right_worst = max(right_worst, len(wanted) - sum(right.values()))
    return f"{given_worst}, {right_worst}", len(wholes)


print("| torn | tries | " + " | ".join(players) + " |")
print("|---|---|" + "---|" * len(players))
for kind, text in KINDS.items():
    cells = [worst(kind, player) for player in players]
    print(f"| {text} | {cells[0][1]} | " + " | ".join(cell for cell, tries in cells) + " |")
END
}

echo "recording" >&2
record first 60
record next 360
make_tears
for file in "$work"/{first,next}.avi "$work"/torn/*.avi; do
    printf '%4d s  %s\n' "$SECONDS" "${file##*/}" >&2
    play_all "$file"
done
frames=$(wc -l <"$work/next.ffmpeg")
report >"$work/result.md"
printf '\nA run of %s frames follows the tear, with key frames 300 apart; 20 frames or none precede it.\n' "$frames" >>"$work/result.md"
if [[ -z $into ]]; then
    cat "$work/result.md"
    exit 0
fi
write_between tears "$work/result.md" "$into"
echo "written into $into" >&2
