#!/usr/bin/env bash
# Installs what is missing, then builds and runs the whole test suite twice:
# a normal build, and a build with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)

run_suite() {
  local dir=$1; shift
  cmake -S . -B "$dir" "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
  # Tests that open the window need an X server; use a virtual one when
  # there is no display.
  if [ -z "${DISPLAY:-}" ]; then
    xvfb-run -a ctest --test-dir "$dir" --output-on-failure -j"$jobs"
  else
    ctest --test-dir "$dir" --output-on-failure -j"$jobs"
  fi
}

echo "== normal build"
run_suite build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTRACERY_TESTS=ON -DTRACERY_SANITIZE=OFF
echo "== sanitizer build (AddressSanitizer, UndefinedBehaviorSanitizer)"
run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DTRACERY_TESTS=ON -DTRACERY_SANITIZE=ON
