#!/usr/bin/env python3
"""The daemon's own cost a frame, on a board whose devices do no work, beside the same calls in a bare loop."""
import collections
import json
import re
import signal
import struct
import subprocess

import callgrind
import rig
from rig import BIN, OUT, Panel, choose

IDLE = ("--devices", "idle", "--fps", "max")
CASES = [("quad", ()), ("quad", (1, 2)), ("dual-lite", ()), ("dual-lite", (1, 2))]


def name(cpu, shown):
    return f"{cpu}, {len(shown)} displayed" if shown else f"{cpu}, nothing displayed"


def bring_up(panel, shown):
    panel.await_up()
    if shown:
        panel.show(*shown)


def daemon_time(cpu, shown, seconds):
    with Panel("--cpu", cpu, *IDLE) as panel:
        bring_up(panel, shown)
        result = rig.cpu_per_frame(panel, seconds)
        panel.end()
    return result


def bare_time(cpu, shown, seconds):
    with Panel("--cpu", cpu, *IDLE, program=("bench_bare_loop", str(len(shown)), str(seconds)), reader=False) as panel:
        panel.launcher.wait(120)
        frames, nanoseconds = last_numbers(panel)
    return nanoseconds / max(frames, 1) / 1000


def last_numbers(panel):
    for line in reversed(panel.output.read_text().splitlines()):
        match = re.fullmatch(r"(\d+) (\d+)", line)
        if match:
            return int(match[1]), int(match[2])
    raise SystemExit("bench: the bare loop said nothing: " + panel.output.read_text()[-300:])


def times():
    """Interleaved, so that what else the machine does falls on both."""
    rounds, seconds = choose(1, 5, 15), choose(0.2, 0.8, 2.0)
    found = collections.defaultdict(lambda: ([], []))
    for _ in range(rounds):
        for case in CASES:
            found[case][0].append(daemon_time(*case, seconds))
            found[case][1].append(bare_time(*case, seconds))
    return found


def allocations(cpu, shown):
    """What the frame loop took from the heap over so many frames, and at start-up."""
    counts = OUT / "heap"
    counts.write_bytes(bytes(16384))
    read = lambda: struct.unpack_from("<Q", counts.read_bytes())[0]
    program = ("under", "last", BIN / "libheapwatch.so", counts, BIN / "velcamd")
    with Panel("--cpu", cpu, *IDLE, program=program) as panel:
        bring_up(panel, shown)
        start_up, frames = read(), panel.counters()[0]
        rig.await_true(lambda: panel.counters()[0] > frames + choose(50, 3000, 10000), "frames")
        taken, frames = read() - start_up, panel.counters()[0] - frames
        panel.end()
    if start_up == 0:
        raise SystemExit("bench: no allocation was counted, not even at start-up")
    return start_up, taken, frames


def system_calls(cpu, shown):
    """Of the frame loop's thread, for each frame, by name: from one write of a frame to the next."""
    trace = OUT / "trace"
    with Panel("--cpu", cpu, *IDLE, before=("strace", "-f", "-qq", "-o", trace)) as panel:
        bring_up(panel, shown)
        pid = panel.program()
        frames = panel.counters()[0]
        rig.await_true(lambda: panel.counters()[0] > frames + choose(20, 300, 300), "frames")
        panel.end()
    calls = [match[1] for line in open(trace, errors="replace")
             if (match := re.match(rf"{pid} +(?:<\.\.\. )?(\w+)", line)) and "unfinished" not in line]
    writes = [index for index, call in enumerate(calls) if call == "writev"]
    writes = writes[-choose(10, 240, 240):-5]  # the last ones may lie in the ending
    counted = collections.Counter(calls[writes[0]:writes[-1]])
    return {call: count / (len(writes) - 1) for call, count in counted.items()}


