#!/usr/bin/env bash
# An update of 200 drivers (150 packages of 220 KB, 50 bare drivers of 40 KB) against the line-up of
# standard tools that somebody would script instead, over the same HTTPS server, in the same call.
# usage: bench/update.sh [PROGRAMS [ROUNDS]]   ROUNDS 5
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/world.sh "${1:-build/release/bin}"
rounds=${2:-5} packaged=150 plain=50

for version in 1 2; do
    make_packaged "$world/$version" "$version" "$packaged"
    make_plain "$world/$version" "$version" "$plain"
done
serve "$world/2"

# The strongest line-up: one curl for all files in parallel, one md5sum, then mv and unzip per file,
# each flushed.
peer() {
    local target=$world/peer TIMEFORMAT='%U %S'
    rm -rf "$target"
    mkdir -p "$target/download" "$target/drivers"
    cp "$world"/1/* "$target/drivers/"
    for package in "$target"/drivers/*.nvz; do unzip -q "$package" -d "${package%.nvz}"; done
    (cd "$world/2" && md5sum *.nv?) >"$target/sums"
    for file in "$world"/2/*.nv?; do
        printf 'url = "%s/%s"\noutput = "%s/download/%s"\n' "$catalogue" "${file##*/}" "$target" "${file##*/}"
    done >"$target/list"
    sync
    local begin=$EPOCHREALTIME
    { time curl -s --cacert "$ca" --parallel --parallel-max 6 -K "$target/list"; } 2>"$target/curl.time"
    { time (cd "$target/download" && md5sum --quiet -c ../sums); } 2>"$target/md5.time"
    for file in "$target"/download/*; do
        local name=${file##*/}
        sync -d "$file"
        mv "$file" "$target/drivers/$name"
        case $name in *.nvz)
            rm -rf "$target/drivers/${name%.nvz}"
            unzip -q "$target/drivers/$name" -d "$target/drivers/${name%.nvz}"
        esac
    done
    peer_wall=$(calculate "$EPOCHREALTIME - $begin")
    peer_cpu=$(cat "$target/curl.time" "$target/md5.time" | awk '{sum += $1 + $2} END {printf "%.3f", sum}')
}

ours() {
    make_controller "$world"/1/*.nv?
    start_host
    run_update $((packaged + plain))
    resident=$(memory VmRSS "$host")
    stop_host
}

walls=() cpus=() sizes=()
for round in $(seq "$rounds"); do
    ours
    peer
    walls+=("$(calculate "$run_wall / $peer_wall")")
    cpus+=("$(calculate "$run_cpu / $peer_cpu")")
    sizes+=("$(calculate "$resident / 1024")")
    echo "round $round: $run_wall s, line-up $peer_wall s; processor $run_cpu s, curl and md5sum $peer_cpu s" >&2
done
row "200 packages: time / curl, md5sum, mv, unzip" "$(median "${walls[@]}")" 1.0
row "200 packages: processor / curl and md5sum" "$(median "${cpus[@]}")" 2
row "resident memory, idle after that run" "$(median "${sizes[@]}")" 25 " MB"
