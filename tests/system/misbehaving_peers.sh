#!/usr/bin/env bash
# A catalogue that misbehaves in every way, and a host that lives through all of it.
# usage: misbehaving_peers.sh FOLDER-OF-PROGRAMS
bin=$1
. "$(dirname "$0")/faults.sh"
. "$(dirname "$0")/story.sh"

become() { curl -sf --cacert "$world/ca.pem" "$server/now?$1"; }

# questions: after every fault. The host lives; each file is old or new; nothing is outside.
questions() {
    kill -0 "$host" 2>/dev/null || fail "the host is gone"
    driver_files_are_whole
    nothing_is_outside
    expect "" "$(ls -A "$controller/tmp")" "what is left in tmp"
    host_is_unburdened
    host_is_idle
}

clean_run() {
    become good
    expect 0 "$(code_of ctl update --json)" "a clean run afterwards"
    expect "$(wc -l <"$world/names")" "$(jq .counts.updated "$world/said")" "what it updated"
}

log_mark() { log_size=$(wc -c <"$controller/log/overseer.log"); }
log_since() { tail -c "+$((log_size + 1))" "$controller/log/overseer.log"; }

chapter "a controller whose catalogue is in order"
mkdir "$world/first"
"$bin/misbehaving_server" "$world" >"$world/server.out" 2>&1 &
started+=($!)
await "$world/server.out" ready
read -r _ server expired self_signed other_host stranger <"$world/server.out"
ls "$world/first" >"$world/names"
make_sentinels
"$bin/overseer" --root "$controller" init --ca "$world/ca.pem" >/dev/null
"$bin/overseer" --root "$controller" install "$world"/first/* >/dev/null
ln -s announced "$world/driver_files.unsorted"
# Every version that was ever offered is a whole one.
driver_files_are_whole_now() { sort -u "$world/announced" | sed 's|  \(.*\.nvi\)$|  ./plain/\1|; s|  \(.*\.nvz\)$|  ./packaged/\1|' | sort >"$world/driver_files"; }
start_host --catalogue "$server" --low-speed-time 1 --low-speed-rate 1000
clean_run
clean_run
usual_burden=$(burden)

chapter "answers that are none"
while read -r what code said; do
    become "$what"
    log_mark
    expect "$code" "$(code_of ctl update)" "the update when the catalogue $what"
    printf '%s %s\n' "$what" "$(log_since | cut -c 26- | head -n 2 | tr '\n' ' ')"
    driver_files_are_whole_now
    questions
    clean_run
done <<'TABLE'
resets 2 x
truncates 2 x
status_404 2 x
status_429 2 x
status_500 2 x
status_503 2 x
redirects 2 x
not_xml 2 x
empty 2 x
no_result 2 x
cut_xml 2 x
wrong_count 0 x
no_fields 0 x
capital_md5 2 x
no_md5 2 x
hostile_names 2 x
nested 2 x
too_large 2 x
TABLE
chapter "files"
become bad_files
log_mark
code_of ctl update
cat $world/said
log_since | cut -c 26-
cat $world/said