def profile(cpu, shown, program):
    """Of some hundred passes, start-up left out."""
    file = OUT / f"callgrind.{program[0]}"
    for old in OUT.glob(file.name + "*"):
        old.unlink()
    valgrind = ("/usr/bin/valgrind", "--tool=callgrind", f"--callgrind-out-file={file}", str(BIN / program[0]),
                *program[1:])
    with Panel("--cpu", cpu, *IDLE, program=valgrind, reader=program[0] != "bench_bare_loop") as panel:
        bring_up(panel, shown if program[0] != "bench_bare_loop" else ())
        pid = panel.program()
        control = lambda action: subprocess.run(["callgrind_control", action, str(pid)], check=True,
                                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        control("--zero")
        frames = panel.counters()[0]
        rig.await_true(lambda: panel.counters()[0] > frames + choose(30, 600, 1500), "frames", 300)
        control("--dump")
        dump = OUT / f"{file.name}.1"
        rig.await_true(lambda: any(OUT.glob(file.name + ".*")), "the profile")
        panel.launcher.send_signal(signal.SIGINT)
        panel.launcher.wait(120)
        panel.end_reader()
    return callgrind.Profile(dump)


PIECES = {"clockRedraw": "redraw of the clock, once in 30 frames",
          "changeOfAnIpuTask": "change of an IPU task, for each copy of a pane",
          "packetThroughTheQueue": "packet through the queue between threads, for each request"}


def pieces():
    """Nanoseconds of processor time, by Google Benchmark."""
    result = OUT / "pieces.json"
    subprocess.run([BIN / "bench_pieces", f"--benchmark_repetitions={choose(1, 7, 21)}",
                    f"--benchmark_min_time={choose(0.0001, 0.1, 0.5)}", "--benchmark_enable_random_interleaving=true",
                    f"--benchmark_out={result}", "--benchmark_out_format=json"], check=True,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    times = collections.defaultdict(list)
    for row in json.loads(result.read_text())["benchmarks"]:
        if row.get("error_occurred"):
            raise SystemExit(f"bench: {row['name']}: {row['error_message']}")
        if row["run_type"] == "iteration":
            times[row["run_name"]].append(row["cpu_time"])
    return rig.table(["piece", "ns of processor time"],
                     [(PIECES[name], rig.shown(values)) for name, values in times.items()])


STEPS = [("applyWindowRequest", "1. overlay request"), ("applyRecordRequests", "2. stop or start"),
         ("readSelection", "3. selection"), ("followDisplayMode", "3. display mode"),
         ("followChannels", "3. channels"), ("updateGeometry", "3. geometry"), ("dequeueAll", "4. dequeue"),
         ("composeRecordFrame", "5. tiles, clock, frame to the encoder"), ("composeDisplayPage", "6. panes"),
         ("queueAll", "7. queue"), ("finishPass", "8. flip, encode, write")]


def only(functions, what):
    if not functions:
        raise SystemExit(f"bench: {what} is not in the profile")
    return functions[0]


def by_step(daemon):
    run = only(daemon.find(r"^VideoManager::run\(\)"), "the pass")
    rows, rest = [], daemon.own(run)
    for function, label in STEPS:
        for found in daemon.find(rf"^VideoManager::{function}\(\)"):
            own = daemon.own(found) * daemon.called[found] / daemon.called[run]
            calls = daemon.board_calls(found)
            rows.append((label, own, sum(calls.values()), ", ".join(f"{n} {c:.3g}" for n, c in sorted(calls.items()))))
            rest -= own
        if function == "composeRecordFrame":
            clock = only(daemon.find(r"^YuvText::draw\("), "the clock")
            rows.append(("of it the clock, redrawn once in 30 passes", daemon.own(clock) * daemon.called[clock] /
                         daemon.called[run], 0, ""))
    rows.append(("between them", rest, 0, ""))
    return rows, daemon.own(run)


def bare_instructions(bare):
    function = only(bare.find(r"::pass\("), "the bare loop's pass")
    return bare.own(function)


def main():
    OUT.mkdir(parents=True, exist_ok=True)
    profiles = {}
    for case in CASES if not rig.ONCE else CASES[1:2]:
        steps, own = by_step(profile(*case, ("bench_velcamd_steps",)))
        bare = bare_instructions(profile(*case, ("bench_bare_loop", str(len(case[1])), "1000")))
        profiles[case] = steps, own, bare
    heap = {case: allocations(*case) for case in CASES}
    calls = {case: system_calls(*case) for case in CASES}
    measured = times()

    rows = []
    for case in CASES:
        daemon, bare = measured[case]
        ratios = [one / other for one, other in zip(daemon, bare)]
        own, bare_own = profiles[case][1:] if case in profiles else (0, 0)
        start_up, taken, frames = heap[case]
        program = {call: count for call, count in calls[case].items() if call not in ("gettid", "futex")}
        rows.append((name(*case), rig.shown(daemon), rig.shown(bare), f"**{rig.shown(ratios, 2)}**",
                     rig.shown([one - other for one, other in zip(daemon, bare)]),
                     f"{own:.0f}", f"{bare_own:.0f}",
                     ", ".join(f"`{call}` {count:.3g}" for call, count in sorted(program.items())),
                     f"{taken} in {frames} frames ({start_up} before)"))
    overall = rig.table(["case", "velcamd, µs a frame", "bare calls, µs", "ratio", "difference, µs", "own instructions",
                         "bare calls' own", "system calls of the pass", "heap allocations"], rows)

    case = CASES[1]
    steps, own, bare = profiles[case]
    step_rows = [(label, f"{cost:.0f}", f"{count:.3g}", text) for label, cost, count, text in steps]
    step_rows.append(("**the pass**", f"**{own:.0f}**", f"**{sum(row[2] for row in steps):.3g}**", ""))
    detail = rig.table(["step", "own instructions", "calls", "which"], step_rows)
    picture = rig.plot("cost", 'set style data histogram\nset style histogram errorbars gap 2 lw 1\nset style fill solid 0.6\n'
                       'set ylabel "µs of processor time a frame"\nset yrange [0:*]\n'
                       'plot $cost using 2:3:xtic(1) title "velcamd", "" using 4:5 title "bare calls"\n',
                       cost=[(name(*c).replace(", ", "\\n"), *rig.spread(measured[c][0]), *rig.spread(measured[c][1]))
                             for c in CASES])
    rig.write_fragment(
        "cost", "## The daemon's own cost",
        "`vboard run --devices idle --fps max -- velcamd`: every call is checked and answered at once, the codec gives "
        "out a canned frame of 8 KB, so that what remains is the pass itself. Beside it a loop of the same calls and "
        "nothing else (`bench/bare_loop.cpp`) on the same board, run by run in turn. Processor time is that of the frame "
        "loop's thread; own instructions are those of the program and of libc on its behalf, without the board's "
        "(callgrind, the steps kept as functions; it counts each byte of a repeated store, which is most of the clock's "
        "figure). The board's own system calls, `gettid` for its lock, are left out. Aim: a ratio of at most 1.5, no heap allocation, no other "
        "system call than the frame's write and the codec driver's `usleep(0)`. Those two are the larger part of both "
        "columns (the write alone: see Writing), so the difference says more of the daemon than the ratio. Half of its own "
        "instructions are the clock's, most of them the clearing of its band; the next idea is to draw only the characters "
        "that have changed.",
        overall, picture, f"By step, {name(*case)}, for each pass:", detail, "Some pieces by themselves:", pieces())


if __name__ == "__main__":
    main()
