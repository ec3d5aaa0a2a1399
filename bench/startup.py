#!/usr/bin/env python3
"""From exec to the first frame in the file, and where the time goes."""
import statistics

import calls
import rig
from rig import OUT, Panel, choose

STREAMON = 0x40045612
SET_ALPHA = 0x40084621


COLUMNS = [("30 frames a second", ("--fps", "30")), ("unpaced", ("--fps", "max")),
           ("unpaced, idle devices", ("--fps", "max", "--devices", "idle"))]


def once(options):
    log, program = calls.watched("startup")
    with Panel(*options, program=program) as panel:
        panel.await_up(1)
        panel.end()
    events = calls.read(log)
    log.unlink()
    first = lambda condition: next(event.end for event in events if condition(event))
    loaded = next(event for event in events if event.kind == calls.LOADED)
    writes = [event.end for event in events if event.kind == calls.WRITE]
    frames = [event.end for event in events if calls.is_ioctl(event, calls.DQBUF)]
    streams = [event.end for event in events if calls.is_ioctl(event, STREAMON)]
    marks = [("libraries loaded", loaded.end), ("the first call of the display's set-up", first(lambda e: calls.is_ioctl(e, SET_ALPHA))),
             ("cameras found, encoder open, all cameras stream", streams[-1]),
             ("first frame of every camera", frames[len(streams) - 1]),
             ("first frame in the file", writes[0])]
    return [(label, (end - loaded.argument) / 1e6) for label, end in marks]


def main():
    OUT.mkdir(parents=True, exist_ok=True)
    rounds = choose(1, 9, 25)
    runs = {name: [] for name, _ in COLUMNS}
    for _ in range(rounds):
        for name, options in COLUMNS:
            runs[name].append(once(options))
    paced = runs[COLUMNS[0][0]]
    rows = []
    for index, (label, _) in enumerate(paced[0]):
        row = [label]
        for name, _ in COLUMNS:
            times = [run[index][1] for run in runs[name]]
            steps = [run[index][1] - (run[index - 1][1] if index else 0) for run in runs[name]]
            row += [rig.shown(times), f"{statistics.median(steps):.1f}"]
        rows.append(row)
    bars = [(label.replace(", ", ",\\n").replace("display's", "display's\\n").replace(" of every", "\\nof every"), *rig.spread([run[i][1] for run in paced]))
            for i, (label, _) in enumerate(paced[0])]
    picture = rig.plot("startup", 'set style data histogram\nset style histogram errorbars gap 1 lw 1\n'
                       'set style fill solid 0.6\nset ylabel "ms after exec"\nset yrange [0:*]\nset key off\n'
                       'set xtics font ",8"\nplot $bars using 2:3:xtic(1)\n', bars=bars)
    rig.write_fragment(
        "startup", "## Start-up",
        "Milliseconds from the exec of velcamd to each mark, and the step since the one before, four cameras; with cameras "
        "at 30 frames a second (their first instants have to come), unpaced, and with idle devices. The first pass is never recorded, so that at "
        "30 frames a second the first frame in the file is the cameras' second. What idle devices do not "
        "take is the board's work: drawing, copying and encoding the first pictures. The memory that the daemon asks for is "
        "cleared in any case; the canned frames are encoded when the encoder is opened.",
        rig.table(["mark", *[word for name, _ in COLUMNS for word in (name, "step")]], rows), picture)


if __name__ == "__main__":
    main()
