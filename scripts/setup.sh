#!/usr/bin/env bash
# Installs what the build and the tests need on a fresh Debian machine.
# Idempotent: when everything is present it only checks and returns.
set -u

need=()
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }

for p in g++ g++-multilib cmake ninja-build googletest; do
  have_pkg "$p" || need+=("$p")
done

# hwloc for the 32-bit process: the run-time library comes from apt; its
# headers are unpacked into the build tree, as the i386 -dev package may not
# install when one i386 index is broken.
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  dpkg --add-architecture i386
  added_arch=1
fi
have_pkg libhwloc15:i386 || need+=(libhwloc15:i386)

if [ ${#need[@]} -gt 0 ] || [ -n "${added_arch:-}" ]; then
  echo "setup: installing ${need[*]}"
  # One broken index must not stop us: the packages we want usually resolve.
  apt-get update -qq >/dev/null 2>&1 || true
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${need[@]}" >/dev/null ||
    { echo "setup: apt-get install failed for ${need[*]}" >&2; exit 1; }
fi

top=$(cd "$(dirname "$0")/.." && pwd)
hw="$top/third_party/hwloc-i386"
if [ ! -f "$hw/usr/include/hwloc.h" ]; then
  tmp=$(mktemp -d)
  ( cd "$tmp" && apt-get download libhwloc-dev:i386 >/dev/null 2>&1 ) ||
    { apt-get update -qq >/dev/null 2>&1 || true; ( cd "$tmp" && apt-get download libhwloc-dev:i386 >/dev/null 2>&1 ); }
  deb=$(ls "$tmp"/libhwloc-dev_*_i386.deb 2>/dev/null | head -n 1)
  if [ -n "$deb" ]; then
    mkdir -p "$hw" && dpkg-deb -x "$deb" "$hw"
  else
    echo "setup: could not fetch libhwloc-dev:i386 headers (hwloc support stays off)" >&2
  fi
  rm -rf "$tmp"
fi
exit 0
