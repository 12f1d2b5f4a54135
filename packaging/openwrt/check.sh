#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Syntax check of the OpenWrt recipe without an OpenWrt tree: GNU make
# parses it against stub include files (stub/) that check the fields of
# each package, and expands every build step with make -n.  The version
# must be the release's, and the files must be the modules Kbuild builds.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
pkg=$here/jix-xpon-multicast
mk() { make --no-print-directory -C "$pkg" TOPDIR="$here/stub" "$@"; }

out=$(mk check-recipe)
echo "$out" | sed 's/^/openwrt-check: /'
want=$(sed -n 's/^#define JIX_MC_VERSION[^"]*"\(.*\)"/\1/p' "$root/include/jix_mc_version.h")
grep -qx "version: $want" <<< "$out" || { echo "openwrt-check: PKG_VERSION is not $want" >&2; exit 1; }
grep -q "packages: kmod-jix-xpon-multicast mcctl" <<< "$out"
grep -q "jix_xpon_multicast.ko .*quor_platform.ko" <<< "$out"
mk -n prepare compile install > /dev/null
vendor=$(mk JIX_VENDOR_KERNEL=1 check-recipe)
grep -q "module files: .*jix_xpon_multicast.ko *$" <<< "$vendor"
echo "openwrt-check: recipe parsed, every step expands"
