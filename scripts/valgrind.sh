#!/usr/bin/env bash
# Runs test programs under valgrind's memcheck (default: the buffer cache and
# the verbose trace), of the x86-64 build or, with ARCH=i386, of the i386 one
# (where the kernel runs 32-bit programs: valgrind does not run under the
# emulator). Valgrind needs the i386 C library's debug symbols to start a
# 32-bit program; they are installed here, not by the plain set-up.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/scripts/target.sh"
pkgs=(valgrind)
[ "$arch" = i386 ] && pkgs+=(libc6-dbg:i386)
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || {
    apt-get update -qq >/dev/null 2>&1 || true
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${pkgs[@]}" >/dev/null
    break
  }
done
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
