#!/usr/bin/env bash
# Builds the fuzz preset (clang, libFuzzer, AddressSanitizer +
# UndefinedBehaviorSanitizer) and runs the fuzz targets side by side, each
# starting from its seeds in fuzz/corpus/<target>/:
#   scripts/run-fuzz.sh --seconds 60 [target...]      each for 60 s (CI)
#   scripts/run-fuzz.sh --runs 10000000 [target...]   each for that many inputs
# Without names every fuzz_* target built runs. Prints per target the inputs
# executed, the time taken and the result; fails when any target reports a
# crash, a failed check, a leak, a sanitizer error, a hang or too much memory.
# Logs go to build/fuzz/logs/, the input that failed to build/fuzz/artifacts/.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    echo "usage: $0 (--seconds N | --runs N) [target...]" >&2
    exit 2
}
[ $# -ge 2 ] || usage
case "$1" in
--seconds) limit=(-max_total_time="$2") ;;
--runs) limit=(-runs="$2") ;;
*) usage ;;
esac
[[ "$2" =~ ^[0-9]+$ ]] || usage
shift 2

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

build=build/fuzz
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    mapfile -t targets < <(find "$build/fuzz" -maxdepth 1 -type f -executable -name 'fuzz_*' -printf '%f\n' | sort)
fi
[ ${#targets[@]} -gt 0 ] || { echo "no fuzz targets in $build/fuzz" >&2; exit 1; }
for target in "${targets[@]}"; do
    [ -x "$build/fuzz/$target" ] || { echo "no such fuzz target: $target" >&2; exit 2; }
done
mkdir -p "$build/logs" "$build/artifacts"

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

# One target: its figures line on stdout, its status as the exit status.
fuzz_one() {
    local target=$1 seeds=fuzz/corpus/$1 work=$build/corpus/$1 log=$build/logs/$1.log
    rm -rf "$work" # new inputs go here; the seeds stay as they are
    mkdir -p "$work"
    local start status=0 inputs result
    start=$(date +%s)
    # -close_fd_mask=2: the library's own reports on stderr are dropped;
    # libFuzzer's, the sanitizers' and the failed checks' output is kept.
    # -max_len=1024: room for four frames of the longest size the session
    # reads (255); libFuzzer's default, 4096, makes the slower targets slower
    # still without reaching more code.
    "$build/fuzz/$target" "${limit[@]}" -max_len=1024 -timeout=30 -rss_limit_mb=2048 -close_fd_mask=2 \
        -print_final_stats=1 -artifact_prefix="$build/artifacts/$target-" "$work" "$seeds" >"$log" 2>&1 || status=$?
    inputs=$(awk '/^stat::number_of_executed_units:/ { n = $2 } END { print n + 0 }' "$log")
    result=ok
    if [ $status -ne 0 ]; then
        # The first report line names the fault (check, sanitizer, leak, time-out).
        result="FAILED: $(grep -m1 -E 'check failed|ERROR: (AddressSanitizer|LeakSanitizer|libFuzzer)|runtime error|SUMMARY' "$log" || echo "exit status $status")"
    fi
    printf '%-16s %12s inputs %6s s  %s\n' "$target" "$inputs" "$(($(date +%s) - start))" "$result"
    return $status
}

echo "=== fuzzing ${targets[*]} (logs in $build/logs) ==="
pids=()
for target in "${targets[@]}"; do
    fuzz_one "$target" >"$build/logs/$target.line" &
    pids+=($!)
done
failed=0
for i in "${!targets[@]}"; do
    wait "${pids[$i]}" || { failed=1; tail -n 60 "$build/logs/${targets[$i]}.log"; }
done
echo "=== fuzzing summary ==="
for target in "${targets[@]}"; do cat "$build/logs/$target.line"; done
exit $failed
