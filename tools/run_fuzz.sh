#!/bin/sh
# Builds the RIB reader's libFuzzer target with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer in build-fuzz, seeds a corpus from the shared
# RIB files and the golden inputs, and fuzzes for the given time.
#
# Usage: tools/run_fuzz.sh [SECONDS] [libFuzzer options...]
# Findings are written to build-fuzz/fuzz-work/artifacts/.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
[ $# -gt 0 ] && shift
build="$root/build-fuzz"
work="$build/fuzz-work"
corpus="$work/corpus"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
    -DTRACERY_FUZZ=ON -DTRACERY_SANITIZE=ON -DTRACERY_TESTS=OFF >/dev/null
cmake --build "$build" --target tracery_fuzz -j2

mkdir -p "$corpus" "$work/artifacts"
# Seeds are copied into the build tree only, one flat name per source path.
seed() {
    name=$(printf '%s' "$2" | tr '/ ' '__')
    [ -f "$corpus/$name" ] || cp "$1" "$corpus/$name"
}
shared="$root/../shared/corpus/files"
if [ -d "$shared" ]; then
    (cd "$shared" && find . -type f) | while read -r path; do
        seed "$shared/$path" "corpus_${path#./}"
    done
fi
if [ -d "$root/tests/golden/cases" ]; then
    (cd "$root/tests/golden/cases" && find . -type f \( -name '*.rib' -o -name stdin \)) |
        while read -r path; do
            seed "$root/tests/golden/cases/$path" "golden_${path#./}"
        done
fi

# Run in the work directory (archive names resolve there, not in the
# repository), without a display, with the reader's output silenced.
cd "$work"
exec env -u DISPLAY ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}" \
    "$build/tracery_fuzz" -max_total_time="$seconds" -close_fd_mask=3 -max_len=65536 \
    -timeout=20 -rss_limit_mb=4096 -print_final_stats=1 -artifact_prefix="$work/artifacts/" \
    "$@" "$corpus"
