#!/usr/bin/env bash
# Driver files brought in by hand, as a dealer does it: what may replace what is asked first, then
# they are installed on the running controller. usage: evaluate.sh FOLDER-OF-PROGRAMS
bin=$1
. "$(dirname "$0")/faults.sh"
enter_private_mounts "$0" "$@"
. "$(dirname "$0")/story.sh"

files=$world/files
mkdir "$files"

# manifest VERSION [MORE]
manifest() { printf '<driver><name>Sample</name><version>%s</version>%s</driver>' "$1" "${2:-}"; }
# bare NAME VERSION [MORE]: writes $files/NAME
bare() { manifest "$2" "${3:-}" >"$files/$1"; }
# package NAME VERSION [MORE]: the same as a package, with something to unpack
package() {
    rm -rf "$world/package" "$files/$1"
    mkdir -p "$world/package/www"
    manifest "$2" "${3:-}" >"$world/package/driver.xml"
    head -c 20000 /dev/urandom >"$world/package/www/picture.png"
    (cd "$world/package" && zip -qr "$files/$1" .)
}
# verdict NAME MEMBER: of the evaluation in $world/said
verdict() { jq -r --arg name "$1" --arg member "$2" '.drivers[] | select(.driver_name == $name)[$member]' "$world/said"; }
# installs CODE ARGUMENT...: an installation that ends with that code; what it said is in $world/said
installs() { expect "$1" "$(code_of ctl install "${@:2}")" "installing ${*:2}"; }

