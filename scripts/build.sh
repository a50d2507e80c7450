#!/usr/bin/env bash
# Configures and builds one target, optimised: ARCH=x86_64 (the default) in
# build/, or ARCH=i386 in build-i386/ ($BUILD_DIR overrides either).
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/scripts/target.sh"
bash "$top/scripts/setup.sh"
# A directory configured for the other target (or before there were two)
# is configured afresh; its objects are rebuilt as their flags change.
cache="$build/CMakeCache.txt"
if [ -f "$cache" ] && ! grep -qx "LINPACK_ARCH:STRING=$arch" "$cache"; then
  rm -f "$cache"
fi
[ -f "$build/build.ninja" ] && [ -f "$cache" ] ||
  cmake -S "$top" -B "$build" -G Ninja -DLINPACK_ARCH="$arch" >/dev/null
cmake --build "$build"
