#!/usr/bin/env bash
# Install, with apt-get, whatever `make check` needs and this machine lacks.
set -euo pipefail

pkgs=(build-essential cmake ninja-build libgtest-dev libgmock-dev
      libbenchmark-dev linux-headers-amd64 sparse clang
      qemu-system-x86 qemu-system-arm gcc-aarch64-linux-gnu g++-aarch64-linux-gnu
      busybox-static cpio linux-image-amd64 dwarves xz-utils)
missing=()
for p in "${pkgs[@]}"; do
	dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" ||
		missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
	echo "deps: all present"
	exit 0
fi
echo "deps: installing ${missing[*]}"
SUDO=
[ "$(id -u)" -eq 0 ] || SUDO=sudo
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
