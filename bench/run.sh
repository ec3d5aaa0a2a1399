#!/usr/bin/env bash
# Builds and runs the benchmarks and writes docs/performance.md with its plots.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly all=(cost writing write_back pipeline pacing growth startup)

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
extent=()
while (($# > 0)); do
    case $1 in
        --help)
            usage
            exit 0
            ;;
        --full)
            export BENCH_FULL=1
            extent=(--full)
            ;;
        --once)
            once=1
            extent=(--once)
            ;;
        *)
            [[ " ${all[*]} " == *" $1 "* ]] || bad_usage "'$1' is no benchmark"
            names+=("$1")
            ;;
    esac
    shift
done
((${#names[@]} > 0)) || names=("${all[@]}")

scripts/install-deps.sh --bench
if [[ ! -e build/release/CMakeCache.txt ]]; then
    export CMAKE_GENERATOR=Ninja
fi
cmake --preset release -DVELCAM_BENCH=ON >/dev/null
cmake --build --preset release --parallel "$(nproc)" --target benchmarks >/dev/null

export BENCH_OUT=$PWD/build/bench BENCH_IMAGES=$PWD/docs/images PYTHONDONTWRITEBYTECODE=1
rm -rf "$BENCH_OUT/once"
if [[ -n $once ]]; then
    export BENCH_ONCE=1 BENCH_OUT=$BENCH_OUT/once BENCH_IMAGES=$BENCH_OUT/once
fi
mkdir -p "$BENCH_OUT"

for name in "${names[@]}"; do
    began=$SECONDS
    if [[ $name == pipeline ]]; then
        [[ -e bench/pipeline/pipeline.sh ]] || continue
        bench/pipeline/pipeline.sh --bin build/release/bin --out "$BENCH_OUT/pipeline.md" --plots "$BENCH_IMAGES" "${extent[@]}"
    else
        python3 "bench/$name.py"
    fi
    echo "$name: $((SECONDS - began)) s"
done
if [[ -z $once ]]; then
    bench/report.sh
fi
