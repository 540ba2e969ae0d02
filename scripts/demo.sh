#!/usr/bin/env bash
# Installs what is missing, builds tracery and shows the bundled example
# scene in a window (press a key in it to end, a mouse button to draw it
# again). Without an X display the scene is drawn straight into a PNG picture
# and a PostScript page: picture files need no display.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DTRACERY_TESTS=OFF >/dev/null
cmake --build build-release --target tracery -j"$(nproc)"
scene=examples/still_life.rib
if [ -n "${DISPLAY:-}" ]; then
  exec ./build-release/tracery "$@" "$scene"
fi
mkdir -p out
picture=out/still_life.png
page=out/still_life.ps
echo "No X display: drawing into the picture $picture (and the PostScript page $page)."
./build-release/tracery -png "$picture" -ps "$page" "$@" "$scene"
