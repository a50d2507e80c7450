#!/usr/bin/env bash
# Sets up, builds and runs every test: of the x86-64 build, then of the i386
# build (natively where the kernel runs 32-bit programs, else under user-mode
# emulation). ARCH=x86_64 or ARCH=i386 in front runs one of them only.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
status=0
# One directory cannot hold both targets.
[ -n "${ARCH:-}" ] || unset BUILD_DIR
for arch in ${ARCH:-x86_64 i386}; do
  (
    ARCH=$arch
    . "$top/scripts/target.sh"
    ARCH=$arch bash "$top/scripts/build.sh"
    how=$(runner)
    echo "== $arch tests, ${how:+under emulation: }${how:-native}"
    cd "$build"
    ctest --output-on-failure -j2
  ) || status=1
done
exit $status
