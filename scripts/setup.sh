#!/usr/bin/env bash
# Installs what the build and the tests need on a fresh Debian machine.
# Idempotent: when everything is present it only checks and returns.
set -u

have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
updated=
apt_update() {
  # One broken index must not stop us: the packages we want usually resolve.
  [ -n "$updated" ] || { apt-get update -qq >/dev/null 2>&1 || true; updated=1; }
}
apt_install() {
  apt_update
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "$@" >/dev/null
}

# The toolchain: without it nothing builds, so a failure here is fatal.
need=()
for p in g++ g++-multilib cmake ninja-build googletest; do
  have_pkg "$p" || need+=("$p")
done
if [ ${#need[@]} -gt 0 ]; then
  echo "setup: installing ${need[*]}"
  apt_install "${need[@]}" || { echo "setup: apt-get install failed for ${need[*]}" >&2; exit 1; }
fi

# The i386 build's tests run natively where the kernel runs 32-bit programs,
# else under user-mode emulation: a probe program tells which.
probe=$(mktemp -d)
printf 'int main(void) { return 0; }\n' > "$probe/p.c"
if gcc -m32 "$probe/p.c" -o "$probe/p" 2>/dev/null && ! "$probe/p" 2>/dev/null; then
  if ! have_pkg qemu-user; then
    echo "setup: this kernel does not run 32-bit programs; installing qemu-user"
    apt_install qemu-user || { echo "setup: apt-get install failed for qemu-user" >&2; exit 1; }
  fi
fi
rm -rf "$probe"

# hwloc for the 32-bit process, for topology discovery: the run-time library
# comes from apt; its headers are unpacked into the build tree, as the i386
# -dev package may not install while one i386 index is broken. Nothing built
# today needs it, so a failure only warns.
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  dpkg --add-architecture i386
  updated=
fi
if ! have_pkg libhwloc15:i386; then
  echo "setup: installing libhwloc15:i386"
  apt_install libhwloc15:i386 || echo "setup: libhwloc15:i386 did not install (hwloc stays off)" >&2
fi
top=$(cd "$(dirname "$0")/.." && pwd)
hw="$top/third_party/hwloc-i386"
if [ ! -f "$hw/usr/include/hwloc.h" ]; then
  tmp=$(mktemp -d)
  ( cd "$tmp" && apt-get download libhwloc-dev:i386 >/dev/null 2>&1 ) ||
    { apt_update; ( cd "$tmp" && apt-get download libhwloc-dev:i386 >/dev/null 2>&1 ); }
  deb=$(ls "$tmp"/libhwloc-dev_*_i386.deb 2>/dev/null | head -n 1)
  if [ -n "$deb" ]; then
    mkdir -p "$hw" && dpkg-deb -x "$deb" "$hw"
  else
    echo "setup: could not fetch the libhwloc-dev:i386 headers (hwloc stays off)" >&2
  fi
  rm -rf "$tmp"
fi
exit 0
