"""Makes the table of docs/reliability.md from what the parts of scripts/reliability.sh said, which is in the folder given."""

import collections
import json
import pathlib
import re
import sys

SAID = pathlib.Path(sys.argv[1])


class Part:
    """What one part said: a line about the run, then the output of its programs."""

    def __init__(self, name):
        head, _, self.text = (SAID / name).read_text(errors="replace").partition("\n")
        _, self.date, short, seconds, verdict = head.split()
        self.extent = "a share" if short == "yes" else "all"
        self.seconds = int(seconds)
        self.failed = verdict == "failed"

    def json_lines(self, start):
        """The lines that begin with the text, from the first brace on."""
        return [json.loads(line[line.index("{"):]) for line in self.text.splitlines() if line.startswith(start)]

    def sum_of(self, pattern):
        return sum(int(count) for count in re.findall(pattern, self.text, re.M))

    def took(self):
        return f"{self.seconds / 3600:.1f} h" if self.seconds >= 3600 else f"{self.seconds / 60:.1f} min"

    def broken_tests(self):
        return sorted(set(re.findall(r"^\[  FAILED  \] ([\w./]+)", self.text, re.M)))


def number(value):
    return f"{value:,}".replace(",", " ")


def listed(counts):
    return ", ".join(f"{name}: {number(count)}" for name, count in counts.items())


def faults(part):
    tried, outcomes = 0, collections.Counter()
    for summary in part.json_lines("FAULTS "):
        tried += summary["tried"]
        outcomes.update(summary["outcomes"])
    return f"{number(tried)} faults ({listed(dict(sorted(outcomes.items())))})", "what the table of outcomes below says, no more"


def survived(part, kind):
    """How many there were of each case, and the sums of all else."""
    cases, figures = collections.Counter(), collections.Counter()
    for row in part.json_lines('{"survival":"' + kind + '",'):
        case = list(row)[1]
        cases[case] += row[case]
        figures.update({key: value for key, value in row.items() if key not in (case, "survival", "oldestAtRiskMs")})
        figures["oldest"] = max(figures["oldest"], row.get("oldestAtRiskMs", 0))
    return cases, figures


def kills(part):
    cases, figures = survived(part, "kill")
    return (f"{number(sum(cases.values()))} instants ({listed(cases)})",
            f"{figures['missing']} of {number(figures['chunks'])} frames that were wholly written; "
            f"{number(figures['tears'])} frames were torn while being written")


def power_cuts(part):
    cases, figures = survived(part, "powerCut")
    return f"{number(sum(cases.values()))} cuts ({listed(cases)})", f"nothing older than {figures['oldest'] / 1000:.2f} s"


def interrupts(part):
    return f"{number(part.sum_of(r'^([0-9]+) runs, '))} runs", "nothing"


def threads(part):
    return f"{number(part.sum_of(r'^([0-9]+) threads '))} threads", "nothing"


def bad_input(part):
    packets = part.sum_of(r"^([0-9]+) packets ")
    return (f"{number(packets)} packets in two seconds of video", "no frame") if packets else ("no flood was tried", "")


def fuzz(part):
    inputs = re.findall(r"^(\w+): (\d+) inputs", part.text, re.M)
    return f"{number(sum(int(count) for _, count in inputs))} inputs, {len(inputs)} targets", "nothing"


def soak(part):
    said = re.search(r"^soak: .*video_s=(?P<video>\d+) rotations=(?P<rotations>\d+) rss_kb=(?P<rss>\S+) fds=(?P<fds>\S+) "
                     r"threads=(?P<threads>\S+) files=(?P<files>\d+)", part.text, re.M)
    if said is None:
        return "ended early", ""
    return (f"{int(said['video']) / 3600:.1f} h of video, {said['rotations']} rotations",
            f"nothing; memory {said['rss'].replace('-', ' to ')} kB, {said['fds'].replace('-', ' to ')} descriptors, "
            f"{said['threads'].replace('-', ' to ')} threads, at most {said['files']} files")


ROWS = {
    "faults": ("device calls and system calls failing", faults),
    "faults-asan": ("a share of the same under ASan and UBSan", faults),
    "kills": ("killed (SIGKILL), then continued by the next run", kills),
    "power-cuts": ("power cut, unsynchronised writes dropped or reordered", power_cuts),
    "interrupts": ("interrupted (SIGINT) at random instants", interrupts),
    "interrupts-asan": ("the same under ASan and UBSan", interrupts),
    "interrupts-tsan": ("the same under TSan", interrupts),
    "threads": ("threads started, halted, stopped and ended in random order, also under ASan and TSan", threads),
    "bad-input": ("flood of packets beside a paced recording; wrong packets and queues; the clock stepped", bad_input),
    "fuzz": ("inputs fuzzed, coverage-guided", fuzz),
    "soak": ("long run with rotations", soak),
}

print("| what | tried | lost | took | when |\n|---|---|---|---|---|")
for name, (what, summarize) in ROWS.items():
    if (SAID / name).exists():
        part = Part(name)
        tried, lost = summarize(part)
        if part.failed:
            lost = "**failed: " + (", ".join(part.broken_tests()) or "see what it said") + "**"
        print(f"| {what} | {tried} | {lost} | {part.took()} | {part.date}, {part.extent} |")
