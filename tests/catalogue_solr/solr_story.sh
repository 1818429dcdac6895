# Steps that the stories with a real Solr share. Sourced: bin=FOLDER, then the steps.
. "$here_solr/../system/story.sh"

chapter() { printf -- '-- %3d s: %s\n' "$SECONDS" "$*"; }

clear_up_solr() {
    local code=$?
    trap - EXIT
    set +e
    if [ -n "${solr_script:-}" ]; then
        kill -CONT ${frozen:-} 2>/dev/null || true
        kill -TERM "$solr_script" 2>/dev/null || true
        wait "$solr_script" 2>/dev/null || true
        [ "$code" = 0 ] || tail -n 10 "$world"/solr.out "$solr"/*.log 2>/dev/null || true
    fi
    awk -v world="$world/" 'index($2, world) == 1 { print $2 }' /proc/mounts | tac | xargs -r umount -l
    (exit "$code")
    clear_up
    exit "$code"
}
trap clear_up_solr EXIT

# start_solr [--cloud]: sets solr (its folder), nodes, catalogue, ca, files, cache
start_solr() {
    solr=$world/solr
    # A Java that compiles quickly rather than well: a story is over before more would pay.
    JDK_JAVA_OPTIONS="-XX:TieredStopAtLevel=1 -XX:+UseSerialGC" \
        "$here_solr/../../script/solr" --directory "$solr" "$@" >"$world/solr.out" 2>&1 &
    solr_script=$!
    for _ in $(seq 1800); do
        grep -q '^ready' "$world/solr.out" && break
        kill -0 "$solr_script" 2>/dev/null || fail "Solr did not start: $(tail -n 5 "$world/solr.out")"
        sleep 0.05
    done
    mapfile -t nodes < <(jq -r '.nodes[].url' "$solr/catalogue.json")
    mapfile -t node_pids < <(jq -r '.nodes[].pid' "$solr/catalogue.json")
    catalogue=$(jq -r .base "$solr/catalogue.json")
    ca=$(jq -r .ca "$solr/catalogue.json")
    files=$(jq -r .files "$solr/catalogue.json")
    cache=$(jq -r .cache "$solr/catalogue.json")
}

# publish FOLDER [OPTION...]
publish() {
    "$bin/driver-depot" publish "$@" --solr "${nodes[0]}" --files "$files" --cache "$cache"
}

# rollback [RELEASE]
rollback() {
    "$bin/driver-depot" rollback "$@" --solr "${nodes[0]}" --files "$files" --cache "$cache"
}

# make_drivers FOLDER COUNT VERSION [PREFIX]: bare drivers PREFIX100000.nvi and up, all of one version
make_drivers() {
    mkdir -p "$1"
    awk -v folder="$1" -v count="$2" -v version="$3" -v prefix="${4:-driver_}" 'BEGIN {
        for (number = 100000; number < 100000 + count; ++number) {
            file = folder "/" prefix number ".nvi"
            printf "<driver><name>%s%d</name><model>M</model><manufacturer>Sample</manufacturer>" \
                "<version>%d</version></driver>\n", prefix, number, version > file
            close(file)
        }
    }'
}

# status_of PATH [CURL-OPTION...]: the HTTP status of a request through nginx
status_of() { curl -s -o "$world/page" -g --path-as-is --max-time 20 --cacert "$ca" -w '%{http_code}' "${@:2}" "$catalogue$1"; }

# burst COUNT: so many different selects at once, their statuses in $world/statuses
burst() {
    for number in $(seq "$1"); do
        printf 'url = "%s/drivers/select?q=filename:burst%d&wt=xml"\noutput = "/dev/null"\n' "$catalogue" "$number"
    done >"$world/burst"
    curl -s --no-progress-meter -K "$world/burst" --parallel --parallel-immediate --parallel-max 300 \
        --max-time 60 --cacert "$ca" -w '%{http_code}\n' >"$world/statuses" 2>"$world/burst.out"
}

# how_many VERSION: the controller's files of that version
how_many() { ctl drivers --json | jq "[.drivers[] | select(.installedVersion == $1)] | length"; }
