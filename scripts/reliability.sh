#!/usr/bin/env bash
# Tries everything that could lose a recording, and writes what was tried and what was lost into docs/reliability.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/measuring.sh

usage() {
    cat <<'END'
usage: reliability.sh [--short] [--print] [--keep]
  --short  a share of each, some ten minutes, instead of all of it, some hours
  --print  show the table instead of writing it into docs/reliability.md
  --keep   make the table from what the last call's runs said, which is in build/reliability
END
}

short=
print=
keep=
while (($# > 0)); do
    case $1 in
        --help) usage; exit 0 ;;
        --short | --print | --keep) declare "${1#--}=yes" ;;
        *) echo "${0##*/}: '$1' is not an option; see --help" >&2; exit 2 ;;
    esac
    shift
done

readonly said=build/reliability
readonly into=docs/reliability.md
readonly bin=build/release/bin
if [[ -z $short ]]; then
    export VELCAM_LONG=1
fi
command -v python3 >/dev/null || { echo "${0##*/}: install the package python3" >&2; exit 1; }

failed=()
# run NAME COMMAND...: what it says goes to a file of that name; one that fails is named at the end.
run() {
    local name=$1 began=$SECONDS
    shift
    echo "$name ..."
    if ! "$@" >"$said/$name" 2>&1; then
        failed+=("$name")
    fi
    echo "$name: $((SECONDS - began)) s"
}

run_all() {
    rm -rf "$said"
    mkdir -p "$said"
    scripts/install-deps.sh
    scripts/build.sh release
    echo "${short:+short }$(date -u +%F)" >"$said/when"
    run faults "$bin/fault_tests"
    run kills "$bin/survival_tests" --gtest_filter='*Kill*'
    run power-cuts "$bin/survival_tests" --gtest_filter='*PowerCut*'
    run interrupts "$bin/system_tests" --gtest_filter='Endings.AnInterrupt*'
    run bad-input "$bin/system_tests" --gtest_filter='BadInput.*:WallClock.*'
    if [[ -n $short ]]; then
        run fuzz scripts/fuzz.sh 70
        run soak scripts/soak.sh 40
    else
        run fuzz scripts/fuzz.sh 1800
        run soak scripts/soak.sh --day
    fi
}

# The runs' lines for machines, as rows of a table.
table() {
    python3 - "$said" <<'END'
import collections, json, pathlib, re, sys

said = pathlib.Path(sys.argv[1])

def text(name):
    path = said / name
    return path.read_text(errors="replace") if path.exists() else ""

def lines(name, start):
    return [line[len(start):] for line in text(name).splitlines() if line.startswith(start)]

def verdict(name):
    broken = len(set(re.findall(r"^\[  FAILED  \] ([\w./]+)", text(name), re.M)))
    return f"**{broken} tests failed**" if broken else None

def number(value):
    return f"{value:,}".replace(",", " ")

rows = []
tried, outcomes = 0, collections.Counter()
for line in lines("faults", "FAULTS "):
    summary = json.loads(line)
    tried += summary["tried"]
    outcomes.update(summary["outcomes"])
if tried:
    defects = outcomes.pop("defect", 0)
    ways = ", ".join(f"{name}: {number(count)}" for name, count in sorted(outcomes.items()))
    rows.append(("device calls and system calls failing", f"{number(tried)} faults ({ways})",
                 f"**{defects} defects**" if defects else verdict("faults") or "what the table of outcomes below says, no more"))

def survival(name, kind):
    figures = collections.Counter()
    cases = collections.Counter()
    oldest = 0
    for line in lines(name, '{"survival":"' + kind + '",'):
        row = json.loads('{"survival":"' + kind + '",' + line)
        names = list(row)
        cases[names[1]] += row[names[1]]
        oldest = max(oldest, row.get("oldestAtRiskMs", 0))
        for key in names[2:]:
            if key != "oldestAtRiskMs":
                figures[key] += row[key]
    return cases, figures, oldest

cases, figures, _ = survival("kills", "kill")
if cases:
    what = ", ".join(f"{case}: {number(count)}" for case, count in cases.items())
    rows.append(("killed (SIGKILL), then continued by the next run", f"{number(sum(cases.values()))} instants ({what})",
                 verdict("kills") or f"{figures['missing']} of {number(figures['chunks'])} frames that were wholly written; "
                 f"{number(figures['tears'])} frames were torn while being written"))
cases, _, oldest = survival("power-cuts", "powerCut")
if cases:
    what = ", ".join(f"{case}: {number(count)}" for case, count in cases.items())
    rows.append(("power cut, unsynchronised writes dropped or reordered", f"{number(sum(cases.values()))} cuts ({what})",
                 verdict("power-cuts") or f"nothing older than {oldest / 1000:.2f} s"))
for line in re.findall(r"^(\d+) runs, (\d+) of them interrupted before", text("interrupts"), re.M):
    rows.append(("interrupted (SIGINT) at random instants", f"{line[0]} runs", verdict("interrupts") or "nothing"))
for packets in re.findall(r"^.*?(\d+) packets.*$", text("bad-input"), re.M)[:1]:
    rows.append(("flood of packets beside a recording", f"{number(int(packets))} packets", verdict("bad-input") or "no frame"))
inputs = re.findall(r"^(\w+): (\d+) inputs", text("fuzz"), re.M)
if inputs:
    broken = re.findall(r"^(\w+): BROKEN", text("fuzz"), re.M)
    rows.append(("inputs fuzzed, coverage-guided", f"{number(sum(int(count) for _, count in inputs))} inputs, {len(inputs)} targets",
                 f"**broken: {', '.join(broken)}**" if broken else "nothing"))
soak = re.search(r"^soak: verdict=(\w+) seconds=(\d+) frames=(\d+) video_s=(\d+) rotations=(\d+) rss_kb=(\d+)-(\d+) fds=(\d+)-(\d+) "
                 r"threads=(\d+)-(\d+) files=(\d+)", text("soak"), re.M)
if soak:
    value = soak.groups()
    rows.append(("long run with rotations", f"{int(value[3]) / 3600:.1f} h of video, {value[4]} rotations",
                 f"{'nothing' if value[0] == 'ok' else '**' + value[0] + '**'}; memory {value[5]} to {value[6]} kB, "
                 f"{value[7]} to {value[8]} descriptors, {value[10]} threads, at most {value[11]} files"))

print(f"From {text('when').strip() or 'an unknown day'}.\n")
print("| what | tried | lost |\n|---|---|---|")
for row in rows:
    print("| " + " | ".join(row) + " |")
END
}

[[ -n $keep ]] || run_all
table >"$said/table.md"
if [[ -n $print ]]; then
    cat "$said/table.md"
else
    write_between tried "$said/table.md" "$into"
    echo "written into $into"
fi
if ((${#failed[@]} > 0)); then
    echo "${0##*/}: failed: ${failed[*]}; what they said is in $said" >&2
    exit 1
fi
