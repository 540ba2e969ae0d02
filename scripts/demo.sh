#!/usr/bin/env bash
# Installs what is missing, builds tracery and shows the bundled example
# scene in a window (press a key in it to end, a mouse button to draw it
# again). Without an X display the scene is drawn under a virtual one (Xvfb)
# into a PostScript page, turned into a PNG picture as well.
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
page=out/still_life.ps
picture=out/still_life.png
echo "No X display: drawing under Xvfb into the PostScript page $page (and $picture)."
xvfb-run -a ./build-release/tracery -nowait -ps "$page" "$@" "$scene"
gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=png16m -r72 -g642x482 -dFIXEDMEDIA \
   -sOutputFile="$picture" "$page"
