#!/usr/bin/env bash
# An update of 200 drivers against the line-up of standard tools that somebody would script instead,
# over the same HTTPS server, in the same call. Prints ratios.
# usage: bench/update.sh [ROUNDS [PROGRAMS]]   ROUNDS 3, PROGRAMS build/release/bin
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-3}
bin=$(cd "${2:-build/release/bin}" && pwd)
packaged=${PACKAGED:-150} plain=${PLAIN:-50}
command -v nginx >/dev/null || { echo "bench/update.sh needs nginx (package nginx-light)" >&2; exit 1; }

world=$(mktemp -d "${TMPDIR:-/var/tmp}/overseer-bench.XXXXXX")
pids=()
trap 'for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done; wait 2>/dev/null; rm -rf "$world"' EXIT
controller=$world/controller

manifest() { # NAME VERSION
    printf '<driver><name>%s</name><model>Bench</model><manufacturer>Bench</manufacturer><version>%s</version><proxies><proxy proxybindingid="1" name="light">light</proxy></proxies></driver>\n' "$1" "$2"
}
# make_packages FOLDER VERSION: packages of about 220 KB with ten members, bare drivers of 40 KB
make_packages() {
    mkdir -p "$1" "$world/content/www"
    for number in $(seq "$packaged"); do
        manifest "p$number" "$2" >"$world/content/driver.xml"
        for part in $(seq 9); do head -c 24000 /dev/urandom >"$world/content/www/part$part.bin"; done
        (cd "$world/content" && zip -q -r "$1/driver_$number.nvz" .)
    done
    for number in $(seq "$plain"); do
        { manifest "n$number" "$2"; printf '<!-- '; head -c 30000 /dev/urandom | base64 -w 0; echo ' -->'; } >"$1/bare_$number.nvi"
    done
}
ready() { # FILE
    for _ in $(seq 400); do grep -q '^ready' "$1" 2>/dev/null && return; sleep 0.05; done
    cat "$1" >&2; exit 1
}
cpu_of() { awk '{print $14 + $15}' "/proc/$1/stat"; } # ticks, without children
seconds() { awk "BEGIN {printf \"%.3f\", $1}"; }

make_packages "$world/older" 1
make_packages "$world/newer" 2
script/certificate "$world/certs"
"$bin/driver-depot" serve "$world/newer" --port 0 --insecure-http >"$world/depot.out" 2>&1 &
pids+=($!)
ready "$world/depot.out"
depot=$(sed -n 's/^ready \(http[^ ]*\).*/\1/p' "$world/depot.out")
port=$((20000 + RANDOM % 20000))
cat >"$world/nginx.conf" <<EOF
worker_processes 1; pid $world/nginx.pid; error_log $world/nginx.log warn; daemon off;
events { worker_connections 768; }
http {
  access_log off; sendfile on; client_body_temp_path $world/t1; proxy_temp_path $world/t2;
  fastcgi_temp_path $world/t3; uwsgi_temp_path $world/t4; scgi_temp_path $world/t5;
  server {
    listen 127.0.0.1:$port ssl http2; ssl_certificate $world/certs/server.pem;
    ssl_certificate_key $world/certs/server.key; root $world/newer;
    location ~ /select\$ { proxy_pass $depot; }
  }
}
EOF
nginx -c "$world/nginx.conf" -e "$world/nginx.log" -g "user root;" &
pids+=($!)
catalogue=https://127.0.0.1:$port
for _ in $(seq 100); do curl -s --cacert "$world/certs/ca.pem" -o /dev/null "$catalogue/" && break; sleep 0.05; done

# The strongest line-up: one curl for all files in parallel, one md5sum, then mv and unzip per file,
# each flushed.
peer() {
    local target=$world/peer
    rm -rf "$target"; mkdir -p "$target/download" "$target/drivers"
    cp "$world"/older/* "$target/drivers/"
    (cd "$world/newer" && md5sum *.nv?) >"$target/sums"
    for file in "$world"/newer/*.nv?; do
        printf 'url = "%s/%s"\noutput = "%s/download/%s"\n' "$catalogue" "${file##*/}" "$target" "${file##*/}"
    done >"$target/list"
    sync
    local begin=$EPOCHREALTIME
    local TIMEFORMAT='%U %S'
    { time curl -s --cacert "$world/certs/ca.pem" --parallel --parallel-max 6 -K "$target/list"; } 2>"$target/curl.time"
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
    peer_wall=$(seconds "$EPOCHREALTIME - $begin")
    peer_cpu=$(cat "$target/curl.time" "$target/md5.time" | awk '{sum += $1 + $2} END {printf "%.3f", sum}')
}

ours() {
    rm -rf "$controller"
    "$bin/overseer" --root "$controller" init --ca "$world/certs/ca.pem" >/dev/null
    "$bin/overseer" --root "$controller" install "$world"/older/*.nv? >/dev/null
    sync
    "$bin/overseer" --root "$controller" --catalogue "$catalogue" >"$world/host.out" 2>&1 &
    local host=$!
    pids+=("$host")
    ready "$world/host.out"
    local before after
    before=$(cpu_of "$host")
    local begin=$EPOCHREALTIME
    "$bin/overseerctl" --root "$controller" update --json >"$world/run.json"
    ours_wall=$(seconds "$EPOCHREALTIME - $begin")
    after=$(cpu_of "$host")
    ours_cpu=$(seconds "($after - $before) / $(getconf CLK_TCK)")
    ours_rss=$(awk '/VmRSS/ {print $2}' "/proc/$host/status")
    updated=$(jq .counts.updated "$world/run.json")
    kill "$host"; wait "$host" || true
    [ "$updated" = $((packaged + plain)) ] || { echo "only $updated updated" >&2; jq -c '.counts,.queryFailures' "$world/run.json"; exit 1; }
}

printf '%-8s %10s %10s %8s %10s %10s %8s %10s\n' round "ours s" "peer s" ratio "ours cpu" "peer cpu" ratio "rss KB"
for round in $(seq "$rounds"); do
    ours; peer
    printf '%-8s %10s %10s %8s %10s %10s %8s %10s\n' "$round" "$ours_wall" "$peer_wall" \
        "$(seconds "$ours_wall / $peer_wall")" "$ours_cpu" "$peer_cpu" "$(seconds "$ours_cpu / $peer_cpu")" "$ours_rss"
done
