#!/usr/bin/env bash
# Sets up, builds and runs the benchmark on the default input (or on the
# input file given as the first argument); ARCH=i386 for the i386 program.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/scripts/target.sh"
bash "$top/scripts/build.sh"
input=${1:-$build/lininput}
cd "$build"
# shellcheck disable=SC2046
exec $(runner) ./linpack "$input"
