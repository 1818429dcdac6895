#!/usr/bin/env bash
# What a dashboard is fed with, taken in by a real statsd server: every line understood, none lost,
# each event counted as often as it happened. Run by script/test-statsd.
# usage: statsd_server.sh FOLDER-OF-PROGRAMS FOLDER-OF-STATSD
bin=$1
server=$(cd "$2" && pwd)
. "$(dirname "$0")/story.sh"

chapter "a statsd server that adds up what it flushes"
cat >"$world/sums.js" <<'EOF'
const fs = require('fs'), sums = {};
exports.init = (start, config, events) => {
    events.on('flush', (time, {counters, timers}) => {
        for (const key in counters) sums[key] = (sums[key] || 0) + counters[key];
        for (const key in timers) sums[key] = (sums[key] || []).concat(timers[key]);
        fs.writeFileSync(config.sums + '.new', JSON.stringify(sums));
        fs.renameSync(config.sums + '.new', config.sums);
    });
    return true;
};
EOF
# It does not tell which port it took: it is given free ones.
read -r port management < <(node -e '
    const udp = require("dgram").createSocket("udp4"), tcp = require("net").createServer();
    udp.bind(0, "127.0.0.1", () => tcp.listen(0, "127.0.0.1", () => {
        console.log(udp.address().port, tcp.address().port); udp.close(); tcp.close(); }));')
cat >"$world/statsd.js" <<EOF
{address: "127.0.0.1", port: $port, mgmt_address: "127.0.0.1", mgmt_port: $management,
 flushInterval: 200, backends: ["$world/sums.js"], sums: "$world/sums.json"}
EOF
node "$server/stats.js" "$world/statsd.js" >"$world/statsd.out" 2>&1 &
started+=($!)
await "$world/sums.json" '{'

# counted WANTED METRIC [TAG]: waits until the server has counted that often
counted() {
    local key=overseer.agent.driverupdate.$2${3:+;$3} got=
    for _ in $(seq 100); do
        got=$(jq --arg key "$key" '.[$key] // 0' "$world/sums.json")
        [ "$got" != "$1" ] || return 0
        sleep 0.05
    done
    fail "$key: expected $1, the server has $got"
}

chapter "a controller on which much succeeds and much fails"
make_certificates "$world/certs"
"$bin/driver-depot" demo "$world/packages" >/dev/null
ln -s /etc/passwd "$world/outside"
(cd "$world" && zip -qy "$world/packages/newer/doorbell_camera.nvz" outside)
start_depot "$world/packages/newer"
"$bin/overseer" --root "$controller" init --ca "$world/certs/ca.pem" >/dev/null
"$bin/overseer" --root "$controller" install "$world"/packages/older/*.nv? >/dev/null
start_host --catalogue "$catalogue" --statsd "127.0.0.1:$port"
rm "$controller/drivers/plain/pool_pump.nvi"
expect 2 "$(code_of ctl update --json)" "an update in which drivers fail"
updated=$(jq .counts.updated "$world/said")
expect 1 "$(code_of ctl add-agent nobody)" "an agent that is not there"
expect 0 "$(code_of ctl add-agent weather_agent)" "an agent"
ctl command EVALUATE_DRIVER cur_driver_files="<offers><offer><cur_driver_file>gone.nvi</cur_driver_file><new_driver_file>gone.nvi</new_driver_file></offer></offers>" >/dev/null
ctl command UPDATE_DRIVERS restart_overseer=false \
    "driver_files=<files><file><driver_name>window_sensor.nvi</driver_name></file></files>"
kill "$depot"
wait "$depot" 2>/dev/null || true
expect 2 "$(code_of ctl update)" "an update without a catalogue"

chapter "the server has all of it"
counted 1 cloud_update_failed subject=doorbell_camera.nvz
counted 1 cloud_update_cur_driver_not_exist_failed subject=pool_pump.nvi
counted 1 cloud_update_success subject=ceiling_fan_3-speed.nvz
counted 1 auto_add_agent_failed subject=nobody
counted 1 auto_add_agent_success subject=weather_agent.nvz
counted 1 driver_load_failed subject=gone.nvi
counted 1 cmd_update_success subject=window_sensor.nvi
counted 1 cloud_update_SOLR_failed subject=agents
# of METRIC JQ: over all files of a metric
of() { jq -r --arg start "overseer.agent.driverupdate.$1;" "[to_entries[] | select(.key | startswith(\$start)) | .value] | $2" "$world/sums.json"; }
expect "$updated" "$(of cloud_update_success add)" "drivers updated"
expect "$updated" "$(of updatetime 'map(length) | add')" "their timings"
expect 1 "$(of auto_add_agent_time 'map(length) | add')" "the timing of the agent that was added"
expect 0 "$(jq '.["statsd.bad_lines_seen"]' "$world/sums.json")" "lines that the server did not understand"
stop "$host"
expect 0 "$stopped" "the host's exit code"
echo "the server has $(jq length "$world/sums.json") series"
