#!/usr/bin/env bash
# Configures and builds the optimised 32-bit tree in build/ (or $BUILD_DIR).
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}
bash "$top/scripts/setup.sh"
[ -f "$build/build.ninja" ] || cmake -S "$top" -B "$build" -G Ninja >/dev/null
cmake --build "$build"
