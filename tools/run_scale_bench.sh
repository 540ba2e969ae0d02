#!/bin/sh
# Scale benchmark of the symbol and handle tables: builds the program in a
# Release build directory, writes two RIB files there (N distinct Declare
# names; N ObjectBegin/ObjectEnd blocks numbered 0 to N-1 inside a world) and
# reads each with the real program, printing wall and processor time and peak
# memory. On a shared machine the processor time is the steadier figure.
#
# Usage: tools/run_scale_bench.sh [N]      (default 1000000)
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
count=${1:-1000000}
build="$root/build-bench"
data="$build/scaledata-$count"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTRACERY_TESTS=OFF >/dev/null
cmake --build "$build" --target tracery -j2 >/dev/null

mkdir -p "$data"
if [ ! -f "$data/declare.rib" ] || [ ! -f "$data/objects.rib" ]; then
    python3 - "$data" "$count" <<'EOF'
import sys
out, n = sys.argv[1], int(sys.argv[2])
with open(out + "/declare.rib", "w") as f:
    f.writelines('Declare "name%d" "varying float"\n' % i for i in range(n))
with open(out + "/objects.rib", "w") as f:
    f.write("WorldBegin\n")
    f.writelines("ObjectBegin %d\nObjectEnd\n" % i for i in range(n))
    f.write("WorldEnd\n")
EOF
fi

for name in declare objects; do
    log="$data/$name.time"
    env -u DISPLAY /usr/bin/time -v "$build/tracery" -nowait "$data/$name.rib" 2>"$log" >/dev/null
    wall=$(sed -n 's/.*Elapsed (wall clock) time.*: //p' "$log")
    user=$(sed -n 's/.*User time (seconds): //p' "$log")
    system=$(sed -n 's/.*System time (seconds): //p' "$log")
    peak=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$log")
    printf '%-8s %d requests: %s wall, %s s user + %s s system, %d MB peak\n' \
        "$name" "$count" "$wall" "$user" "$system" $((peak / 1024))
done
