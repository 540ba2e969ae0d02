#!/usr/bin/env bash
# Installs what tracery needs to build and test on Debian 12: the compiler,
# CMake, Xlib, cairo (picture files), zlib (compressed RIB), OpenSubdiv
# (subdivision surfaces), GoogleTest, Python (golden tests), Xvfb, and the
# tools the tests read pictures and pages back with (poppler, ghostscript) and
# lint the manual page with (groff, mandoc).
set -euo pipefail
packages=(g++ cmake make pkg-config python3 libx11-dev libcairo2-dev zlib1g-dev libosd-dev
          libgtest-dev xvfb xauth poppler-utils ghostscript groff-base mandoc)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
  echo "tracery needs packages that are not installed. As root, run:" >&2
  echo "  apt-get update && apt-get install -y ${missing[*]}" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
