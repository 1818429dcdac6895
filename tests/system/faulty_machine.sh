#!/usr/bin/env bash
# A machine that is not as it should be: no room, files in the way, read-only, no tools, no descriptors.
# After each: said clearly, nothing lost, and all well once it is as it should be.
# usage: faulty_machine.sh FOLDER-OF-PROGRAMS
bin=$1
. "$(dirname "$0")/faults.sh"
enter_private_mounts "$0" "$@"
. "$(dirname "$0")/story.sh"

files=(pool_pump.nvi thermostat_comfort.nvz "ceiling fan 3-speed.nvz" 照明コントローラー.nvz)

# anew: the controller as it was before any update
anew() { rm -rf "$controller"; cp -a "$world/before" "$controller"; }

# All is well again: a run brings every file to its new version.
recovers() {
    start_host --catalogue "$catalogue"
    expect 0 "$(code_of ctl update)" "the update once all is well"
    nothing_is_outside
    host_is_idle
    stop "$host"
    expect 0 "$stopped" "the exit code of the host"
    driver_files_are_whole
    expect "$wanted" "$(versions)" "the files' versions"
}

# in_trouble CODE: an update with the host up, whatever it does to the files
in_trouble() {
    start_host --catalogue "$catalogue"
    usual_burden=$(burden)
    expect "$1" "$(code_of ctl update)" "the update in trouble"
    nothing_is_outside
    host_is_unburdened
    host_is_idle
    stop "$host"
    expect 0 "$stopped" "the exit code of the host in trouble"
    driver_files_are_whole
}

# refuses_to_start TEXT: one line that says it, and nothing changed
refuses_to_start() {
    expect 1 "$(code_of timeout 5 "$bin/overseer" --root "$controller" --catalogue "$catalogue")" "the start with $place as $kind"
    contains "$1" "$(cat "$world/said")" "why"
    expect 1 "$(grep -c '^overseer: ' "$world/said")" "how many lines say why"
    driver_files_are_whole
}

