#!/usr/bin/env bash
# Builds the x86-64 target under ThreadSanitizer (in build-tsan/, or
# $BUILD_DIR) and runs the runtime's tests there: by default every test
# program whose name starts with test_runtime or test_vos, or the programs
# named as arguments. A race report fails the program, as does any failed
# test. Slower than the plain suite, so CI does not run it.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build-tsan}
bash "$top/scripts/setup.sh"
[ -f "$build/build.ninja" ] ||
  cmake -S "$top" -B "$build" -G Ninja -DLINPACK_ARCH=x86_64 -DLINPACK_SANITIZE=thread \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build"
cd "$build"
# halt_on_error: the first race ends the program with a failure status.
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 ${TSAN_OPTIONS:-}"
progs=("$@")
if [ ${#progs[@]} -eq 0 ]; then
  for p in tests/test_runtime* tests/test_vos*; do
    [ -x "$p" ] && progs+=("$(basename "$p")")
  done
fi
status=0
for prog in "${progs[@]}"; do
  echo "== tsan tests/$prog"
  "tests/$prog" --gtest_brief=1 || status=1
done
exit $status
