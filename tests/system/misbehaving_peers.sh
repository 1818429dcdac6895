#!/usr/bin/env bash
# A catalogue that misbehaves in every way, and a host that lives through all of it.
# usage: misbehaving_peers.sh FOLDER-OF-PROGRAMS
bin=$1
. "$(dirname "$0")/faults.sh"
. "$(dirname "$0")/story.sh"

become() { curl -sf --cacert "$world/ca.pem" "$server/now?$1"; }

# questions: what is asked after every fault
questions() {
    # Every version that was ever offered is a whole one.
    sed 's|  \(.*\.nvi\)$|  ./plain/\1|; s|  \(.*\.nvz\)$|  ./packaged/\1|' "$world/announced" |
        sort -u >"$world/driver_files"
    kill -0 "$host" 2>/dev/null || fail "the host is gone"
    driver_files_are_whole
    nothing_is_outside
    expect "" "$(ls -A "$controller/tmp")" "what is left in tmp"
    host_is_unburdened
    host_is_idle
}

# clean_run [few]
clean_run() {
    become "${1:-good}"
    expect 0 "$(code_of ctl update --json)" "a clean run afterwards"
    expect "$([ "${1:-}" = few ] && echo 3 || ls "$world/first" | wc -l)" "$(jq .counts.updated "$world/said")" "what it updated"
}

mark_log() { log_size=$(wc -c <"$controller/log/overseer.log"); }
log_since() { tail -c "+$((log_size + 1))" "$controller/log/overseer.log"; }

chapter "a controller whose catalogue is in order"
mkdir "$world/first"
"$bin/misbehaving_server" "$world" >"$world/server.out" 2>&1 &
started+=($!)
await "$world/server.out" ready
read -r _ server expired self_signed other_host stranger <"$world/server.out"
make_sentinels
"$bin/overseer" --root "$controller" init --ca "$world/ca.pem" >/dev/null
"$bin/overseer" --root "$controller" install "$world"/first/* >/dev/null
settings=(--low-speed-time 1 --low-speed-rate 1000 --largest-file 8)
start_host --catalogue "$server" "${settings[@]}"
clean_run
clean_run
usual_burden=$(burden)

chapter "answers that are none: reported, and nothing lost"
while IFS='|' read -r what code said; do
    become "$what"
    mark_log
    expect "$code" "$(code_of ctl update)" "the update when the answer is: $what"
    contains "$said" "$(log_since)" "the log when the answer is: $what"
    questions
    clean_run few
done <<'TABLE'
resets|2|Error from SOLR: 
truncates|2|Error from SOLR: Transferred a partial file
status_404|2|the answer's status is 404
status_429|2|the answer's status is 429
status_500|2|the answer's status is 500
status_503|2|the answer's status is 503
redirects|2|the answer's status is 302
not_xml|2|Failed to parse SOLR response
empty|2|Failed to parse SOLR response
no_result|2|Error from SOLR
cut_xml|2|Failed to parse SOLR response
wrong_count|0|
no_fields|0|
capital_md5|2|Driver update failed (md5 mismatch): good.nvi
no_md5|2|Driver update failed (md5 mismatch): good.nvi
fields_twice|0|good.nvi update time
hostile_names|2|(current driver file does not exist): $(touch planted).nvi
nested|2|Error from SOLR
too_large|2|The answer is too large
TABLE

chapter "names that would reach elsewhere: held back by name, although their files are good"
become hostile_names
expect 2 "$(code_of ctl update --json)" "the update"
expect 10 "$(jq '[.files[] | select(.outcome == "held back" and .reason == "invalid file name")] | length' "$world/said")" "names that were held back"
questions

chapter "files and packages that are not what they should be"
become bad_files
mark_log
expect 2 "$(code_of ctl update --json)" "the update"
jq -r '.files[] | [.file, .outcome] | @tsv' "$world/said" | sort >"$world/outcomes"
contains "md5 mismatch: Operation too slow" "$(jq -r '.files[] | select(.file == "stalls.nvi").reason' "$world/said")" "the reason of a stall"
log_since >"$world/lines"
questions
while IFS='|' read -r file outcome said; do
    expect "$outcome" "$(sed -n "s/^$file\t//p" "$world/outcomes")" "outcome of $file"
    [ -z "$said" ] || contains "$said" "$(grep -F "$file" "$world/lines")" "the log about $file"
done <<'TABLE'
good.nvi|updated|
other_content.nvi|failed|md5 mismatch
empty.nvi|failed|md5 mismatch
cut_in_the_middle.nvi|failed| failed: 
cut_and_resumed.nvi|updated|
range_as_whole.nvi|failed| failed: The server did not go on after
changed_between.nvi|failed| failed: The server did not go on after
promises_more.nvi|updated|
never_ends.nvi|failed| failed: The file is larger than this host takes
byte_by_byte.nvi|failed| failed: Operation too slow
stalls.nvi|failed| failed: Operation too slow
silent.nvi|failed| failed: Operation too slow
status_404.nvi|failed| failed: The requested URL returned error: 404
status_500.nvi|failed| failed: The requested URL returned error: 500
busy_for_long.nvi|failed| failed: The requested URL returned error: 503
busy_429.nvi|updated|
busy_503.nvi|updated|
to_plain_http.nvi|failed| failed: Protocol "
to_file.nvi|failed| failed: Protocol "
to_itself.nvi|failed| failed: Maximum
no_archive.nvz|failed|not a readable package
cut_archive.nvz|failed|not a readable package
no_manifest.nvz|failed|holds no driver.xml
asks_for_password.nvz|failed|the member "locked" is encrypted
climbs_out.nvz|failed|does not stay in its folder
starts_at_root.nvz|failed|does not stay in its folder
links_out.nvz|failed|leaves its folder
links_to_sentinel.nvz|failed|leaves its folder
manifest_is_link.nvz|failed|leaves its folder
twice_a_name.nvz|failed|is there twice
folder_and_file.nvz|failed|is both a folder and none
brings_unzip_out.nvz|updated|
long_member.nvz|failed|it cannot be unpacked
grows.nvz|updated|
bomb.nvz|failed|when unpacked
TABLE
[ ! -e "$controller/drivers/packaged/bomb" ] || fail "what was unpacked of the bomb is still there"
longest=$(printf 'n%.0s' $(seq 246)).nvz
expect updated "$(sed -n "s/^$longest\t//p" "$world/outcomes")" "outcome of the longest name"
cp "$controller/drivers/packaged/$longest" "$world/"
expect 0 "$(code_of ctl evaluate "$world/$longest")" "evaluating the longest name"
clean_run
questions

chapter "a stop does not wait for a catalogue that stalls"
become stalls
ctl update >/dev/null 2>&1 &
updating=$!
for _ in $(seq 400); do
    ctl status --json | jq -e '.agents[0].lastRun.running' >/dev/null && break
    sleep 0.025
done
stop "$host"
expect 0 "$stopped" "the exit code of the host"
wait "$updating" 2>/dev/null || true

chapter "a catalogue that is not who it says"
for peer in "$expired" "$self_signed" "$other_host" "$stranger" https://127.0.0.1:1; do
    start_host --catalogue "$peer" "${settings[@]}"
    expect 2 "$(code_of ctl update)" "an update from $peer"
    contains "SOLR Error" "$(cat "$world/said")" "why"
    questions
    stop "$host"
    expect 0 "$stopped" "the exit code of the host"
done
start_host --catalogue "$server" "${settings[@]}"
clean_run
questions
stop "$host"
echo "the story is told"
