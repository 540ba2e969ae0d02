#!/bin/sh
# Builds the reader benchmark in a Release build directory, generates the
# standard benchmark files there if they are missing, and runs it on them.
#
# Usage: tools/run_bench.sh [--scale F] [tracery_bench options...]
# --scale is handed to the generator (0.01 gives ~1 MB files for a quick run).
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
scale=1
if [ "${1:-}" = "--scale" ]; then
    scale=$2
    shift 2
fi
build="$root/build-bench"
data="$build/benchdata"
[ "$scale" = 1 ] || data="$build/benchdata-$scale"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTRACERY_TESTS=OFF >/dev/null
cmake --build "$build" --target tracery_bench -j2

if [ ! -f "$data/mesh.rib" ] || [ ! -f "$data/many.rib" ] || [ ! -f "$data/patches.rib" ]; then
    python3 "$root/../shared/bench/genrib.py" --out "$data" --scale "$scale"
fi
cd "$data"
exec env -u DISPLAY "$build/tracery_bench" "$@" mesh.rib many.rib patches.rib
