#!/usr/bin/env bash
# What an answer of 100,000 documents (26 MB) costs the running host, beyond a run whose answer is as
# long and no XML (so it is received and dropped): processor time of the loop's thread over that of
# pugixml's parse.
# usage: bench/answer.sh [PROGRAMS]
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/world.sh "${1:-build/release/bin}"
documents=100000 rounds=5

# answer NAME DISTINCT: documents whose names repeat after DISTINCT, each too new for what is there
answer() {
    awk -v count="$documents" -v distinct="$2" 'BEGIN {
        print "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<response>\n<lst name=\"responseHeader\"><int name=\"status\">0</int></lst>"
        printf "<result name=\"response\" numFound=\"%d\" start=\"0\">\n", count
        for (i = 0; i < count; ++i)
            printf "  <doc>\n    <str name=\"filename\">driver_%d.nvz</str>\n    <int name=\"version\">12</int>\n    <str name=\"md5sum\">%032x</str>\n    <int name=\"minimumAutoUpdateVersion\">5</int>\n    <str name=\"minimumOSVersion\">1.0.0</str></doc>\n", i % distinct, i
        print "</result>\n</response>"
    }' >"$world/$1.xml"
}
answer excluded 10
answer refused "$documents"
for name in excluded refused; do tr '<' '-' <"$world/$name.xml" >"$world/$name.received.xml"; done
mkdir "$world/files"
serve_files "$world/files" "location = /drivers/select { alias $world/answer.xml; }"
make_plain "$world/1" 1 1

# cost NAME: of a run with that answer, in milliseconds
cost() {
    local all=()
    ln -sf "$1.xml" "$world/answer.xml"
    for _ in $(seq "$rounds"); do
        run_update 0
        all+=("$loop_milliseconds")
    done
    median "${all[@]}"
}
# measure WHAT ANSWER GOAL
measure() {
    local parses=() parse received whole
    for _ in $(seq "$rounds"); do parses+=("$("$bin/parse_peer" "$world/$2.xml")"); done
    parse=$(median "${parses[@]}")
    received=$(cost "$2.received")
    whole=$(cost "$2")
    echo "$1: $whole ms, received only $received ms; parse $parse ms; resident $(($(memory VmRSS "$host") / 1024)) MB" >&2
    row "$1" "$(calculate "($whole - $received) / $parse")" "$3"
}

make_controller "$world"/1/*.nvi
start_host
ctl exclude add $(printf 'driver_%d.nvz ' $(seq 0 9)) >/dev/null
measure "100,000 documents, all excluded / parse" excluded 1.5
stop_host

make_controller "$world"/1/*.nvi
start_host
"$bin/overseerctl" --root "$controller" events --follow >"$world/seen" 2>"$world/lagged" &
subscriber=$!
pids+=("$subscriber")
measure "100,000 documents, each refused / parse" refused 3
[ "$(wc -l <"$world/seen")" -ge 10000 ] || { echo "the subscriber saw only $(wc -l <"$world/seen") lines" >&2; exit 1; }
kill "$subscriber"
stop_host

make_controller "$world"/1/*.nvi
start_host --log-level debug
"$bin/overseerctl" --root "$controller" events --follow >/dev/null 2>&1 &
pids+=($!)
measure "the same, debug level to a file / parse" refused 6
stop_host
