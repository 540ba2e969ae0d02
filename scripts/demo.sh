#!/usr/bin/env bash
# Installs what is missing, builds tracery and shows the bundled example scene.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DTRACERY_TESTS=OFF >/dev/null
cmake --build build --target tracery -j"$(nproc)"
./build/tracery "$@" examples/still_life.rib
