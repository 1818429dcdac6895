#!/usr/bin/env bash
# A dozen of the points at which script/torture breaks an update. usage: torture_sample.sh FOLDER-OF-PROGRAMS
exec "$(dirname "$0")/../../script/torture" --sample 12 "$1"
