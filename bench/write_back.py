#!/usr/bin/env python3
"""How long the disk keeps the writer, with the write-back beside it and without: runs bench_write_times."""
import json
import subprocess
import tempfile

import rig
from rig import BIN, OUT, choose

PACE = 1200  # frames a second: forty times the daemon's, for a short run that is hard on the disk
ORDER = ("without", "with", "with", "without")  # so that a disk that tires does not speak for one of them


def real_time():
    """What gives the writer precedence, so that the other work of the machine does not count as the disk's."""
    prefix = ["chrt", "-f", "10"]
    try:
        return prefix if subprocess.run([*prefix, "true"], capture_output=True).returncode == 0 else []
    except FileNotFoundError:
        return []


def measure(how, megabytes, first):
    with tempfile.TemporaryDirectory(prefix="velcam-bench-", dir=OUT) as folder:
        subprocess.run(["sync", "-f", folder], check=True)
        result = subprocess.run([*first, BIN / "bench_write_times", folder + "/", str(megabytes), str(PACE), how],
                                check=True, capture_output=True, text=True)
    return json.loads(result.stdout.splitlines()[-1])


def row(label, runs):
    def each(key, scale=1, digits=0):
        return ", ".join(f"{run[key] / scale:.{digits}f}" for run in runs)
    return (label, runs[0]["frames"], each("medianUs"), each("p999Us", 1000, 2), each("longestUs", 1000, 1),
            each("longerThanAPass"), each("mostDirtyKb", 1000))


def main():
    OUT.mkdir(parents=True, exist_ok=True)
    megabytes, first = choose(2, 200, 600), real_time()
    runs = {"without": [], "with": []}
    for how in ORDER[:choose(2, 4, 4)]:
        runs[how].append(measure(how, megabytes, first))
    rig.write_fragment(
        "write_back", "## Write-back",
        f"A recording of {megabytes} MB at {PACE} frames a second, forty times the daemon's pace, on this machine's disk, "
        "with the write-back that follows the writer each second and without it, in turn; figures of every run. A write "
        "that takes longer than a frame's time (33.3 ms) would cost a frame on the panel once the cameras' buffers are "
        f"full.{'' if first else ' The writer had no real-time priority, so that other work of the machine may show.'}",
        rig.table(["write-back", "frames", "median, µs", "99.9 %, ms", "longest write, ms", "longer than a frame's time",
                   "most in the cache, whole machine, MB"],
                  [row("without", runs["without"]), row("with", runs["with"])]))


if __name__ == "__main__":
    main()
