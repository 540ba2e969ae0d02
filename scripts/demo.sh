#!/usr/bin/env bash
# Installs what is missing, builds tracery and shows the bundled example scene.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DTRACERY_TESTS=OFF >/dev/null
cmake --build build-release --target tracery -j"$(nproc)"
./build-release/tracery "$@" examples/still_life.rib
