#!/usr/bin/env bash
# A controller with nothing to do: how soon it is ready with 100 unchanged drivers, and how often it
# wakes up in a minute.
# usage: bench/quiet.sh [PROGRAMS]
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/world.sh "${1:-build/release/bin}"

make_packaged "$world/1" 1 50
make_plain "$world/1" 1 50
serve "$world/1"
make_controller "$world"/1/*.nv?
start_host # the first start looks into every package
stop_host
times=()
for _ in $(seq 7); do
    begin=$EPOCHREALTIME
    "$bin/overseer" --root "$controller" --catalogue "$catalogue" >"$world/host.out" 2>&1 &
    host=$!
    pids+=("$host")
    until grep -q '^ready' "$world/host.out"; do sleep 0.005; done
    times+=("$(calculate "$EPOCHREALTIME - $begin")")
    stop_host
done
row "start to ready with 100 unchanged drivers" "$(median "${times[@]}")" 0.5 " s"

start_host
sleep 2
switches() { cat /proc/"$host"/task/*/status | awk '/voluntary_ctxt/ {sum += $2} END {print sum}'; }
before=$(switches)
timeout -s INT 60 strace -q -f -c -o "$world/calls" -p "$host" || true
after=$(switches)
calls=$(awk '$NF == "total" {print $(NF - 1)}' "$world/calls")
cat "$world/calls" >&2
# Attaching and leaving wake each thread; what is left is a call that somebody made.
echo "switches in that minute: $((after - before)), threads: $(ls "/proc/$host/task" | wc -l)" >&2
row "system calls in an idle minute" "${calls:-0}" 0
