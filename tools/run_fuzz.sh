#!/bin/sh
# Builds a libFuzzer target with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer in build-fuzz, seeds its corpus and fuzzes for
# the given time with one job.
#
# Usage: tools/run_fuzz.sh [--preview] [SECONDS] [libFuzzer options...]
#   (default)  the RIB reader target, inputs up to 64 KB, seeded with the
#              shared RIB files and the golden inputs;
#   --preview  the whole preview path (reading, tessellation, grid, dumps,
#              PostScript), inputs up to 1 MB, seeded as above and with the
#              benchmark generator's files at a small scale and every input
#              kept under tests/fuzz.
# Findings are written to build-fuzz/fuzz-work[-preview]/artifacts/.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
target=tracery_fuzz
suffix=
max_len=65536
if [ "${1:-}" = "--preview" ]; then
    target=tracery_fuzz_preview
    suffix=-preview
    max_len=1048576
    shift
fi
seconds=${1:-60}
[ $# -gt 0 ] && shift
build="$root/build-fuzz"
work="$build/fuzz-work$suffix"
corpus="$work/corpus"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
    -DTRACERY_FUZZ=ON -DTRACERY_SANITIZE=ON -DTRACERY_TESTS=OFF >/dev/null
cmake --build "$build" --target "$target" -j2

mkdir -p "$corpus" "$work/artifacts"
# Seeds are copied into the build tree only, one flat name per source path.
seed() {
    name=$(printf '%s' "$2" | tr '/ ' '__')
    [ -f "$corpus/$name" ] || cp "$1" "$corpus/$name"
}
seed_tree() { # directory, name prefix, find conditions...
    dir=$1
    prefix=$2
    shift 2
    [ -d "$dir" ] || return 0
    (cd "$dir" && find . -type f "$@") | while read -r path; do
        seed "$dir/$path" "${prefix}_${path#./}"
    done
}
seed_tree "$root/../shared/corpus/files" corpus
seed_tree "$root/tests/golden/cases" golden \( -name '*.rib' -o -name '*.gz' -o -name stdin \)
# Binary and CR LF forms of a small generated scene, so that every binary
# form and both line ends are in the corpus from the start.
forms="$build/form-seeds"
if [ ! -d "$forms" ]; then
    mkdir -p "$forms"
    python3 "$root/../shared/bench/genrib.py" --out "$forms" --scale 0.0005 >/dev/null
    for name in mesh many patches; do
        python3 "$root/tools/rib_to_binary.py" "$forms/$name.rib" "$forms/$name.bin.rib"
        python3 "$root/tools/rib_to_binary.py" --define-strings --mix 5 "$forms/$name.rib" \
            "$forms/$name.mix.rib"
        python3 "$root/tools/rib_to_binary.py" --doubles --define-strings "$forms/$name.rib" \
            "$forms/$name.double.rib"
        python3 -c "import sys; d=open(sys.argv[1],'rb').read(); open(sys.argv[2],'wb').write(d.replace(b'\\n', b'\\r\\n'))" \
            "$forms/$name.rib" "$forms/$name.crlf.rib"
    done
fi
seed_tree "$forms" forms -name '*.rib'
if [ "$target" = tracery_fuzz_preview ]; then
    bench="$build/bench-seeds"
    if [ ! -d "$bench" ]; then
        python3 "$root/../shared/bench/genrib.py" --out "$bench" --scale 0.005 >/dev/null
    fi
    seed_tree "$bench" bench -name '*.rib'
    seed_tree "$root/tests/fuzz" kept ! -name '*.cpp'
fi

# Run in the work directory (archive names resolve there, not in the
# repository), without a display, with the program's output silenced.
cd "$work"
exec env -u DISPLAY ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}" \
    "$build/$target" -max_total_time="$seconds" -close_fd_mask=3 -max_len="$max_len" \
    -timeout=30 -rss_limit_mb=3072 -print_final_stats=1 -artifact_prefix="$work/artifacts/" \
    "$@" "$corpus"
