#!/usr/bin/env bash
# What users get: the tree that `cmake --install` makes, and the Debian package, installed for real on
# an overlay of this machine that is gone afterwards. usage: installation.sh FOLDER-OF-BUILD
build=$(cd "$1" && pwd)
. "$(dirname "$0")/../system/faults.sh"
enter_private_mounts "$0" "$@"
. "$(dirname "$0")/../system/story.sh"

chapter "the installed host finds its agent, the SDK is complete, the units name what is there"
DESTDIR=$world/tree cmake --install "$build" --prefix /opt/overseer >"$world/install.out"
tree=$world/tree/opt/overseer
bin=$tree/bin
"$bin/overseer" --root "$controller" init >/dev/null
start_host
contains "ready: 1 agent" "$(cat "$world/host.out")" "the installed host"
stop "$host"
(cd "$tree/include" && find nv -name '*.h' -printf '#include <%p>\n') >"$world/all.cpp"
flags=$(PKG_CONFIG_PATH=$tree/lib/pkgconfig pkg-config --cflags nvsdk)
c++ -std=c++20 -fsyntax-only $flags "$world/all.cpp"
for place in $(sed -n 's#^ExecStart=\([^ ]*\).*#\1#p; s#^Documentation=file://##p' "$tree"/lib/systemd/system/*.service); do
    [ -f "$world/tree$place" ] || fail "a unit names $place"
done

if [ "$private_mounts" = no ] || ! command -v dpkg-shlibdeps >/dev/null ||
    ! command -v systemctl >/dev/null; then
    echo "left out: the package, since mounts are not permitted here, or dpkg-dev or systemd is missing"
    exit 0
fi

chapter "the package on an overlay of this machine, with a user and a running host"
cpack --config "$build/CPackConfig.cmake" -B "$world/made" >"$world/cpack.out" 2>&1
clear_up_machine() {
    local code=$?
    set +e
    umount -l "$world/machine/proc" "$world/machine" "$world/overlay"
    (exit "$code")
    clear_up
    exit "$code"
}
mkdir "$world/overlay" "$world/machine"
trap clear_up_machine EXIT
mount -t tmpfs none "$world/overlay"
mkdir "$world/overlay/changes" "$world/overlay/work"
mount -t overlay -o "lowerdir=/,upperdir=$world/overlay/changes,workdir=$world/overlay/work" none "$world/machine"
mount -t proc none "$world/machine/proc"
cp "$world"/made/*.deb "$world/machine/overseer.deb"
root=/var/lib/overseer
on_machine() { chroot "$world/machine" "$@"; }
package() { on_machine dpkg "$@" >"$world/dpkg.out" 2>&1 || fail "dpkg $*: $(cat "$world/dpkg.out")"; }
stand() { (cd "$world/machine$root" && find . -type f ! -path './log/*' -exec md5sum {} + | sort -k 2); }

package --install /overseer.deb
expect "overseer 750 overseer" "$(on_machine stat -c '%U %a' $root) $(on_machine stat -c %U $root/overseer.conf)" "owner and mode"
"$bin/driver-depot" demo "$world/packages" >/dev/null
cp "$world/packages/older/pool_pump.nvi" "$world/machine/pool_pump.nvi"
on_machine setpriv --reuid overseer --regid overseer --clear-groups overseer --root $root install /pool_pump.nvi >"$world/said"
before=$(stand)
contains pool_pump.nvi "$before" "the driver"

chapter "it is installed again, removed and purged: the controller stays as it is"
for step in "--install /overseer.deb" "--remove overseer" "--install /overseer.deb" "--purge overseer"; do
    package $step
    expect "$before" "$(stand)" "the controller after $step"
    case $step in --install*) expect enabled "$(on_machine systemctl is-enabled overseer.service)" "the service after $step" ;; esac
    on_machine getent passwd overseer >/dev/null || fail "the user is gone after $step"
done
contains "was left" "$(cat "$world/dpkg.out")" "what a purge says"
[ ! -e "$world/machine/usr/bin/overseer" ] || fail "the program is still there"
echo "installed and gone again, the controller is whole"
