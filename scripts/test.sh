#!/usr/bin/env bash
# Sets up, builds and runs every test.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}
bash "$top/scripts/build.sh"
cd "$build"
ctest --output-on-failure -j2
