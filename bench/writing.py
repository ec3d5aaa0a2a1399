#!/usr/bin/env python3
"""The AVI writer beside bare calls and other muxers: runs bench_writing and makes its table."""
import json
import re
import statistics
import subprocess
import tempfile

import rig
from rig import BIN, OUT, choose

NAMES = [("bare", "bare `writev`"), ("velcam", "velcam's writer"), ("ffmpeg-each", "FFmpeg, each frame delivered at once"),
         ("ffmpeg", "FFmpeg, buffered"), ("gstreamer-each", "GStreamer, each frame delivered at once"),
         ("gstreamer", "GStreamer, buffered"), ("bare-1MB", "bare `writev`, behind 1 MB"),
         ("velcam-1MB", "velcam's writer, behind 1 MB"), ("bare-600MB", "bare `writev`, behind 600 MB"),
         ("velcam-600MB", "velcam's writer, behind 600 MB")]
FRAMES = 1800


def run():
    result = OUT / "writing.json"
    with tempfile.TemporaryDirectory(prefix="velcam-bench-", dir=OUT) as folder:
        subprocess.run([BIN / "bench_writing", f"--benchmark_repetitions={choose(1, 21, 61)}",
                        "--benchmark_enable_random_interleaving=true", f"--benchmark_out={result}",
                        "--benchmark_out_format=json"], cwd=folder, check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
    times = {}
    for row in json.loads(result.read_text())["benchmarks"]:
        if row["run_type"] == "iteration":
            name = row["name"].split("/")[0]
            times.setdefault(name, ([], []))
            times[name][0].append(row["cpu_time"] / FRAMES / 1000)
            times[name][1].append(row["real_time"] / FRAMES / 1000)
    return times


def main():
    OUT.mkdir(parents=True, exist_ok=True)
    times = run()
    rows, bars = [], []
    for name, label in NAMES:
        if name not in times:
            continue
        base = "bare" + (re.search(r"-\d+MB", name) or [""])[0]
        cpu, real = times[name]
        ratio = statistics.median(cpu) / statistics.median(times[base][0])
        rows.append((label, rig.shown(cpu, 2), f"**{ratio:.2f}**", rig.shown(real, 2)))
        bars.append((label.replace(", ", "\\n").replace("`", ""), *rig.spread(cpu)))
    picture = rig.plot("writing", 'set style data histogram\nset style histogram errorbars gap 1 lw 1\n'
                       'set style fill solid 0.6\nset ylabel "µs of processor time a frame"\nset yrange [0:*]\n'
                       'set xtics rotate by -25 font ",8"\nset bmargin 7\nset key off\nplot $bars using 2:3:xtic(1)\n', bars=bars)
    rig.write_fragment(
        "writing", "## Writing",
        "One minute (1800 access units as at 2000 kbit/s, a key frame of 60 KB each ten seconds) written into a new AVI "
        "file, or behind a recording of 1 or 600 MB, opening and closing included; all contestants in one run of "
        "`bench_writing`, in random order. The file lies on this machine's disk. The ratio is to the bare calls: `open`, a "
        "header, one `writev` of head, frame and padding for each frame, `close`. FFmpeg's and GStreamer's muxers copy the "
        "same units, once so that each frame is in the kernel's hands when the call returns (`flush_packets`, "
        "`buffer-mode=unbuffered`), as velcam has it, and once with their own buffers, which go down with the process; "
        "both also keep an index in memory and write it at the end. Aim: at most 1.3 times the bare calls, whatever the "
        "file's size. What a buffering muxer saves is calls: four frames go out in one. The next idea would be just that, and "
        "is left alone, since those frames would be lost with the daemon.",
        rig.table(["contestant", "µs of processor time a frame", "ratio", "µs elapsed a frame"], rows), picture)


if __name__ == "__main__":
    main()
