#!/usr/bin/env bash
# The main job as a dealer lives it: a controller is set up, updates itself, is configured, loses its
# catalogue, is killed, and goes on. usage: main_job.sh FOLDER-OF-PROGRAMS
bin=$1
. "$(dirname "$0")/story.sh"

chapter "a controller with older drivers, and a catalogue with newer ones"
make_certificates "$world/certs"
"$bin/driver-depot" demo "$world/packages" >/dev/null
start_depot "$world/packages/newer"
"$bin/datagram_printer" >"$world/metrics.out" &
started+=($!)
await "$world/metrics.out" '[0-9]'
statsd=127.0.0.1:$(head -n 1 "$world/metrics.out")

expect 1 "$(code_of "$bin/overseer" --root "$controller" --catalogue "$catalogue")" "a host without a root"
contains "init" "$(cat "$world/said")" "what to do then"
"$bin/overseer" --root "$controller" init --ca "$world/certs/ca.pem" >/dev/null
expect 1 "$(code_of "$bin/overseer" --root "$controller" init)" "making a root twice"
"$bin/overseer" --root "$controller" install "$world"/packages/older/*.nv? >/dev/null
expect 5 "$(code_of ctl status)" "asking before a host runs"

chapter "every driver goes to the version that the catalogue has for it"
start_host --catalogue "$catalogue" --statsd "$statsd" --log-level debug
expect 0 "$(code_of ctl update --json)" "the update"
jq -r '.files[] | [.file, .outcome, .versionAfter] | @tsv' "$world/packages/expected.json" >"$world/expected"
while IFS=$'\t' read -r file outcome version; do
    expect "$outcome" "$(outcome_of "$file")" "outcome of $file"
    expect "$version" "$(version_of "$file")" "version of $file"
done <"$world/expected"
contains "Driver updated: " "$(ctl variables)" "LAST_MESSAGE"
contains "Driver Updated: pool_pump.nvi" "$(ctl history)" "the history"
contains "driver_updated" "$(ctl events)" "the notifications"
await "$world/metrics.out" 'overseer.agent.driverupdate.cloud_update_success:1|c|#subject:pool_pump.nvi'
await "$world/metrics.out" 'overseer.agent.driverupdate.updatetime:[0-9]*|ms|#file:pool_pump.nvi'
expect "" "$(ls -A "$controller/tmp")" "what is left in tmp"
package=$controller/drivers/packaged/thermostat_comfort.nvz
expect "$(md5sum <"$package" | cut -c 1-32)" "$(cat "${package%.nvz}/thermostat_comfort.nvz.md5")" "the checksum file"

chapter "a second run changes nothing"
expect 0 "$(code_of ctl update --json)" "the second update"
expect 0 "$(jq .counts.updated "$world/said")" "updated by it"

chapter "a second host, and an install, are refused while one runs"
expect 1 "$(code_of "$bin/overseer" --root "$controller" --catalogue "$catalogue")" "a second host"
contains "$host" "$(cat "$world/said")" "who has the root"
expect 1 "$(code_of "$bin/overseer" --root "$controller" install "$package")" "an install"

chapter "settings are kept, over a restart in place and over a kill"
expect 0 "$(code_of ctl auto-update off)" "switching off"
expect 0 "$(code_of ctl exclude add pool_pump.nvi "照明コントローラー.nvz")" "excluding"
expect 0 "$(code_of ctl restore pool_pump.nvi)" "restoring"
expect 5 "$(version_of pool_pump.nvi)" "the restored version"
expect 4 "$(code_of ctl update)" "an update while switched off"
ctl events --follow --from 1 >"$world/events.out" 2>&1 &
started+=($!)
await "$world/events.out" '#'
ctl command UPDATE_DRIVERS restart_overseer=true "driver_files=<files><file><driver_name>pool_pump.nvi</driver_name></file></files>"
for _ in $(seq 400); do [ "$(grep -c '^ready' "$world/host.out")" = 2 ] && break; sleep 0.025; done
expect 2 "$(grep -c '^ready' "$world/host.out")" "how often the host came up"
expect false "$(ctl command GET_STATE | sed -n 's/.*<auto_update_enabled>\(.*\)<.*/\1/p')" "the setting after a restart"
kill -KILL "$host"; wait "$host" 2>/dev/null || true
start_host --catalogue "$catalogue"
contains "auto_update_enabled        false" "$(ctl settings)" "the setting after a kill"
expect 5 "$(version_of pool_pump.nvi)" "the version after a kill"
expect "pool_pump.nvi 照明コントローラー.nvz" "$(ctl exclude list | tr '\n' ' ' | sed 's/ $//')" "the exclusions after a kill"

chapter "a forced run goes on, and leaves alone what is excluded"
expect 0 "$(code_of ctl update --forced --json)" "the forced update"
expect excluded "$(outcome_of pool_pump.nvi)" "the excluded file"
gateway=$(jq -r '.files[] | select(.file == "gateway_bridge.nvz").versionAfterForced' "$world/packages/expected.json")
expect "$gateway" "$(version_of gateway_bridge.nvz)" "what only a forced run brings"
for _ in $(seq 100); do grep -q "gateway_bridge.nvz" "$world/events.out" && break; sleep 0.05; done
contains "gateway_bridge.nvz" "$(cat "$world/events.out")" "events, followed over restart and kill"

chapter "a catalogue that is gone, or is not who it says, is reported, and nothing is lost"
ctl auto-update on
kill "$depot"; wait "$depot" 2>/dev/null || true
expect 2 "$(code_of ctl update)" "an update without a catalogue"
contains "SOLR Error" "$(cat "$world/said")" "why"
make_certificates "$world/other-certs"
stop "$host"
expect 0 "$stopped" "the host's exit code"
start_depot "$world/packages/newer" "$world/other-certs"
start_host --catalogue "$catalogue"
expect 2 "$(code_of ctl update)" "an update from a stranger"
expect 2 "$(version_of "照明コントローラー.nvz")" "a version after all that"
stop "$host" INT
expect 0 "$stopped" "the host's exit code after Ctrl-C"
[ ! -e "$controller/run/overseer.sock" ] || fail "the socket is still there"
echo "the story is told"
