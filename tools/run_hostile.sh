#!/bin/bash
# Runs the program (by default the sanitizer build, built here if missing) on
# inputs a hostile user would try, and prints one line per input: how it
# ended, and for endless streams the resident memory sampled while reading.
# A sanitizer report, a crash, a hang or memory that keeps growing is a
# finding. Not a test: it takes about two minutes and reads the clock. World
# blocks are drawn into a PNG file, so no X display is needed.
#
# Usage: tools/run_hostile.sh [BINARY]
set -u

root=$(cd "$(dirname "$0")/.." && pwd)
binary=${1:-}
if [ -z "$binary" ]; then
    cmake -S "$root" -B "$root/build-asan" -DTRACERY_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug \
        >/dev/null && cmake --build "$root/build-asan" --target tracery -j2 >/dev/null || exit 1
    binary="$root/build-asan/tracery"
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
unset DISPLAY

# verdict NAME STATUS STDERR-FILE
verdict() {
    local found=""
    grep -q -E 'AddressSanitizer|LeakSanitizer|runtime error' "$3" && found=" SANITIZER REPORT"
    [ "$2" -ge 124 ] && [ "$2" -ne 255 ] && found="$found STATUS $2"
    printf '%-34s status %3d%s\n' "$1" "$2" "${found:- ok}"
}

# run NAME WORDS... (stdin empty, 60 s at most)
run() {
    local name=$1
    shift
    timeout 60 "$binary" -nowait -png "$work/picture.png" "$@" </dev/null >/dev/null 2>"$work/err"
    verdict "$name" $? "$work/err"
}

# endless NAME PRODUCER: feeds the producer's endless output on standard
# input for ten seconds and samples the resident memory every two. The
# sanitizer's quarantine of freed blocks is kept small, so that the samples
# show what the program holds, not what the sanitizer does.
endless() {
    local samples=""
    bash -c "$2" 2>/dev/null |
        ASAN_OPTIONS="$ASAN_OPTIONS:quarantine_size_mb=1" "$binary" -nowait -png "$work/picture.png" >/dev/null \
            2>"$work/err" &
    local pid=$!
    for _ in 1 2 3 4 5; do
        sleep 2
        samples="$samples $(awk '/VmRSS/ {print $2}' /proc/$pid/status 2>/dev/null)"
    done
    kill "$pid" 2>/dev/null
    wait "$pid" 2>/dev/null
    verdict "$1" 0 "$work/err"
    echo "    resident kB:$samples"
}

mkdir adir
printf 'WorldBegin\nSphere 1 -1 1 360\nWorldEnd\n' >good.rib
printf 'ReadArchive "adir"\nReadArchive "/dev/zero"\nReadArchive "hostile.rib"\n' >hostile.rib
run "directory, device, good file" adir /dev/zero /dev/urandom good.rib
run "archives: directory, device, self" hostile.rib
mkfifo pipe.rib
(cat good.rib >pipe.rib &)
run "named pipe" pipe.rib
printf 'Declare "a" "float"\n\377\nDeclare "b" "float"\n' >ff.rib
run "byte 255 in mid-file" ff.rib
python3 - <<'EOF'
n = 100000
with open("declare.rib", "w") as f:
    f.writelines('Declare "n%d" "varying float[%d]"\n' % (i, i % 7) for i in range(n))
with open("objects.rib", "w") as f:
    f.write("WorldBegin\n")
    f.writelines("ObjectBegin %d\nSphere 1 -1 1 360\nObjectEnd\n" % (i * 7919) for i in range(n))
    f.write("ObjectInstance 7919\nObjectInstance 1\nWorldEnd\n")
with open("deep.rib", "w") as f:
    f.write("ErrorHandler \"ignore\"\nWorldBegin\n" + "AttributeBegin\n" * 1000 +
            "Sphere 1 -1 1 360\n" + "AttributeEnd\n" * 1000 + "WorldEnd\n")
with open("long.rib", "w") as f:
    f.write('Declare "' + "x" * (1 << 22) + '" "float"\n' + "Translate " + "9" * 100000 + " 1 2\n")
EOF
run "100000 Declare names" declare.rib
run "100000 object blocks" objects.rib
run "1000 nested attribute blocks" deep.rib
run "4 MB string, 100000-digit number" long.rib

endless "stdin: Translate" "yes 'Translate 1 2 3'"
endless "stdin: attribute blocks" "echo WorldBegin; yes 'AttributeBegin Translate 1 2 3 Sphere 1 -1 1 360 AttributeEnd'"
endless "stdin: transform blocks" "echo WorldBegin; yes 'TransformBegin Rotate 30 0 1 0 TransformEnd'"
endless "stdin: frames" "yes 'FrameBegin 1 WorldBegin Sphere 1 -1 1 360 WorldEnd FrameEnd'"
endless "stdin: custom basis" "echo WorldBegin; yes 'Basis [1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1] 1 \"bezier\" 3'"
endless "stdin: polygons" "echo WorldBegin; yes 'Polygon \"P\" [0 0 0 1 0 0 1 1 0]'"
endless "stdin: patch meshes" "echo WorldBegin; yes 'PatchMesh \"bilinear\" 2 \"nonperiodic\" 2 \"nonperiodic\" \"P\" [0 0 0 1 0 0 0 1 0 1 1 0]'"
endless "stdin: unknown requests" "yes 'Bogus 1 2 3 \"str\" [1 2]'"
endless "stdin: zeros" "cat /dev/zero"
