#!/usr/bin/env bash
# The largest controller on one Solr node behind nginx: 10,000 driver files, 3,000 of them due. Its
# bursts are slowed down, and nothing of them is refused. usage: large.sh FOLDER-OF-PROGRAMS
bin=$1
here_solr=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$here_solr/solr_story.sh"

# refused FROM: the answers since that line of the log that were no success
refused() { tail -n "+$(($1 + 1))" "$log" | awk -F '" ' '$NF !~ /^(200|206|304) /' | head -n 3; }
# asks_of FROM: how many selects since that line
asks_of() { tail -n "+$(($1 + 1))" "$log" | grep -c /select; }

chapter "a catalogue of 10,000 drivers"
start_solr
log=$solr/front/logs/access.log
# Names of a length that makes some 300 lists of 10,000.
prefix=$(printf 'driver_%.0s' $(seq 6))
make_drivers "$world/older" 10000 1 "$prefix"
cp -r "$world/older" "$world/newer"
make_drivers "$world/newer" 3000 2 "$prefix"
expect 0 "$(code_of publish "$world/newer")" "publishing"
"$bin/overseer" --root "$controller" init --ca "$ca" >/dev/null
find "$world/older" -type f -print0 | xargs -0 "$bin/overseer" --root "$controller" install >/dev/null
start_host --catalogue "$catalogue"

chapter "all of them are looked up at once"
before=$(wc -l <"$log")
ctl setup --json >"$world/setup" || fail "the setup: $(head -c 2000 "$world/setup")"
expect 10000 "$(jq '[.. | objects | select(has("file"))] | length' "$world/setup")" "files in the setup"
expect "" "$(refused "$before")" "refusals"
echo "   $(asks_of "$before") selects"

chapter "a run over 3,000 files that are due"
before=$(wc -l <"$log")
ctl update --json >"$world/said" || fail "the update: $(head -c 2000 "$world/said")"
expect 3000 "$(how_many 2)" "files that were updated"
expect "" "$(refused "$before")" "refusals"
echo "   $(asks_of "$before") selects, $(tail -n "+$((before + 1))" "$log" | grep -c 'nvi HTTP') files"
echo "the story is told"
