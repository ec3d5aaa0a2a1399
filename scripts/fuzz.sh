#!/usr/bin/env bash
# Builds the fuzzers of everything that reads input from outside, and runs them for a time that they share.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

usage() {
    cat <<END
usage: ${0##*/} [--keep] [SECONDS [TARGET...]]

Runs the fuzzers for SECONDS (default 60), shared among them; all of them, or those named. What they have learnt stays in
build/fuzz/corpus for the next run. An input that breaks something is left in build/fuzz/found.
    --keep    take over into tests/fuzz/corpus what is new there, as small as it comes
END
}

keep=false
if [[ ${1:-} == --help ]]; then
    usage
    exit 0
elif [[ ${1:-} == --keep ]]; then
    keep=true
    shift
fi
readonly seconds=${1:-60}
if [[ ! $seconds =~ ^[1-9][0-9]*$ ]]; then
    echo "${0##*/}: '$seconds' is no number of seconds; see --help" >&2
    exit 2
fi
targets=("${@:2}")

readonly corpus=tests/fuzz/corpus
readonly build=build/fuzz

if ((${#targets[@]} == 0)); then
    mapfile -t targets < <(cd $corpus && ls)
fi
for target in "${targets[@]}"; do
    if [[ ! -d $corpus/$target ]]; then
        echo "${0##*/}: no fuzzer is called '$target', but these are: $(cd $corpus && echo *)" >&2
        exit 2
    fi
done

# What the summary line says, from the fuzzer's own report.
summarize() {
    local target=$1 log=$2 inputs covered memory
    inputs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    memory=$(sed -n 's/^stat::peak_rss_mb: *//p' "$log")
    covered=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -1)
    echo "$target: ${inputs:-?} inputs, ${covered:-?} places reached, ${memory:-?} MB"
}

# Runs one; its standard output is the summary.
run_one() {
    local target=$1 share=$2
    local log=$build/$target.log
    mkdir -p "$build/corpus/$target" "$build/found"
    # The target's own output is closed; the fuzzer's goes on.
    if ! "$build/bin/fuzz_$target" -close_fd_mask=3 -max_total_time="$share" -max_len=2048 -timeout=20 \
        -rss_limit_mb=1024 -print_final_stats=1 -verbosity=1 -artifact_prefix="$build/found/$target-" \
        "$build/corpus/$target" "$corpus/$target" >"$log" 2>&1; then
        # shellcheck disable=SC2012 # names of our own
        echo "$target: BROKEN; to see it: $build/bin/fuzz_$target $(ls -t "$build/found/$target-"* | head -n 1)"
        return 1
    fi
    summarize "$target" "$log"
}

keep_one() {
    local target=$1
    # One input for each place, however often it passes there: a few dozen suffice.
    "$build/bin/fuzz_$target" -close_fd_mask=3 -max_len=512 -use_counters=0 -merge=1 "$corpus/$target" "$build/corpus/$target" \
        >"$build/$target.merge.log" 2>&1
}

main() {
    mkdir -p "$build"
    scripts/install-deps.sh --fuzz
    scripts/build.sh fuzz "${targets[@]/#/fuzz_}" >"$build/build.log" 2>&1 || { cat "$build/build.log" >&2; return 1; }

    # Several at a time; each has its part of the whole.
    local -r together=$(nproc)
    local -r share=$((seconds * together / ${#targets[@]}))
    export -f run_one summarize
    export build corpus
    local failed=0
    printf '%s\0' "${targets[@]}" |
        xargs -0 -P "$together" -I{} bash -c 'run_one "$@"' fuzz {} $((share > 0 ? share : 1)) || failed=1
    if $keep; then
        for target in "${targets[@]}"; do
            keep_one "$target"
        done
        echo "kept: $(find $corpus -type f | wc -l) inputs, $(du -sb --apparent-size $corpus | cut -f1) bytes"
    fi
    return $failed
}

main
