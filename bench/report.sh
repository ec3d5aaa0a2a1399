#!/usr/bin/env bash
# Joins what the benchmarks wrote into docs/performance.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [[ ${1:-} == --help ]]; then
    echo "usage: ${0##*/}    joins bench/performance.head.md and build/bench/*.md into docs/performance.md"
    exit 0
fi

readonly order=(cost writing write_back pipeline pacing growth startup)
readonly out=${BENCH_OUT:-build/bench}
{
    cat bench/performance.head.md
    printf 'Measured on %s, %s processors%s, Linux %s, load %s at the end.\n' \
        "$(date +%Y-%m-%d)" "$(nproc)" \
        "$(sed -n 's/^model name.*: /, /p' /proc/cpuinfo | head -n 1)" "$(uname -r)" "$(cut -d ' ' -f 1 /proc/loadavg)"
    for name in "${order[@]}"; do
        if [[ -e $out/$name.md ]]; then
            echo
            cat "$out/$name.md"
        fi
    done
} >docs/performance.md
