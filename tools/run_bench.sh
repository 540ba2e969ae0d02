#!/bin/sh
# Builds the program and the reader benchmark in a Release build directory,
# builds the floor of RIB reading beside them, generates the standard
# benchmark files at two sizes (half and full) if they are missing, and times
# the program against the floor on every file, printing both times, their
# ratio and the program's peak memory: the two sizes show whether memory
# grows with the file. Each file is also read in the binary encoding
# (NAME.bin.rib, made by tools/rib_to_binary.py); the floor reads only ASCII,
# so compare a binary file's time with its ASCII twin's (MB/s of the ASCII
# size).
#
# Usage: tools/run_bench.sh [--scale F] [tracery_bench options...]
# --scale F sets the larger size (default 1; the smaller is half of it), so
# --scale 0.02 gives ~2 MB and ~1 MB files for a quick run. -n REPEATS is
# handed to tracery_bench.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
shared="$root/../shared/bench"
scale=1
if [ "${1:-}" = "--scale" ]; then
    scale=$2
    shift 2
fi
half=$(python3 -c "import sys; print(float(sys.argv[1]) / 2)" "$scale")
build="$root/build-bench"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTRACERY_TESTS=OFF >/dev/null
cmake --build "$build" --target tracery tracery_bench -j2
if [ ! -x "$build/floor" ] || [ "$shared/floor.cpp" -nt "$build/floor" ]; then
    ${CXX:-c++} -O2 -std=c++17 "$shared/floor.cpp" -o "$build/floor"
fi

# The data directory of a scale (full size keeps the historical name).
data_dir() {
    if [ "$1" = 1 ] || [ "$1" = 1.0 ]; then echo "$build/benchdata"; else echo "$build/benchdata-$1"; fi
}
files=""
for s in "$half" "$scale"; do
    data=$(data_dir "$s")
    if [ ! -f "$data/mesh.rib" ] || [ ! -f "$data/many.rib" ] || [ ! -f "$data/patches.rib" ]; then
        python3 "$shared/genrib.py" --out "$data" --scale "$s"
    fi
    # Binary RIB versions of the same files, read to the same requests.
    for name in mesh many patches; do
        if [ ! -f "$data/$name.bin.rib" ] || [ "$data/$name.rib" -nt "$data/$name.bin.rib" ]; then
            python3 "$root/tools/rib_to_binary.py" "$data/$name.rib" "$data/$name.bin.rib"
        fi
    done
    files="$files $data/mesh.rib $data/many.rib $data/patches.rib"
    files="$files $data/mesh.bin.rib $data/many.bin.rib $data/patches.bin.rib"
done
cd "$build"
# The program draws each world block into its window, so it needs an X
# server: a virtual one when there is no display (-noreset keeps it up
# between runs; a reset while the next run connects would refuse it).
bench_files=$(for f in $files; do echo "${f#"$build"/}"; done)
if [ -n "${DISPLAY:-}" ]; then
    # shellcheck disable=SC2086
    exec "$build/tracery_bench" -floor "$build/floor" -program "$build/tracery" "$@" $bench_files
fi
# shellcheck disable=SC2086
exec xvfb-run -a -s "-screen 0 1280x1024x24 -noreset" "$build/tracery_bench" -floor "$build/floor" \
    -program "$build/tracery" "$@" $bench_files
