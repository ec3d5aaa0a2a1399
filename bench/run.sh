#!/usr/bin/env bash
# Builds and runs the benchmarks and writes docs/performance.md with its plots.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly all=(cost writing pipeline pacing growth startup)

usage() {
    cat <<END
usage: run.sh [--full | --once] [NAME...]
  NAME     one of ${all[*]} (default: all)
  --full   longer runs and more of them
  --once   run everything once without keeping results: whether the benchmarks work
END
}

bad_usage() {
    echo "run.sh: $1; see run.sh --help" >&2
    exit 2
}

names=()
once=
while (($# > 0)); do
    case $1 in
        --help)
            usage
            exit 0
            ;;
        --full) export BENCH_FULL=1 ;;
        --once) once=1 ;;
        *)
            [[ " ${all[*]} " == *" $1 "* ]] || bad_usage "'$1' is no benchmark"
            names+=("$1")
            ;;
    esac
    shift
done
((${#names[@]} > 0)) || names=("${all[@]}")

scripts/install-deps.sh --bench
cmake --preset release -DVELCAM_BENCH=ON >/dev/null
cmake --build --preset release --parallel "$(nproc)"

export BENCH_OUT=$PWD/build/bench PYTHONDONTWRITEBYTECODE=1
rm -rf "$BENCH_OUT/once"
if [[ -n $once ]]; then
    export BENCH_ONCE=1 BENCH_OUT=$BENCH_OUT/once BENCH_IMAGES=$BENCH_OUT/once
fi
mkdir -p "$BENCH_OUT"

for name in "${names[@]}"; do
    [[ -e bench/$name.py ]] || continue
    began=$SECONDS
    python3 "bench/$name.py"
    echo "$name: $((SECONDS - began)) s"
done
if [[ -z $once ]]; then
    bench/report.sh
fi
