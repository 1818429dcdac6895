#!/bin/sh
# The service units name programs and settings that exist, and stay closed.
# usage: units.sh FOLDER-OF-UNITS FOLDER-OF-PROGRAMS
set -eu
units=$1
programs=$2
if ! command -v systemd-analyze >/dev/null; then
    echo "units: left out, systemd-analyze is not on this machine"
    exit 77
fi

copies=$(mktemp -d)
trap 'rm -rf "$copies"' EXIT
for unit in overseer driver-depot; do
    copy=$copies/$unit.service
    sed "s#/usr/bin/#$programs/#" "$units/$unit.service" >"$copy"
    # What it cannot place it only warns of: no output at all is what passes.
    warnings=$(systemd-analyze verify --man=no "$copy" 2>&1) || true
    if [ -n "$warnings" ]; then
        echo "$unit.service: $warnings" >&2
        exit 1
    fi
    # In tenths, 100 is wide open.
    if ! systemd-analyze security --offline=true --threshold=15 --no-pager "$copy" \
        >"$copies/report"; then
        cat "$copies/report" >&2
        exit 1
    fi
    echo "$(tail -n 1 "$copies/report")"
done
