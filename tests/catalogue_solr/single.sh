#!/usr/bin/env bash
# A catalogue on one Solr node behind nginx: the main job, releases, strangers, and what goes wrong.
# usage: single.sh FOLDER-OF-PROGRAMS
bin=$1
here_solr=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$here_solr/solr_story.sh"

chapter "a real Solr, and the depot's answers beside its own"
# Where that may be done Solr gets a small disk of its own, which can be filled.
may_mount=no
mkdir -p "$world/small" "$world/solr/node1"
! mount -t tmpfs -o size=64m tmpfs "$world/solr/node1" 2>/dev/null || may_mount=yes
start_solr
CATALOGUE_SOLR=${nodes[0]} "$bin/catalogue_solr_tests" >"$world/comparison.out" 2>&1 ||
    fail "the answers differ: $(grep -A 30 -m 1 Failure "$world/comparison.out")"

chapter "every driver goes to the version that the catalogue has for it"
"$bin/driver-depot" demo "$world/packages" >/dev/null
expect 0 "$(code_of publish "$world/packages/older")" "publishing"
first=$(readlink "$files/current")
expect 0 "$(code_of publish "$world/packages/newer")" "publishing what is newer"
expect 0 "$(code_of publish "$world/packages/newer")" "publishing twice"
contains "nothing changed" "$(cat "$world/said")" "what the second time did"
"$bin/overseer" --root "$controller" init --ca "$ca" >/dev/null
"$bin/overseer" --root "$controller" install "$world"/packages/older/*.nv? >/dev/null
start_host --catalogue "$catalogue"
expect 0 "$(code_of ctl update --json)" "the update"
jq -r '.files[] | [.file, .versionAfter] | @tsv' "$world/packages/expected.json" >"$world/expected"
while IFS=$'\t' read -r file version; do
    expect "$version" "$(version_of "$file")" "version of $file"
done <"$world/expected"

chapter "a release is taken back at once, also from nginx's cache"
query='/drivers/select?q=*:*&fq=filename:(IN+%22pool_pump.nvi%22)&fl=version&wt=json'
version_asked() { status_of "$query" >/dev/null; jq '.response.docs[0].version' "$world/page"; }
newer=$(version_asked)
expect "$newer" "$(version_asked)" "the version from the cache"
expect 0 "$(code_of rollback)" "the rollback"
expect "$first" "$(readlink "$files/current")" "the files after it"
expect true "$([ "$(version_asked)" -lt "$newer" ] && echo true)" "the older version"

chapter "strangers reach what controllers need, and nothing else"
while read -r status path; do
    expect "$status" "$(status_of "$path")" "$path"
done <<'EOF'
200 /drivers/select?q=*:*&fq=filename:(IN+"pool_pump.nvi")+AND+autoUpdate:"true"&fl=filename,version,name,model,manufacturer,md5sum&wt=xml&indent=true&rows=100000
200 /agents/select?q=*:*&fq=filename:(IN+%22a%7Bx%7D.nvz%22,%22interval_val_2.nvz%22)+AND+forceAutoUpdate:%22true%22&fl=filename,version&wt=xml&indent=true&rows=100000
200 /pool_pump.nvi
404 /drivers/update?commit=true
404 /drivers/update/json/docs
404 /solr/admin/cores?action=STATUS
404 /admin/info/system
404 /drivers/schema
404 /drivers/select/../update
404 /drivers/select%0a?q=*:*
404 /.release.json
404 /releases/
400 /../conf/nginx.conf
403 /drivers/select
403 /drivers/select?q=*:*&stream.url=file:///etc/passwd
403 /drivers/select?q=*:*&stream%2eurl=file:///etc/passwd
403 /drivers/select?q=*:*&q%74=/update
403 /drivers/select?q=*:*&shards=127.0.0.1:1
403 /drivers/select?q={!func}1
403 /drivers/select?q=%7B%21func%7D1
403 /drivers/select?q=_val_:"1"
403 /drivers/select?q=%5Fv%61l_%20%3a"1"
403 /drivers/select?q=%5cu007b!func}1
403 /drivers/select?q=*:*&fl=[explain]
403 /drivers/select?q=*:*&rows=1000000
403 /drivers/select?q=*:*&wt=velocity
EOF
expect 403 "$(status_of '/drivers/select?q=*:*' -X POST -d '<delete/>')" "a POST"
expect 403 "$(status_of '/pool_pump.nvi' -X DELETE)" "a DELETE"
expect 206 "$(status_of /pool_pump.nvi -r 0-9)" "a range"
etag=$(curl -sI --cacert "$ca" "$catalogue/pool_pump.nvi" | tr -d '\r' | sed -n 's/^etag: //Ip')
expect 304 "$(status_of /pool_pump.nvi -H "If-None-Match: $etag")" "a validator"

chapter "a burst of 300 selects is queued, not refused"
burst 300
expect 300 "$(grep -c '^200' "$world/statuses")" "answers"

chapter "what goes wrong is said, and nothing is switched"
current=$(readlink "$files/current")
make_drivers "$world/others" 400 1
refuses() { # WHAT TEXT COMMAND...
    expect 1 "$(code_of "${@:3}")" "$1"
    contains "$2" "$(cat "$world/said")" "$1"
    expect 1 "$(wc -l <"$world/said")" "messages about $1"
    expect "$current" "$(readlink "$files/current")" "what is served after: $1"
}
failing() { publish "$@" 2>&1 >/dev/null; }
refuses "a Solr that is not there" "127.0.0.1:1" "$bin/driver-depot" releases --solr http://127.0.0.1:1/solr --files "$files"
refuses "something that is no Solr" "answers with status 404" "$bin/driver-depot" releases --solr "$catalogue" --files "$files" --ca "$ca"
schema=$solr/node1/configsets/catalogue/conf/schema.xml
cp "$schema" "$world/schema.xml"
sed -i '/name="md5sum"/d' "$schema"
refuses "a schema without a field" "md5sum" failing "$world/others"
sed 's/name="version" type="int"/name="version" type="string"/' "$world/schema.xml" >"$schema"
refuses "a schema with another type" "has other fields than were published" failing "$world/others"
cp "$world/schema.xml" "$schema"

# while_copying FOLDER COMMAND...: publishes it, the command when its first files have been copied
while_copying() {
    "$bin/driver-depot" publish "$1" --solr "${nodes[0]}" --files "$files" 2>&1 >/dev/null &
    local publisher=$!
    for _ in $(seq 400); do
        [ -z "$(find "$files/releases" -name driver_100000.nvi)" ] || break
        sleep 0.01
    done
    "${@:2}"
    wait "$publisher"
}
change_last() { echo "<driver><version>1</version></driver>" >"$world/others/driver_100399.nvi"; }
refuses "a package that changes after its check" "driver_100399.nvi: was changed after it was checked" while_copying "$world/others" change_last
interrupt() { kill -TERM "$publisher"; }
refuses "a person who does not wait" "stopped while copying files: interrupted" while_copying "$world/others" interrupt

newer=$(find "$files/releases" -mindepth 1 -maxdepth 1 | sort | tail -n 1)
mv "$newer/pool_pump.nvi" "$world"
refuses "a release with a file missing" "pool_pump.nvi" rollback "$(basename "$newer")"
mv "$world/pool_pump.nvi" "$newer"

if [ "$may_mount" = yes ]; then
    mount -t tmpfs -o size=64k tmpfs "$world/small"
    refuses "a full disk for files" "No space left" "$bin/driver-depot" publish "$world/others" --solr "${nodes[0]}" --files "$world/small/files"
    for room in 0 40; do # kilobytes: none to make a core with, too few to fill it
        head -c 1G /dev/zero >"$solr/node1/filler" 2>/dev/null || true
        truncate -s "-${room}K" "$solr/node1/filler"
        refuses "a Solr with $room KB left" "No space left" failing "$world/others"
        rm "$solr/node1/filler"
    done
    mount --bind "$solr/node1" "$solr/node1"
    mount -o remount,ro,bind "$solr/node1"
    refuses "a Solr that is read-only" "Read-only file system" failing "$world/others"
    umount "$solr/node1"
else
    echo "   left out: full and read-only disks, which need the right to mount"
fi
expect 0 "$("$bin/driver-depot" releases --solr "${nodes[0]}" --files "$files" --json | jq '[.releases[] | select(.complete | not)] | length')" "remains of what failed"
expect 0 "$(code_of publish "$world/others")" "publishing when all is well again: $(cat "$world/said")"
echo "the story is told"
