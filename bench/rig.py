"""What the benchmarks share: a daemon on a virtual board of its own, figures, plots, and the fragment for the document."""
import json
import os
import pathlib
import signal
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BIN = pathlib.Path(os.environ.get("BENCH_BIN", ROOT / "build/release/bin"))
OUT = pathlib.Path(os.environ.get("BENCH_OUT", ROOT / "build/bench"))
IMAGES = pathlib.Path(os.environ.get("BENCH_IMAGES", ROOT / "docs/images"))
FULL = os.environ.get("BENCH_FULL") == "1"
ONCE = os.environ.get("BENCH_ONCE") == "1"  # run through everything once, measure nothing worth reading


def choose(once, usual, full):
    """The extent of a measurement."""
    return once if ONCE else full if FULL else usual


def await_true(condition, what, seconds=60):
    end = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            sys.exit(f"bench: waited in vain for {what}")
        time.sleep(0.01)


class Panel:
    """velcamd, or another program, on a board; its status queue is read. Use it in a with statement."""

    def __init__(self, *options, program=("velcamd",), before=(), prepare=None, reader=True):
        self.folder = tempfile.TemporaryDirectory(prefix="velcam-bench-", dir=OUT)
        self.board = pathlib.Path(self.folder.name) / "board"
        self.root = self.board / "root"
        if prepare:
            subprocess.run([BIN / "vboard", "run", "--board", self.board, "--", "/bin/true"], check=True)
            prepare(self.root)
        self.report = pathlib.Path(self.folder.name) / "report"
        command = [*before, BIN / "vboard", "run", "--board", self.board, "--report", self.report, *options, "--",
                   BIN / program[0] if not str(program[0]).startswith("/") else program[0], *program[1:]]
        self.output = pathlib.Path(self.folder.name) / "output"
        with open(self.output, "wb") as output:
            self.launcher = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                             start_new_session=True)
        self.reader = None
        self.wants_reader = reader

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.launcher.poll() is None:
            os.killpg(self.launcher.pid, signal.SIGKILL)  # a group of our own
            self.launcher.wait()
        self.end_reader()
        self.folder.cleanup()

    def end_reader(self):
        if self.reader:
            self.reader.terminate()
            self.reader.wait()
            self.reader = None

    def attach(self, *command, **arguments):
        return subprocess.Popen([BIN / "vboard", "attach", "--board", self.board, "--", *command],
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                **arguments)

    def counters(self):
        """Frames encoded, page flips, frames delivered and dropped (over all cameras) so far."""
        result = subprocess.run([BIN / "bench_probe", self.board], capture_output=True, text=True)
        return [int(word) for word in result.stdout.split()] or [0, 0, 0, 0]

    def await_up(self, frames=30):
        def up():
            if self.launcher.poll() is not None:
                sys.exit(f"bench: the daemon ended: {self.output.read_text()[-500:]}")
            return self.counters()[0] >= frames
        await_true(up, "the first frames", 180)
        if self.wants_reader:
            self.reader = self.attach(BIN / "velcamctl", "status", "--follow")

    def show(self, *channels):
        """Has cameras displayed and waits until pages are flipped."""
        flips = self.counters()[1]
        command = [BIN / "velcamctl", "state", "camera", *map(str, channels)]
        if self.attach(*command).wait() != 0:
            sys.exit("bench: the daemon takes no request")
        await_true(lambda: self.counters()[1] > flips + 10, "the first page flips", 180)

    def program(self):
        """Process id of what runs on the board."""
        def child():
            pids = [self.launcher.pid]
            while pids:
                pid = pids.pop()
                for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
                    pids += [int(word) for word in (task / "children").read_text().split()]
                name = pathlib.Path(f"/proc/{pid}/comm").read_text().strip()
                if name not in ("vboard", "strace", "under"):
                    return pid
            return None
        return await_true(child, "the program")

    def cpu_ns(self, pid):
        """Processor time of the frame loop's thread."""
        return int(pathlib.Path(f"/proc/{pid}/task/{pid}/schedstat").read_text().split()[0])

    def end(self):
        os.kill(self.program(), signal.SIGINT)  # a tracer that may stand before the launcher keeps signals to itself
        status = self.launcher.wait(120)
        self.end_reader()
        if status != 0:
            sys.exit(f"bench: the daemon ended with {status}: {self.output.read_text()[-500:]}")
        return json.loads(self.report.read_text())


def cpu_per_frame(panel, seconds):
    """Microseconds of processor time of the frame loop for each recorded frame."""
    pid = panel.program()
    cpu, frames = panel.cpu_ns(pid), panel.counters()[0]
    time.sleep(seconds)
    cpu, frames = panel.cpu_ns(pid) - cpu, panel.counters()[0] - frames
    return cpu / max(frames, 1) / 1000


def spread(values):
    """Median with half the distance between the quartiles, for people."""
    middle = statistics.median(values)
    if len(values) < 4:
        return middle, (max(values) - min(values)) / 2
    quarters = statistics.quantiles(values, n=4)
    return middle, (quarters[2] - quarters[0]) / 2


def shown(values, digits=1):
    middle, half = spread(values)
    return f"{middle:.{digits}f} ± {half:.{digits}f}"


def percentile(values, share):
    values = sorted(values)
    return values[min(len(values) - 1, int(share * len(values)))]


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    lines += ["| " + " | ".join(map(str, row)) + " |" for row in rows]
    return "\n".join(lines)


def plot(name, script, **data):
    """Draws docs/images/performance-NAME.png; each data set becomes a block $NAME of columns."""
    blocks = "".join(f"${key} << EOD\n" + "\n".join("\t".join(map(str, row)) for row in rows) + "\nEOD\n"
                     for key, rows in data.items())
    IMAGES.mkdir(parents=True, exist_ok=True)
    head = (f'set terminal pngcairo size 900,420 font "DejaVu Sans,10"\nset output "{IMAGES}/performance-{name}.png"\n'
            'set datafile separator "\\t"\nset grid ytics\nset key top left\nset bmargin 4\n')
    subprocess.run(["gnuplot"], input=blocks + head + script, text=True, check=True)
    return f"![](images/performance-{name}.png)"


def write_fragment(name, *parts):
    OUT.mkdir(parents=True, exist_ok=True)
    (OUT / f"{name}.md").write_text("\n\n".join(parts) + "\n")
