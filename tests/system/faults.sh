# What the stories of faults share beside story.sh. Sourced before it.

# enter_private_mounts SCRIPT ARGUMENT...: runs the script anew where mounts are its own, if that is
# permitted; private_mounts says whether it is.
enter_private_mounts() {
    private_mounts=${PRIVATE_MOUNTS:-}
    [ -z "$private_mounts" ] || return 0
    if unshare --mount --propagation private mount -t tmpfs none "${TMPDIR:-/tmp}" 2>/dev/null; then
        PRIVATE_MOUNTS=yes exec unshare --mount --propagation private "$BASH" "$@"
    fi
    PRIVATE_MOUNTS=no exec "$BASH" "$@"
}

# make_sentinels: what a fault must leave alone, beside the controller
make_sentinels() {
    mkdir -p "$world/outside"
    echo "hands off" >"$world/outside/sentinel"
}

nothing_is_outside() {
    expect "hands off" "$(cat "$world/outside/sentinel")" "the file outside"
    expect sentinel "$(ls -A "$world/outside")" "the folder outside"
    [ ! -e /tmp/planted ] || fail "a package has written /tmp/planted"
    local strays
    strays=$(cd "$controller" && find . -maxdepth 1 -mindepth 1 ! -path ./tmp ! -path ./drivers ! -path ./log \
        ! -path ./run ! -path ./state ! -path ./config ! -path ./certs ! -path ./project.xml ! -path ./overseer.conf)
    expect "" "$strays" "what has come into the root"
    strays=$(cd "$controller" && find drivers state -name '.put-*' -o -type d -name '*.[0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f]')
    expect "" "$strays" "what was left half-way"
}

# burden: descriptors, threads and children of the host
burden() {
    echo "$(ls "/proc/$host/fd" | wc -l) $(ls "/proc/$host/task" | wc -l) $(cat "/proc/$host"/task/*/children | wc -w)"
}

# The host must carry no more than `usual_burden` says, but for six connections that it may keep.
host_is_unburdened() {
    local descriptors threads children usual_descriptors usual_threads rest
    read -r usual_descriptors usual_threads rest <<<"$usual_burden"
    for _ in $(seq 80); do
        read -r descriptors threads children <<<"$(burden)"
        [ "$descriptors" -gt $((usual_descriptors + 6)) ] || [ "$threads" -gt "$usual_threads" ] ||
            [ "$children" != 0 ] || return 0
        sleep 0.025
    done
    fail "the host carries $descriptors descriptors, $threads threads, $children children; usual: $usual_burden"
}

processor_time() { awk '{ print $14 + $15 }' "/proc/$host/stat"; }

# Over 0.3 s, at most two ticks of 10 ms.
host_is_idle() {
    local before
    before=$(processor_time)
    sleep 0.3
    [ $(($(processor_time) - before)) -le 2 ] || fail "the host is busy with nothing to do"
}

# remember_driver_files BEFORE AFTER: controllers with every driver file old, and with every one new
remember_driver_files() {
    local folder
    for folder in "$1" "$2"; do
        (cd "$folder/drivers" && find . -maxdepth 2 -type f -name '*.nv[zi]' -exec md5sum {} +)
    done | sort -u >"$world/driver_files"
}

no_driver_file_is_strange() {
    local strange
    strange=$(cd "$controller/drivers" && find . -maxdepth 2 -type f -name '*.nv[zi]' -exec md5sum {} + |
        sort | comm -23 - "$world/driver_files")
    [ -z "$strange" ] || fail "neither the old nor the new file: $strange"
}

# Every driver file must be there, and be the old or the new one as a whole.
driver_files_are_whole() {
    no_driver_file_is_strange
    local found
    found=$(cd "$controller/drivers" && find . -maxdepth 2 -type f -name '*.nv[zi]' | sort)
    expect "$(cut -c 35- "$world/driver_files" | sort -u)" "$found" "the driver files"
}
