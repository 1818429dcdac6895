# A controller, a catalogue and a web server to measure with; sourced by the programs beside it.
# usage: . bench/world.sh [PROGRAMS]   PROGRAMS build/release/bin
# Leaves $bin, $world (a folder that goes at the end) and the functions below.
# A row is one line on standard output, tab-separated: what, measured, goal, verdict. Details go to
# standard error.
bin=$(cd "${1:-build/release/bin}" && pwd)
for tool in nginx zip jq curl strace; do
    command -v "$tool" >/dev/null || { echo "$0 needs $tool: script/setup packages.bench" >&2; exit 1; }
done

# On a real disk where there is one: a tmpfs would make every flush free.
world=$(mktemp -d "${TMPDIR:-/var/tmp}/overseer-bench.XXXXXX")
controller=$world/controller
pids=()
finish() {
    local code=$?
    trap - EXIT
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$world"
    exit "$code"
}
trap finish EXIT
trap 'exit 130' INT TERM

calculate() { awk "BEGIN {printf \"%.3f\", $1}"; }

# row WHAT MEASURED GOAL [UNIT]: the measured value may be the goal at most
row() {
    local verdict
    verdict=$(awk -v value="$2" -v goal="$3" 'BEGIN {print (value <= goal ? "kept" : "NOT REACHED")}')
    printf '%s\t%s%s\t%s%s\t%s\n' "$1" "$2" "${4:-}" "$3" "${4:-}" "$verdict"
}
# median VALUES...
median() { printf '%s\n' "$@" | sort -n | awk '{value[NR] = $1} END {print value[int((NR + 1) / 2)]}'; }

manifest() { # NAME VERSION
    printf '<driver><name>%s</name><model>Bench</model><manufacturer>Bench</manufacturer><version>%s</version><proxies><proxy proxybindingid="1" name="light">light</proxy></proxies></driver>\n' "$1" "$2"
}
# make_packaged FOLDER VERSION COUNT: packages of about 220 KB with ten members
make_packaged() {
    mkdir -p "$1" "$world/content/www"
    for number in $(seq "$3"); do
        manifest "p$number" "$2" >"$world/content/driver.xml"
        for part in $(seq 9); do head -c 24000 /dev/urandom >"$world/content/www/part$part.bin"; done
        (cd "$world/content" && zip -q -r "$1/driver_$number.nvz" .)
    done
}
# make_plain FOLDER VERSION COUNT [BYTES]: bare drivers with a comment of about BYTES
make_plain() {
    local filler
    mkdir -p "$1"
    filler=$(head -c "$((${4:-40000} * 3 / 4))" /dev/urandom | base64 -w 0)
    for number in $(seq "$3"); do
        printf '%s<!-- %s %s -->\n' "$(manifest "n$number" "$2")" "$number" "$filler" >"$1/bare_$number.nvi"
    done
}

# await FILE LINE-BEGINNING
await() {
    for _ in $(seq 2400); do grep -q "^$2" "$1" 2>/dev/null && return; sleep 0.05; done
    cat "$1" >&2
    return 1
}

# serve FOLDER: the depot answers queries over it, nginx with TLS hands out the files and passes
# the queries on; leaves $catalogue and $ca. nginx's limits are its own defaults.
serve() {
    local depot
    "$bin/driver-depot" serve "$1" --port 0 --insecure-http >"$world/depot.out" 2>&1 &
    pids+=($!)
    await "$world/depot.out" ready
    depot=$(sed -n 's/^ready \(http[^ ]*\).*/\1/p' "$world/depot.out")
    serve_files "$1" "location ~ /select\$ { proxy_pass $depot; proxy_buffers 16 64k; }"
}
# serve_files FOLDER [LOCATION]
serve_files() {
    local port=$((20000 + RANDOM % 10000))
    while (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do port=$((port + 1)); done
    mkdir -p "$world/web"
    [ -f "$world/certs/ca.pem" ] || script/certificate "$world/certs" >/dev/null 2>&1
    ca=$world/certs/ca.pem
    cat >"$world/web/nginx.conf" <<CONF
worker_processes 1; pid $world/web/pid; error_log $world/web/error.log warn; daemon off;
events { }
http {
  log_format short '\$status \$request_uri'; access_log $world/web/access.log short;
  sendfile on; client_body_temp_path $world/web/t1;
  proxy_temp_path $world/web/t2; fastcgi_temp_path $world/web/t3; uwsgi_temp_path $world/web/t4;
  scgi_temp_path $world/web/t5;
  server {
    listen 127.0.0.1:$port ssl http2; ssl_certificate $world/certs/server.pem;
    ssl_certificate_key $world/certs/server.key; root $1;
    ${2:-}
  }
}
CONF
    nginx -c "$world/web/nginx.conf" -e "$world/web/error.log" -g "user root;" &
    pids+=($!)
    catalogue=https://127.0.0.1:$port
    for _ in $(seq 100); do curl -s --cacert "$ca" -o /dev/null "$catalogue/" && return; sleep 0.05; done
    cat "$world/web/error.log" >&2
    return 1
}

# make_controller FILES...: a fresh controller with these drivers in place
make_controller() {
    rm -rf "$controller"
    "$bin/overseer" --root "$controller" init --ca "$ca" >/dev/null
    [ $# -eq 0 ] || printf '%s\0' "$@" | xargs -0 "$bin/overseer" --root "$controller" install >/dev/null
    sync
}
# start_host OPTIONS...: leaves $host
start_host() {
    "$bin/overseer" --root "$controller" --catalogue "$catalogue" "$@" >"$world/host.out" 2>&1 &
    host=$!
    pids+=("$host")
    await "$world/host.out" ready
}
stop_host() { kill "$host"; wait "$host" || true; }
ctl() { "$bin/overseerctl" --root "$controller" "$@"; }

# run_update EXPECTED: one run; leaves $run_wall, $run_cpu (seconds, without children) and
# $loop_milliseconds, the processor's on the thread that everything of the agent runs on
run_update() {
    local before thread begin=$EPOCHREALTIME updated
    before=$(ticks "$host")
    thread=$(loop_nanoseconds)
    ctl update --json >"$world/run.json" || true
    run_wall=$(calculate "$EPOCHREALTIME - $begin")
    run_cpu=$(calculate "($(ticks "$host") - $before) / $(getconf CLK_TCK)")
    loop_milliseconds=$(calculate "($(loop_nanoseconds) - $thread) / 1e6")
    updated=$(jq .counts.updated "$world/run.json")
    [ "$updated" = "$1" ] || { echo "$updated updated, $1 were due" >&2; jq -c '.counts,.queryFailures' "$world/run.json" >&2; return 1; }
}
ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; } # of the processor, without children
loop_nanoseconds() { cut -d ' ' -f 1 "/proc/$host/task/$host/schedstat"; }
memory() { awk -v name="$1:" '$1 == name {print $2}' "/proc/$2/status"; } # NAME PID: KB
