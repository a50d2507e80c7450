#!/usr/bin/env bash
# Runs test programs under valgrind's memcheck (default: the buffer cache and
# the verbose trace). Valgrind needs the i386 C library's debug symbols to
# start a 32-bit program; they are installed here, not by the plain set-up.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}
dpkg-query -W -f='${Status}' libc6-dbg:i386 2>/dev/null | grep -q 'install ok installed' || {
  apt-get update -qq >/dev/null 2>&1 || true
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq valgrind libc6-dbg:i386 >/dev/null
}
bash "$top/scripts/build.sh" >/dev/null
cd "$build"
status=0
for t in "${@:-test_buffers test_verbose}"; do
  for prog in $t; do
    echo "== valgrind tests/$prog"
    valgrind --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
      "tests/$prog" --gtest_brief=1 || status=1
  done
done
exit $status
