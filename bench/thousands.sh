#!/usr/bin/env bash
# Thousands of files due at once: 3,000 with 8,192 descriptors and a web server at its defaults, then
# how the cost of a run grows with the number of drivers.
# usage: bench/thousands.sh [PROGRAMS]
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/world.sh "${1:-build/release/bin}"

# world_of COUNT BYTES: that many bare drivers, version 1 in place and version 2 in the catalogue
world_of() {
    rm -rf "$world/1" "$world/2"
    for version in 1 2; do make_plain "$world/$version" "$version" "$1" "$2"; done
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    pids=()
    rm -rf "$world/web"
    serve "$world/2"
    make_controller "$world"/1/*.nvi
    : >"$world/web/access.log"
}

world_of 3000 10000
start_host
prlimit --pid "$host" --nofile=8192:8192
run_update 3000
refused=$(awk '$1 >= 400' "$world/web/access.log" | wc -l)
row "3,000 files due: requests refused" "$refused" 0
row "3,000 files due: files not updated" $((3000 - $(jq .counts.updated "$world/run.json"))) 0
# Files are asked for in the order in which the catalogue named them.
disorder=$(diff <(awk '$2 ~ /nvi/ {print $2}' "$world/web/access.log") \
    <(awk '$2 ~ /nvi/ {print $2}' "$world/web/access.log" | awk '!seen[$0]++') | grep -c '^[<>]' || true)
row "3,000 files due: files asked for twice" "$disorder" 0
echo "3,000 files: $run_wall s, processor $run_cpu s, most memory $(($(memory VmHWM "$host") / 1024)) MB" >&2

each=()
for count in 100 1000 10000; do
    world_of "$count" 1000
    start_host
    run_update "$count"
    each+=("$(calculate "1000 * $run_cpu / $count")")
    echo "$count drivers: $run_wall s, processor $run_cpu s, most memory $(($(memory VmHWM "$host") / 1024)) MB" >&2
done
row "processor a driver, 10,000 drivers / 1,000" "$(calculate "${each[2]} / ${each[1]}")" 1.3