chapter "a controller with three drivers"
make_certificates "$world/certs"
"$bin/overseer" --root "$controller" init --ca "$world/certs/ca.pem" >/dev/null
light='<proxies><proxy proxybindingid="5001" name="Lamp">light</proxy></proxies>'
package lamp.nvz 5 "$light"
package panel.nvz 7 '<capabilities><zones>4</zones></capabilities>'
bare pump.nvi 3 '<proxy name="Pümpe">pump</proxy>'
"$bin/overseer" --root "$controller" install "$files"/* >/dev/null
start_host

chapter "what may replace what"
package lamp.nvz 6 "$light"
package panel.nvz 8 '<capabilities><zones>8</zones></capabilities>'
expect 0 "$(code_of ctl evaluate --json "$files"/*)" "evaluating"
expect "true false false" "$(verdict lamp.nvz can_update_driver) $(verdict lamp.nvz prompt_overwrite) $(verdict lamp.nvz requires_restart)" "a newer one"
expect "Versions are equal." "$(verdict pump.nvi prompt_overwrite_message)" "the same one"
expect "Driver requires restart after update." "$(verdict panel.nvz requires_restart_message)" "other capabilities"
bare older.nvi 2 '<proxy name="Pümpe">pump</proxy>'
expect 0 "$(code_of ctl evaluate --as pump.nvi "$files/older.nvi")" "evaluating under another name"
contains "yes: Current version is newer.  no" "$(cat "$world/said")" "an older one"
rm "$files/older.nvi"
sed -i 's,<proxies />,<proxies><proxy name="Lamp" /></proxies>,' "$controller/config/proxy_restart.xml"
ctl evaluate "$files/lamp.nvz" >"$world/said"
contains "yes: Driver requires restart after update." "$(cat "$world/said")" "a proxy on the restart list"

chapter "the encoding of a manifest is not what it is judged by"
{ printf '<?xml version="1.0" encoding="ISO-8859-1"?>'; manifest 4 '<proxy name="Pümpe">pump</proxy>'; } |
    iconv -f UTF-8 -t ISO-8859-1 >"$files/pump.nvi"
expect 0 "$(code_of ctl evaluate --json "$files/pump.nvi")" "evaluating Latin-1"
expect "false false" "$(verdict pump.nvi prompt_overwrite) $(verdict pump.nvi requires_restart)" "a newer one in Latin-1"
{ printf '<?xml version="1.0" encoding="UTF-16"?>'; manifest 4 '<proxy name="Pumpe">pump</proxy>'; } |
    iconv -f UTF-8 -t UTF-16 >"$files/pump.nvi"
expect 0 "$(code_of ctl evaluate --json "$files/pump.nvi")" "evaluating UTF-16"
expect "false true" "$(verdict pump.nvi prompt_overwrite) $(verdict pump.nvi requires_restart)" "a newer one in UTF-16 whose proxy differs"

chapter "what may not replace anything"
head -c 9000 "$files/panel.nvz" >"$world/panel.nvz"
expect 3 "$(code_of ctl evaluate "$files/lamp.nvz" "$world/panel.nvz" "$files/nowhere.nvz")" "evaluating a truncated package"
contains "panel.nvz    no: not a readable package" "$(cat "$world/said")" "the truncated package"
contains "lamp.nvz     yes" "$(cat "$world/said")" "the one beside it"
contains "nowhere.nvz  no: No such file" "$(cat "$world/said")" "what is not there"
printf '<driver><version>4' >"$files/pump.nvi"
expect 3 "$(code_of ctl evaluate --xml "$files/pump.nvi")" "evaluating a broken manifest"
contains "<update_message>Failed to get version of new driver</update_message>" "$(cat "$world/said")" "its answer"
offer="<l><d><cur_driver_file>lamp.nvz</cur_driver_file><new_driver_file>Lamp.nvz</new_driver_file><new_driver_xml/></d></l>"
contains "ERROR_FILE_NAMES_MUST_MATCH" "$(ctl command EVALUATE_DRIVER "cur_driver_files=$offer")" "names that differ"

chapter "a file system that refuses ends the command, and the host lives"
packaged=$controller/drivers/packaged
# refused WHY: judging a package that must be unpacked ends with that
refused() {
    expect 1 "$(code_of ctl evaluate "$files/lamp.nvz" "$files/panel.nvz")" "evaluating: $1"
    contains "EVALUATE_DRIVER threw boost::filesystem::filesystem_error" "$(cat "$world/said")" "what is said"
    contains "$1" "$(cat "$world/said")" "why"
}
rm -r "$packaged/lamp"
mv "$packaged" "$world/packaged" && echo "in the way" >"$packaged"
refused "Not a directory"
rm "$packaged" && mv "$world/packaged" "$packaged"
if [ "$private_mounts" = yes ]; then
    mount --bind "$packaged" "$packaged"
    mount -o remount,bind,ro "$packaged"
    refused "Read-only file system"
    umount "$packaged"
fi
expect lamp.nvz "$(basename -a "$packaged"/lamp*)" "what is left of it"
expect 0 "$(code_of ctl evaluate --json "$files/lamp.nvz")" "evaluating once all is well"
expect true "$(verdict lamp.nvz can_update_driver)" "the verdict then"

chapter "what cannot be printed is a failure"
for stream in /dev/full "&-"; do
    code=0
    eval "ctl drivers >$stream" 2>"$world/said" || code=$?
    expect 1 "$code" "listing to $stream"
    contains "standard output cannot be written" "$(cat "$world/said")" "why"
done

chapter "installing asks, and without a terminal refuses"
bare pump.nvi 3 '<proxy name="Pümpe">pump</proxy>'
before=$(md5sum <"$controller/drivers/plain/pump.nvi")
bare blind.nvi 1
package blocked.nvz 1
mkdir "$controller/drivers/packaged/blocked.nvz"
printf 'no zip' >"$files/broken.nvz"
package new.nvz 2
installs 2 "$files"/*.nv?
said=$(cat "$world/said")
contains "blind.nvi: installed, version 1" "$said" "a new bare driver"
contains "blocked.nvz: not installed: Unable to load existing driver." "$said" "where a folder is in the way"
contains "broken.nvz: not installed: not a readable package" "$said" "no package"
contains "lamp.nvz: installed, version 6; the host must restart" "$said" "a newer one"
contains "new.nvz: installed, version 2" "$said" "a new package"
contains "pump.nvi: not installed: Versions are equal." "$said" "the same one"
contains "a restart of the host is needed" "$said" "the end"
expect "$before" "$(md5sum <"$controller/drivers/plain/pump.nvi")" "what was refused"
expect "6 8 3 1 2" "$(version_of lamp.nvz) $(version_of panel.nvz) $(version_of pump.nvi) $(version_of blind.nvi) $(version_of new.nvz)" "versions"
expect 1 "$(ctl drivers --json | jq '.drivers[] | select(.file == "new.nvz").devices | length')" "devices of the new one"
expect 1 "$(grep -c new.nvz "$controller/project.xml")" "what the project has of it"
cmp "$files/new.nvz" "$controller/drivers/packaged/new.nvz"
expect "" "$(find "$controller/drivers" -name '.put-*')" "what is left behind"

chapter "an older one, with --yes, and a restart where it is needed"
bare pump.nvi 1 '<proxy name="Pümpe">pump</proxy>'
installs 0 --yes --restart "$files/pump.nvi"
expect 1 "$(version_of pump.nvi)" "the version after overwriting"
expect 1 "$(grep -c '^ready' "$world/host.out")" "how often the host came up"
package panel.nvz 9
installs 0 --yes --restart "$files/panel.nvz"
contains "the host restarts" "$(cat "$world/said")" "the end"
for _ in $(seq 400); do [ "$(grep -c '^ready' "$world/host.out")" = 2 ] && break; sleep 0.025; done
expect 2 "$(grep -c '^ready' "$world/host.out")" "how often the host came up after a restart"
expect "9 2" "$(version_of panel.nvz) $(version_of new.nvz)" "versions after the restart"

chapter "one that cannot be loaded is overwritten only when that is said"
rm -r "$controller/drivers/packaged/lamp" && printf 'no zip' >"$controller/drivers/packaged/lamp.nvz"
installs 2 "$files/lamp.nvz"
contains "Unable to load existing driver. To overwrite all the same, use --yes." "$(cat "$world/said")" "why"
installs 2 --yes "$files/blocked.nvz" "$files/lamp.nvz"
contains "blocked.nvz: not installed: it could not be put at $controller/drivers/packaged/blocked.nvz" "$(cat "$world/said")" "the folder in the way"
cmp "$files/lamp.nvz" "$controller/drivers/packaged/lamp.nvz"

stop "$host"
expect 0 "$stopped" "the host's exit code"
expect 5 "$(code_of ctl evaluate "$files/lamp.nvz")" "evaluating without a host"
echo "the story is told"
