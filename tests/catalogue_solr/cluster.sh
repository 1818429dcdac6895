#!/usr/bin/env bash
# A catalogue on two Solr nodes: what a controller and a fleet notice when releases are switched and
# when nodes hang or die. usage: cluster.sh FOLDER-OF-PROGRAMS
bin=$1
here_solr=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$here_solr/solr_story.sh"

chapter "a cluster of two nodes, and the depot's answers beside its own"
start_solr --cloud
CATALOGUE_SOLR=${nodes[1]} "$bin/catalogue_solr_tests" >"$world/comparison.out" 2>&1 ||
    fail "the answers differ: $(grep -A 30 -m 1 Failure "$world/comparison.out")"

chapter "a release is switched while a thousand queries a second run"
# Long names, so that a run over 500 files asks many times.
prefix=$(printf 'driver_%.0s' $(seq 20))
for version in 1 2; do make_drivers "$world/v$version" 500 "$version" "$prefix"; done
expect 0 "$(code_of publish "$world/v1")" "publishing"
"$bin/fleet_load" "$catalogue" --ca "$ca" --prefix "$prefix" --packages 500 --drivers 8 --connections 1 --seconds 1 --one-version >/dev/null ||
    fail "queries fail before anything is switched"
# Past nginx, whose limits are for one address: the fleet has many.
load() { # NODE
    exec "$bin/fleet_load" "${nodes[$1]}" --prefix "$prefix" --packages 500 --drivers 8 --connections 4 \
        --seconds 90 --rate 510 --one-version >"$world/load$1.json"
}
switch_under_load() {
    load 0 & loads=($!)
    load 1 & loads+=($!)
    expect 0 "$(code_of publish "$world/v2")" "publishing while queries run: $(cat "$world/said")"
    expect 0 "$(code_of rollback)" "the rollback: $(cat "$world/said")"
    kill "${loads[@]}"
    for pid in "${loads[@]}"; do wait "$pid" || fail "failed or mixed: $(cat "$world"/load?.json)"; done
    expect "1,2" "$(jq -c .versions "$world/load0.json" | tr -d '[]')" "the releases that were seen"
}
for attempt in 1 2 3; do # a machine that does something else as well may take more than one
    switch_under_load
    [ "$(jq -s 'map(.perSecond) | add >= 1000' "$world"/load?.json)" != true ] || break
    [ "$attempt" != 3 ] || fail "not a thousand a second: $(cat "$world"/load?.json)"
done
echo "   $(jq -s -r '"\(map(.requests) | add) queries, \(map(.perSecond) | add) a second, \(map(.failed) | add) failed, \(map(.mixed) | add) mixed, slowest \(map(.worstMilliseconds) | max) ms"' "$world"/load?.json)"

# run_while COMMAND...: an update of all 500 files, the command in the middle of its queries
run_while() {
    local log=$solr/front/logs/access.log before
    before=$(wc -l <"$log")
    asked() { tail -n "+$((before + 1))" "$log" | grep "$prefix" | grep "${1:-select}" || true; }
    # Neighbours behind the same router use up what one address may ask at once, so that the run's
    # queries come one after the other and there is a middle.
    burst 150 &
    local neighbours=$!
    ctl update --json >"$world/said" 2>&1 &
    local update=$!
    for _ in $(seq 400); do
        [ "$(asked | wc -l)" -lt 5 ] || break
        sleep 0.01
    done
    expect true "$([ "$(asked | wc -l)" -lt 30 ] && echo true)" "the middle of the run's queries"
    "$@"
    wait "$update" || fail "the update: $(head -c 2000 "$world/said")"
    wait "$neighbours"
    # nginx logs every node that it asked.
    [ -n "$(asked ' 127[^ ]*, 127[^ ]*$')" ] || fail "no query met the sick node"
}

# set_up NAME: a controller with the first release's files, and its host
set_up() {
    controller=$world/$1
    "$bin/overseer" --root "$controller" init --ca "$ca" >/dev/null
    "$bin/overseer" --root "$controller" install "$world"/v1/*.nvi >/dev/null
    start_host --catalogue "$catalogue"
    expect 500 "$(how_many 1)" "files before"
    find "$cache" -type f -delete # the nodes themselves are to be asked
}
expect 0 "$(code_of publish "$world/v2")" "publishing: $(cat "$world/said")"

chapter "a node that hangs in the middle of a run is passed over"
set_up hang
hang() { # shorter than a node may be silent before its cluster gives it up
    frozen=${node_pids[1]}
    kill -STOP "$frozen"
    for _ in $(seq 80); do
        kill -0 "$update" 2>/dev/null || break
        sleep 0.1
    done
    kill -CONT "$frozen"
    frozen=""
}
run_while hang
expect 500 "$(how_many 2)" "files that were updated"
stop "$host"

chapter "nothing is published while a node is missing, and a run goes on without it"
set_up kill
run_while kill -KILL "${node_pids[1]}"
expect 500 "$(how_many 2)" "files that were updated"
make_drivers "$world/v3" 500 3 "$prefix"
for _ in $(seq 40); do # the cluster notices a death within its session's time
    code=$(code_of publish "$world/v3" --dry-run)
    [ "$code" != 1 ] || break
    sleep 0.5
done
expect 1 "$code" "publishing without a node"
contains "nothing was touched" "$(cat "$world/said")" "why"
echo "the story is told"