versions() { md5sum "$controller"/drivers/*/*.nv[zi] | sed 's|/.*/||' | sort -k 2; }

chapter "a controller, and what an update makes of it"
make_certificates "$world/certs"
"$bin/driver-depot" demo "$world/packages" >/dev/null
start_depot "$world/packages/newer"
make_sentinels
"$bin/overseer" --root "$controller" init --ca "$world/certs/ca.pem" >/dev/null
"$bin/overseer" --root "$controller" install "${files[@]/#/$world/packages/older/}" >/dev/null
start_host --catalogue "$catalogue"
expect 0 "$(code_of ctl exclude add never.nvi)" "excluding"
stop "$host"
cp -a "$controller" "$world/before"
start_host --catalogue "$catalogue"
expect 0 "$(code_of ctl update)" "the update"
stop "$host"
wanted=$(versions)
remember_driver_files "$world/before" "$controller"

chapter "something in the way"
while IFS='|' read -r place kind then; do
    anew
    rm -rf "$controller/$place"*
    if [ "$kind" = folder ]; then mkdir "$controller/$place"; else echo "in the way" >"$controller/$place"; fi
    refuses_to_start "$then"
done <<'TABLE'
overseer.conf|folder|overseer.conf
project.xml|folder|project.xml
project.xml|text|project.xml
state/overseer.db|folder|overseer.db
log/overseer.log|folder|overseer.log
tmp|text|tmp
state|text|is in the way
TABLE
anew
rm -r "$controller/drivers/packaged/thermostat_comfort"
echo "in the way" >"$controller/drivers/packaged/thermostat_comfort"
recovers

chapter "folders where driver files should be"
anew
for place in plain/pool_pump.nvi packaged/thermostat_comfort.nvz; do
    rm "$controller/drivers/$place"
    mkdir "$controller/drivers/$place"
done
start_host --catalogue "$catalogue"
expect 2 "$(code_of ctl update --json)" "the update"
expect "failed failed" "$(outcome_of pool_pump.nvi) $(outcome_of thermostat_comfort.nvz)" "the two in the way"
expect updated "$(outcome_of "ceiling fan 3-speed.nvz")" "the one beside them"
contains "thermostat_comfort.nvz\" could not be replaced" "$(cat "$controller/log/overseer.log")" "the log"
stop "$host"
for place in plain/pool_pump.nvi packaged/thermostat_comfort.nvz; do
    rmdir "$controller/drivers/$place"
    cp -a "$world/before/drivers/$place" "$controller/drivers/$place"
done
recovers

chapter "a database that is none: settings are kept"
anew
head -c 8192 /dev/urandom >"$controller/state/overseer.db"
start_host --catalogue "$catalogue"
contains "was damaged" "$(cat "$controller/log/overseer.log")" "the log"
expect never.nvi "$(ctl exclude list)" "what is excluded"
stop "$host"
recovers

chapter "no authorities to verify the catalogue with"
for kind in folder text; do
    anew
    rm "$controller/certs/ca-bundle.crt"
    if [ $kind = folder ]; then mkdir "$controller/certs/ca-bundle.crt"; else echo none >"$controller/certs/ca-bundle.crt"; fi
    in_trouble 2
    contains "the CA bundle $controller/certs/ca-bundle.crt cannot be used" "$(cat "$controller/log/overseer.log")" "the log"
    rm -r "$controller/certs/ca-bundle.crt"
    cp "$world/certs/ca.pem" "$controller/certs/ca-bundle.crt"
    recovers
done

chapter "few descriptors"
anew
: >"$world/host.out"
(ulimit -n 64; exec "$bin/overseer" --root "$controller" --catalogue "$catalogue" >"$world/host.out" 2>&1) &
host=$!
started+=("$host")
await "$world/host.out" ready
expect 0 "$(code_of ctl update)" "the update with few descriptors"
contains "only 64 files may be open" "$(cat "$controller/log/overseer.log")" "the log"
stop "$host"
expect "$wanted" "$(versions)" "the files' versions"

chapter "descriptors run out as the drivers are looked at: what is on record stays"
anew
before=$(md5sum "$controller"/drivers/packaged/*/*.md5)
(ulimit -n 16; exec "$bin/overseer" --root "$controller" >"$world/host.out" 2>&1) || true
contains "could not be looked at" "$(cat "$controller/log/overseer.log")" "the log"
contains "no catalogue is configured" "$(cat "$controller/log/overseer.log")" "the log"
expect "$before" "$(md5sum "$controller"/drivers/packaged/*/*.md5)" "the checksum files"
recovers

chapter "tmp is removed under a running host"
anew
mkdir "$world/started_from"
cd "$world/started_from"
start_host --catalogue "$catalogue"
cd - >/dev/null
rm -r "$controller/tmp"
expect "$controller/tmp (deleted)" "$(readlink "/proc/$host/cwd")" "where the host works"
expect 0 "$(code_of ctl update)" "the update after tmp was removed"
contains "tmp was removed while the host runs" "$(cat "$controller/log/overseer.log")" "the log"
expect "" "$(ls -A "$world/started_from")" "what was written where the host was started"
stop "$host"
recovers

chapter "a root whose path is long"
usual=$controller
controller=$world/$(printf 'n%.0s' $(seq 200))/$(printf 'm%.0s' $(seq 200))
mkdir -p "$(dirname "$controller")"
anew
recovers
controller=$usual

if [ "$private_mounts" != yes ]; then
    echo "the rest is skipped: mounting is not permitted here"
    exit 0
fi

chapter "no unzip"
anew
unzip=$(command -v unzip)
: >"$world/nothing"
mount --bind "$world/nothing" "$unzip"
in_trouble 0
umount "$unzip"
recovers

chapter "folders that cannot be written"
for folder in drivers/plain drivers/packaged tmp; do
    anew
    mount --bind "$controller/$folder" "$controller/$folder"
    mount -o remount,bind,ro "$controller/$folder"
    in_trouble 2
    contains "$controller/$folder cannot be written" "$(cat "$controller/log/overseer.log")" "the log"
    umount "$controller/$folder"
    recovers
done

chapter "no room, at each step"
mkdir -p "$world/disk"
for room in 0 4 16 48 96; do
    rm -rf "$controller"
    mount -t tmpfs -o size=2m none "$world/disk"
    controller=$world/disk/controller
    anew
    head -c 4m /dev/zero >"$world/disk/filling" 2>/dev/null || true
    truncate -s "-${room}K" "$world/disk/filling"
    code=0
    "$bin/overseer" --root "$controller" --catalogue "$catalogue" >"$world/host.out" 2>&1 &
    host=$!
    started+=("$host")
    for _ in $(seq 200); do grep -q ^ready "$world/host.out" && break; kill -0 "$host" 2>/dev/null || break; sleep 0.025; done
    if grep -q ^ready "$world/host.out"; then
        code_of ctl update >"$world/code"
        contains "$(cat "$world/code")" "0 2" "the update without room"
        host_is_idle
        stop "$host"
        expect 0 "$stopped" "the exit code of the host without room"
    else
        wait "$host" || code=$?
        expect 1 "$code" "the start without room"
        contains "overseer: " "$(cat "$world/host.out")" "why"
    fi
    driver_files_are_whole
    rm "$world/disk/filling"
    recovers
    umount "$world/disk"
    controller=$usual
done
echo "the story is told"
