#!/usr/bin/env python3
"""The cost of a frame against what grows: cameras, files, the log, generations, minutes of running."""
import os
import random

import rig
from rig import OUT, Panel, choose

IDLE = ("--devices", "idle", "--fps", "max")
RECORDS = "velmarine/f/camrecord"


def recording(megabytes):
    def prepare(root):
        with open(root / RECORDS / "cam.avi", "wb") as file:
            os.posix_fallocate(file.fileno(), 0, megabytes * 1000000)
    return prepare


def log(megabytes):
    def prepare(root):
        line = b"a line of a former run, which is kept until this one has ended\n"
        (root / "tmp/VelCam.log").write_bytes(line * (megabytes * 1000000 // len(line)))
    return prepare


def generations(count):
    def prepare(root):
        for number in range(count):
            (root / RECORDS / f"cam.avi.{number:02}.avi").write_bytes(b"RIFF")
    return prepare


FAMILIES = [
    ("cameras", [("2", ("--cpu", "dual-lite"), None), ("4", ("--cpu", "quad"), None)]),
    ("recording, MB", [(str(mb), (), recording(mb)) for mb in (1, 100, 300, 500)]),
    ("log, MB", [(str(mb), (), log(mb)) for mb in (0, 1, 10)]),
    ("generations", [(str(count), (), generations(count)) for count in (0, 10, 31)]),
]


def cost(options, prepare, seconds):
    with Panel(*IDLE, *options, prepare=prepare) as panel:
        panel.await_up()
        result = rig.cpu_per_frame(panel, seconds)
        panel.end()
    return result


def by_minute(minutes, samples):
    """At a pace at which the recording does not fill the disk and everything periodic happens."""
    found = []
    with Panel("--devices", "idle", "--fps", "300") as panel:
        panel.await_up()
        for _ in range(samples):
            found.append(rig.cpu_per_frame(panel, 60 * minutes / samples))
        panel.end()
    return found


def main():
    OUT.mkdir(parents=True, exist_ok=True)
    rounds, seconds = choose(1, 4, 11), choose(0.1, 0.4, 1.0)
    points = [(family, label, options, prepare) for family, rows in FAMILIES for label, options, prepare in rows]
    if rig.ONCE:
        points = [point for point in points if point[1] in ("1", "2", "10")]
    found = {}
    for _ in range(rounds):
        for family, label, options, prepare in random.sample(points, len(points)):
            found.setdefault((family, label), []).append(cost(options, prepare, seconds))
    rows, curves = [], {}
    for family, _ in FAMILIES:
        series = [(label, found[family, label]) for name, label, _, _ in points if name == family]
        first = rig.spread(series[0][1])[0]
        rows.append((family, ", ".join(f"{label}: {rig.shown(values)} (×{rig.spread(values)[0] / first:.2f})"
                                       for label, values in series)))
    minutes = choose(0.02, 0.5, 10)
    running = by_minute(minutes, choose(2, 12, 20))
    rows.append((f"{minutes} minutes of running at 300 frames a second",
                 f"first half {rig.shown(running[:len(running) // 2])}, second half {rig.shown(running[len(running) // 2:])}"))
    bars = [(f"{label} {family}" if ", " not in family else f"{family.split(', ')[0]}, {label} MB", *rig.spread(found[family, label])) for family, label, _, _ in points]
    picture = rig.plot("growth", 'set style data histogram\nset style histogram errorbars gap 1 lw 1\n'
                       'set style fill solid 0.6\nset ylabel "µs of processor time a frame"\nset yrange [0:*]\n'
                       'set xtics rotate by -25 font ",8"\nset bmargin 6\nset key off\nplot $bars using 2:3:xtic(1)\n', bars=bars)
    rig.write_fragment(
        "growth", "## Growth",
        "Processor time of the frame loop for each frame, in µs, on a board with idle devices, against what grows; in "
        "parentheses relative to the smallest. Only the number of cameras should show, each costing its three calls.",
        rig.table(["what grows", "µs a frame"], rows), picture)


if __name__ == "__main__":
    main()
