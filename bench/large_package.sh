#!/usr/bin/env bash
# What a package of 512 MB costs in memory: the most that the host holds while it is downloaded,
# verified, put in place and unpacked, over what it held after a first small run.
# usage: bench/large_package.sh [PROGRAMS]
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/world.sh "${1:-build/release/bin}"

make_packaged "$world/1" 1 2
make_packaged "$world/2" 2 2
mv "$world/2/driver_2.nvz" "$world/kept.nvz"
cp "$world/1/driver_2.nvz" "$world/2/"
serve "$world/2"
make_controller "$world"/1/*.nvz
start_host
run_update 1
before=$(memory VmRSS "$host")

manifest p2 3 >"$world/content/driver.xml"
head -c 512M /dev/urandom >"$world/content/www/film.bin"
(cd "$world/content" && zip -q -0 -r "$world/large.nvz" .)
rm "$world/content/www/film.bin"
mv "$world/large.nvz" "$world/2/driver_2.nvz"
for _ in $(seq 200); do # the depot looks at its folder now and then
    curl -s --cacert "$ca" "$catalogue/drivers/select?q=*:*&fq=filename:(IN+%22driver_2.nvz%22)&rows=10&wt=xml" | grep -q '>3<' && break
    sleep 0.1
done
echo 5 >"/proc/$host/clear_refs"
run_update 1
peak=$(memory VmHWM "$host")
echo "512 MB: $run_wall s, processor $run_cpu s; $((before / 1024)) MB before, at most $((peak / 1024)) MB" >&2
row "package of 512 MB: most memory over before" "$(calculate "($peak - $before) / 1024")" 16 " MB"
