#!/usr/bin/env bash
# Tries everything that could lose a recording, and writes what was tried and what was lost into docs/reliability.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/measuring.sh

readonly every=(faults faults-asan kills power-cuts interrupts interrupts-asan interrupts-tsan threads bad-input fuzz soak)

usage() {
    cat <<END
usage: ${0##*/} [--short] [--print] [PART...]
  PART     one of ${every[*]} (default: all)
  --short  a share of each, some ten minutes, instead of all of it, some hours
  --print  show the table instead of writing it into docs/reliability.md

What a part said stays in build/reliability; the table has the last run of each.
END
}

parts=()
short=
print=
while (($# > 0)); do
    case $1 in
        --help) usage; exit 0 ;;
        --short | --print) declare "${1#--}=yes" ;;
        *)
            [[ " ${every[*]} " == *" $1 "* ]] || { echo "${0##*/}: '$1' is no part; see --help" >&2; exit 2; }
            parts+=("$1")
            ;;
    esac
    shift
done
((${#parts[@]} > 0)) || parts=("${every[@]}")
readonly parts short print

readonly said=build/reliability
readonly into=docs/reliability.md
command -v python3 >/dev/null || { echo "${0##*/}: install the package python3" >&2; exit 1; }

# tests PRESET PROGRAM FILTER: the tests of a preset, that many at once as keep the processors busy; they wait a lot.
tests() {
    local shards=$((4 * $(nproc))) number pids=() status=0
    local runner=()
    [[ $1 != tsan ]] || runner=(setarch "$(uname -m)" -R) # its memory map does not bear a widely randomised address space
    for ((number = 0; number < shards; ++number)); do
        GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$number "${runner[@]}" "build/$1/bin/$2" --gtest_filter="$3" \
            >"$said/shard.$number" 2>&1 &
        pids+=($!)
    done
    for pid in "${pids[@]}"; do
        wait "$pid" || status=1
    done
    cat "$said"/shard.*
    rm "$said"/shard.*
    return $status
}

# amount SHORT LONG
amount() { [[ -n $short ]] && echo "$1" || echo "$2"; }

readonly interrupts='Endings.AnInterrupt*'
readonly threads='AThread.*'

part_faults() { tests release fault_tests '*'; }
part_faults-asan() { VELCAM_LONG='' VELCAM_FAULT_SHARE=$(amount 40 8) tests asan fault_tests 'On/EveryCall.*'; }
part_kills() { tests release survival_tests '*Kill*'; }
part_power-cuts() { tests release survival_tests '*PowerCut*'; }
part_interrupts() { tests release system_tests "$interrupts"; }
part_interrupts-asan() { tests asan system_tests "$interrupts"; }
part_interrupts-tsan() { tests tsan system_tests "$interrupts"; }
part_threads() { tests release unit_tests "$threads" && tests asan unit_tests "$threads" && tests tsan unit_tests "$threads"; }
part_bad-input() { build/release/bin/system_tests --gtest_filter='*BadInput.*:WallClock.*'; } # one of them is paced
part_fuzz() { scripts/fuzz.sh "$(amount 70 1800)"; }
part_soak() { scripts/soak.sh "$(amount 40 --day)"; }

build_for() {
    case $1 in
        *-asan | *-tsan) scripts/build.sh "${1##*-}" ;;
        threads) scripts/build.sh asan && scripts/build.sh tsan ;;
    esac
}

failed=()
# What a part says goes to a file of its name, behind a line about the run; one that fails is named at the end.
run() {
    local part=$1 began=$SECONDS verdict=passed
    echo "$part ..."
    if ! "part_$part" >"$said/$part.now" 2>&1; then
        failed+=("$part")
        verdict=failed
    fi
    { echo "PART $(date -u +%F) ${short:-no} $((SECONDS - began)) $verdict"; cat "$said/$part.now"; } >"$said/$part"
    rm "$said/$part.now"
    echo "$part: $verdict, $((SECONDS - began)) s"
}

[[ -n $short ]] || export VELCAM_LONG=1
mkdir -p "$said"
scripts/install-deps.sh
scripts/build.sh release
for part in "${parts[@]}"; do
    build_for "$part"
    run "$part"
done

python3 scripts/reliability_table.py "$said" >"$said/table.md"
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
