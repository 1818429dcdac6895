# Steps that the stories share. Sourced: bin=FOLDER, then the steps. Everything that is started is
# stopped, and everything that is written is removed, however a story ends.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
world=$(mktemp -d "${TMPDIR:-/tmp}/overseer-story.XXXXXX")
controller=$world/controller
started=()

clear_up() {
    local code=$?
    { for pid in "${started[@]}"; do kill -KILL "$pid"; done; wait; } 2>/dev/null || true
    if [ "$code" != 0 ]; then
        echo "---- the story ended with $code; the host's last words:"
        tail -n 15 "$world"/*.out "$controller/log/overseer.log" 2>/dev/null || true
    fi
    rm -rf "$world"
}
trap clear_up EXIT

chapter() { printf -- '-- %s\n' "$*"; }
fail() { echo "not as it should be: $*" >&2; exit 1; }

# expect WANTED GOT WHAT
expect() { [ "$1" = "$2" ] || fail "$3: expected «$1», got «$2»"; }
# contains NEEDLE HAYSTACK WHAT
contains() { [[ $2 == *"$1"* ]] || fail "$3: no «$1» in «$2»"; }
# code_of COMMAND...: prints its exit code; what it printed is in $world/said
code_of() {
    local code=0
    "$@" >"$world/said" 2>&1 </dev/null || code=$?
    echo "$code"
}

ctl() { "$bin/overseerctl" --root "$controller" "$@"; }

# await FILE TEXT: until a line of the file begins with the text
await() {
    for _ in $(seq 400); do
        grep -q "^$2" "$1" 2>/dev/null && return 0
        sleep 0.025
    done
    fail "nothing in $(basename "$1") begins with «$2»"
}

make_certificates() { "$here/../../script/certificate" "$1"; }

# start_depot FOLDER [CERTIFICATES]: sets catalogue and depot
start_depot() {
    local certificates=${2:-$world/certs}
    : >"$world/depot.out"
    "$bin/driver-depot" serve "$1" --port 0 --cert "$certificates/server.pem" \
        --key "$certificates/server.key" >"$world/depot.out" 2>&1 &
    depot=$!
    started+=("$depot")
    await "$world/depot.out" ready
    catalogue=$(sed -n 's/^ready \(https:[^ ]*\).*/\1/p' "$world/depot.out")
}

# start_host ARGUMENT...: sets host
start_host() {
    : >"$world/host.out"
    "$bin/overseer" --root "$controller" "$@" >"$world/host.out" 2>&1 &
    host=$!
    started+=("$host")
    await "$world/host.out" ready
}

# stop PID [SIGNAL]: sets stopped to the exit code
stop() {
    kill "-${2:-TERM}" "$1"
    stopped=0
    wait "$1" || stopped=$?
}

version_of() { ctl drivers --json | jq -r --arg file "$1" '.drivers[] | select(.file == $file).installedVersion'; }
outcome_of() { jq -r --arg file "$1" '.files[] | select(.file == $file).outcome' "$world/said"; }
