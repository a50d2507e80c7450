# Sourced by the scripts: the target (ARCH, x86_64 by default, or i386), its
# build directory, and the command that runs its programs there (empty when
# they run natively; the build records it in runner.txt).
arch=${ARCH:-x86_64}
case "$arch" in
  x86_64) build=${BUILD_DIR:-$top/build} ;;
  i386) build=${BUILD_DIR:-$top/build-i386} ;;
  *) echo "ARCH must be x86_64 or i386, not '$arch'" >&2; exit 2 ;;
esac
runner() { cat "$build/runner.txt" 2>/dev/null || true; }
