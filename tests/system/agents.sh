#!/usr/bin/env bash
# Agents as a dealer lives them: the whole picture is listed, an agent is added out of the catalogue,
# brings its library with the next start, and bad ones do no harm. usage: agents.sh FOLDER-OF-PROGRAMS
bin=$1
. "$(dirname "$0")/story.sh"
libraries=$bin/../lib

ctl_setup() { jq -c --arg file "$1" '(.drivers, .agents)[] | select(.file == $file) | [.installedVersion, .catalogueVersion, .newer, .included]' "$world/said"; }

chapter "a controller, and a catalogue with an agent that brings a library"
make_certificates "$world/certs"
"$bin/driver-depot" demo "$world/packages" --agent-library "$libraries/weather_agent.so" >/dev/null
cp "$world/packages/newer/sunrise_agent.nvz" "$world/packages/newer/odd_agent.nvz"
echo '{"agent": true, "minimumOSVersion": "1.x.0"}' >"$world/packages/newer/odd_agent.nvz.json"
start_depot "$world/packages/newer"
"$bin/overseer" --root "$controller" init --ca "$world/certs/ca.pem" >/dev/null
start_host --catalogue "$catalogue"
expect 0 "$(code_of ctl setup)" "the setup of an empty controller"
contains "0 in the catalogue" "$(cat "$world/said")" "an empty listing"
stop "$host"
"$bin/overseer" --root "$controller" install "$world"/packages/older/*.nv? >/dev/null
start_host --catalogue "$catalogue"

chapter "the setup listing shows every file, installed and in the catalogue"
ctl exclude add pool_pump.nvi >/dev/null
expect 0 "$(code_of ctl setup --json)" "the setup listing"
expect '[5,8,true,false]' "$(ctl_setup pool_pump.nvi)" "an excluded driver"
expect '[6,6,false,true]' "$(ctl_setup window_sensor.nvi)" "a current driver"
expect '[2,4,true,true]' "$(ctl_setup energy_report_agent.nvz)" "an outdated agent"
expect '[5,5,false,true]' "$(ctl_setup sunrise_agent.nvz)" "a current agent"
expect '["gateway_bridge.nvz","legacy_infrared_blaster.nvi"]' "$(jq -c .notOffered "$world/said")" "what the catalogue does not offer"
contains '<setup><drivers><driver include="true"><filename>' "$(ctl setup --xml)" "the agent's own node"
ctl exclude remove pool_pump.nvi >/dev/null

chapter "agents that cannot be added say why"
expect 1 "$(code_of ctl add-agent "weather agent")" "a name with a blank"
contains "blank" "$(cat "$world/said")" "why"
expect 1 "$(code_of ctl add-agent nobody)" "an agent that is not there"
contains "No such agent found" "$(cat "$world/said")" "why"
expect 1 "$(code_of ctl add-agent voice_agent)" "an agent for a newer system"
contains "not compatible with the current system version" "$(cat "$world/said")" "why"
ctl exclude add weather_agent.nvz >/dev/null
expect 1 "$(code_of ctl add-agent weather_agent)" "an excluded agent"
contains "it is excluded" "$(cat "$world/said")" "why"
ctl exclude remove weather_agent.nvz >/dev/null
expect 1 "$(code_of ctl add-agent odd_agent)" "an agent whose minimum is no number"
contains "invalid_argument" "$(cat "$world/said")" "why"
package=$controller/drivers/packaged/weather_agent.nvz
mkdir "${package%.nvz}"
echo "no archive" >"$package"
echo "<d><version>9</version></d>" >"${package%.nvz}/driver.xml"
printf %s "$(md5sum <"$package" | cut -c 1-32)" >"${package%.nvz}/weather_agent.nvz.md5"
expect 1 "$(code_of ctl add-agent weather_agent)" "an agent that the host refuses"
contains "Auto-Add Agent Failed: weather_agent.nvz" "$(cat "$world/said")" "why"
expect "" "$(version_of weather_agent.nvz)" "a refused agent in the project"
rm -rf "$package" "${package%.nvz}"

chapter "an agent is added, and is there after a restart with what it brings"
expect 0 "$(code_of ctl add-agent weather_agent)" "adding an agent"
contains "weather_agent.nvz: added, version 3" "$(cat "$world/said")" "what came of it"
expect 3 "$(version_of weather_agent.nvz)" "its version"
contains "Auto-Add Agent: weather_agent.nvz" "$(ctl history)" "the history"
contains "Auto-Add Agent Added: weather_agent.nvz" "$(ctl variables)" "LAST_MESSAGE"
expect 0 "$(code_of ctl add-agent weather_agent)" "adding it again"
contains "present already" "$(cat "$world/said")" "what came of that"
expect 1 "$(code_of ctl command GET_WEATHER)" "a command of it before the restart"
stop "$host"
start_host --catalogue "$catalogue"
contains "2 agents" "$(cat "$world/host.out")" "the agents of the host"
ctl command REPORT_WEATHER temperature=-3 sky=snow
kill -KILL "$host"; wait "$host" 2>/dev/null || true
start_host --catalogue "$catalogue"
contains "<lowest>-3</lowest>" "$(ctl command GET_WEATHER)" "what the agent remembers after a kill"

chapter "agents are updated like drivers, and keep what they are"
expect 0 "$(code_of ctl update --json)" "the update"
expect updated "$(outcome_of energy_report_agent.nvz)" "the outdated agent"
expect current "$(outcome_of weather_agent.nvz)" "the agent that was added"
expect 4 "$(version_of energy_report_agent.nvz)" "the agent's version"
expect true "$(ctl drivers --json | jq '.drivers[] | select(.file == "energy_report_agent.nvz").agent')" "still an agent"
stop "$host"
expect 0 "$stopped" "the host's exit code"

chapter "a library that does not load, exports nothing or throws leaves a device"
echo "no library" >"$world/text.so"
for library in "$world/text.so" "$libraries/libnvsdk.so" "$libraries/throwing_agent.so"; do
    controller=$world/$(basename "$library").controller
    "$bin/driver-depot" demo "$world/bad" --agent-library "$library" >/dev/null
    "$bin/overseer" --root "$controller" init --ca "$world/certs/ca.pem" >/dev/null
    "$bin/overseer" --root "$controller" install "$world/bad/newer/weather_agent.nvz" >/dev/null
    start_host --catalogue "$catalogue"
    expect 1 "$(grep -c "ERROR.*stays a device" "$controller/log/overseer.log")" "lines about $library"
    expect 1 "$(grep -c "ERROR" "$controller/log/overseer.log")" "errors with $library"
    contains "not loaded" "$(ctl status)" "the status with $library"
    expect 3 "$(version_of weather_agent.nvz)" "the device with $library"
    stop "$host"
done
contains "no weather today" "$(cat "$controller/log/overseer.log")" "what the last one threw"
echo "the story is told"
