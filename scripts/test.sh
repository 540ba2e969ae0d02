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
  # there is no display. -noreset keeps the server up between clients: by
  # default it resets when its last client leaves, and a program connecting
  # during the reset is refused.
  if [ -z "${DISPLAY:-}" ]; then
    xvfb-run -a -s "-screen 0 1280x1024x24 -noreset" ctest --test-dir "$dir" --output-on-failure -j"$jobs"
  else
    ctest --test-dir "$dir" --output-on-failure -j"$jobs"
  fi
}

echo "== normal build"
run_suite build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTRACERY_TESTS=ON -DTRACERY_SANITIZE=OFF
echo "== sanitizer build (AddressSanitizer, UndefinedBehaviorSanitizer)"
run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DTRACERY_TESTS=ON -DTRACERY_SANITIZE=ON
