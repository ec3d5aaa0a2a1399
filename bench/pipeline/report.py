"""Makes the tables and the plot of what pipeline.sh measured: report.py ROWS.csv QUALITY.csv PLOT.png"""

import csv
import os
import statistics
import sys

NAMES = {"floor": "x264 alone", "tight": "plain C", "velcam": "velcam", "ffmpeg": "FFmpeg", "gstreamer": "GStreamer"}
PEERS = ("ffmpeg", "gstreamer")


def read(path):
    """(cameras, threads, name, fields) -> per round (CPU seconds, seconds) of a frame, start-up taken off."""
    runs = {}
    with open(path, newline="") as file:
        for row in csv.DictReader(file):
            key = (int(row["cameras"]), int(row["threads"]), row["name"], row["fields"])
            runs.setdefault(key, []).append(
                (int(row["frames"]), float(row["user"]) + float(row["system"]), float(row["real"])))
    costs = {}
    for key, list_of_runs in runs.items():
        pairs = zip(list_of_runs[0::2], list_of_runs[1::2])
        costs[key] = [((long[1] - short[1]) / (long[0] - short[0]), (long[2] - short[2]) / (long[0] - short[0]))
                      for short, long in pairs]
    return costs


def of_floor(costs, key):
    """CPU time in that of x264 alone of the same round: median, least, most."""
    floor = costs[(key[0], key[1], "floor", "woven")]
    ratios = [cost[0] / base[0] for cost, base in zip(costs[key], floor)]
    return statistics.median(ratios), min(ratios), max(ratios)


def rate(costs, key):
    return 1 / statistics.median(cost[1] for cost in costs[key])


def table(costs, cameras, threads):
    print(f"\n{cameras} cameras, x264 with {threads} thread{'s' if threads > 1 else ''}:\n")
    print("| pipeline | CPU time of x264 alone | spread | with de-interlacing | to its own row | frames/s |"
          " frames/s de-interlaced |")
    print("|---|---|---|---|---|---|---|")
    for name, title in NAMES.items():
        key, smooth = (cameras, threads, name, "woven"), (cameras, threads, name, "progressive")
        if key not in costs:
            continue
        ratio, least, most = of_floor(costs, key)
        row = [title, f"{ratio:.2f}", f"{least:.2f} to {most:.2f}"]
        if smooth in costs:
            more = statistics.median(a[0] / b[0] for a, b in zip(costs[smooth], costs[key]))
            row += [f"{of_floor(costs, smooth)[0]:.2f}", f"{more:.2f}", f"{rate(costs, key):.0f}",
                    f"{rate(costs, smooth):.0f}"]
        else:
            row += ["", "", f"{rate(costs, key):.0f}", ""]
        print("| " + " | ".join(row) + " |")


def verdict(met):
    return "met" if met else "**missed**"


def aims(costs, quality):
    """Each aim, in how many of the rows it is met, and the worst row."""
    print("\n| aim | worst row | |\n|---|---|---|")
    settings = sorted({key[:2] for key in costs}, reverse=True)
    own = [(s, of_floor(costs, (*s, "velcam", "woven"))[0]) for s in settings if (*s, "velcam", "woven") in costs]

    def line(text, values, limit, digits=2):
        if values:
            worst = max(values)
            print(f"| {text} | {worst:.{digits}f} | {verdict(worst <= limit)} |")

    line("CPU time at most 1.05 of plain C's",
         [value / of_floor(costs, (*s, "tight", "woven"))[0] for s, value in own if (*s, "tight", "woven") in costs],
         1.05)
    for fields in ("woven", "progressive"):
        peers = [of_floor(costs, (*s, "velcam", fields))[0] / of_floor(costs, (*s, peer, fields))[0]
                 for s in settings for peer in PEERS
                 if (*s, peer, fields) in costs and (*s, "velcam", fields) in costs]
        line(f"CPU time below both peers', {fields}", peers, 1.0)
        rates = [rate(costs, (*s, peer, fields)) / rate(costs, (*s, "velcam", fields))
                 for s in settings for peer in PEERS
                 if (*s, peer, fields) in costs and (*s, "velcam", fields) in costs]
        line(f"the better peer's frames/s at most velcam's, {fields}", rates, 1.0)
    line("de-interlacing at most 1.15 of the own row without",
         [statistics.median(a[0] / b[0] for a, b in zip(costs[(*s, "velcam", "progressive")],
                                                        costs[(*s, "velcam", "woven")]))
          for s in settings if (*s, "velcam", "progressive") in costs and (*s, "velcam", "woven") in costs], 1.15)
    best = max(value for name, value in quality.items() if "greedy" in name)
    print(f"| PSNR at least that of greedy ({best:.1f} dB) | {quality['velcam']:.1f} dB |"
          f" {verdict(quality['velcam'] >= best)} |")


def plot(costs, path):
    try:
        import matplotlib
    except ImportError:
        print(f"no plot: install python3-matplotlib to have {path} drawn", file=sys.stderr)
        return False
    matplotlib.use("Agg")
    from matplotlib import pyplot
    settings = sorted({key[:2] for key in costs}, reverse=True)
    figure, panes = pyplot.subplots(1, len(settings), figsize=(3.2 * len(settings), 3.6), sharey=True, squeeze=False)
    for pane, setting in zip(panes[0], settings):
        names = [name for name in NAMES if (*setting, name, "woven") in costs]
        for offset, fields, colour in ((-0.2, "woven", "#4878a8"), (0.2, "progressive", "#d08848")):
            for place, name in enumerate(names):
                key = (*setting, name, fields)
                if key in costs:
                    middle, least, most = of_floor(costs, key)
                    pane.bar(place + offset, middle, 0.38, color=colour, yerr=[[middle - least], [most - middle]],
                             label={"woven": "as it comes", "progressive": "de-interlaced"}[fields]
                             if name == "velcam" else None)
        pane.axhline(1, color="black", linewidth=0.6)
        pane.set_xticks(range(len(names)), [NAMES[name] for name in names], rotation=40, ha="right")
        pane.set_title(f"{setting[0]} cameras, {setting[1]} thread{'s' if setting[1] > 1 else ''}", fontsize=10)
    panes[0][0].set_ylabel("CPU time, x264 alone = 1")
    panes[0][0].legend(fontsize=8)
    figure.tight_layout()
    figure.savefig(path, dpi=110)
    return True


def main():
    rows, qualities, picture = sys.argv[1:]
    costs = read(rows)
    with open(qualities, newline="") as file:
        quality = {name: float(value) for name, value in csv.reader(file)}
    rounds = min(len(values) for values in costs.values())
    here = os.path.dirname(os.path.abspath(__file__))
    print("## The whole pipeline\n")
    with open(os.path.join(here, "about.md")) as about:
        print(about.read())
    print(f"Medians of {rounds} rounds in turns. Least and most show how quiet the machine was.")
    aims(costs, quality)
    for setting in sorted({key[:2] for key in costs}, reverse=True):
        table(costs, *setting)
    print("\n| de-interlacer | PSNR of the luma |\n|---|---|")
    for name, value in quality.items():
        print(f"| {name} | {value:.1f} dB |")
    if plot(costs, picture):
        print("\n![CPU time of the pipelines](images/" + os.path.basename(picture) + ")")


main()
