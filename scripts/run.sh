#!/usr/bin/env bash
# Sets up, builds and runs the benchmark on the default input (or on the
# input file given as the first argument).
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}
bash "$top/scripts/build.sh"
input=${1:-$build/lininput}
cd "$build"
exec ./linpack "$input"
