#!/bin/bash
# Runs one libFuzzer target for a time budget and records its executions:
# run-fuzzer.sh <target binary> <seconds> <stats file> <work corpus> <seed dir>...
# A crash leaves its input as crash-* in the current directory and fails.
set -uo pipefail
target=$1 seconds=$2 stats=$3 corpus=$4
shift 4
mkdir -p "$corpus"
seeds=()
for dir in "$@"; do
    [ -d "$dir" ] && seeds+=("$dir")
done
log=$(mktemp)
"$target" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 -print_final_stats=1 \
    "$corpus" "${seeds[@]}" 2>&1 | tee "$log" | grep -E '^(#[0-9]+ +(INITED|DONE)|==|SUMMARY|stat::number_of_executed_units)'
status=${PIPESTATUS[0]}
executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
printf '%s %s executions in %s s, exit %s\n' "$(basename "$target")" "${executions:-0}" \
    "$seconds" "$status" >>"$stats"
[ "$status" -eq 0 ] || tail -60 "$log"
rm -f "$log"
exit "$status"
