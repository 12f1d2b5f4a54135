#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Boot a kernel in QEMU (software emulation, 2 processors, slub_debug,
# panic_on_warn) with jix_xpon_multicast.ko, quor_platform.ko, the test
# module jix_probe.ko, a static mcctl and jixtest in a busybox initramfs,
# and judge the run by the guest's summary line and the console.
#
#   tools/qemu/run.sh x86_64|arm64|5.4 [demo|bench]
#
# x86_64 and arm64 boot Debian's own kernel of the installed amd64
# headers' version.  "5.4" is the product's target kernel, Linux 5.4
# AArch64 built with KASAN, lockdep, RCU checking, DEBUG_OBJECTS and
# kmemleak, unpacked from ../shared/kernels into .cache/k54 (make
# kernel-5.4); without ../shared the run says so and passes.
#
# A mode picks the guest's /init and how the console is judged:
#   test  tests/qemu/guest-init.sh, jixtest's suite (the default)
#   demo  tools/demo/demo-init.sh (make run): the module forwarding a
#         stream, printed for the reader
#   bench bench/qemu (make bench-qemu): the per-packet hook timed against
#         a Linux bridge with MDB entries for the same ports
#
# Builds the modules for that architecture (make module / make
# module-arm64), fetches what is missing with apt-get, and keeps
# everything it makes under .cache/qemu/<arch>[-<mode>]/ (console.log
# there).  QEMU_TIMEOUT (seconds) bounds the boot; JIX_STORM_S and
# JIX_CYCLES set the storm's seconds and the load/unload cycles.
set -euo pipefail

arch=${1:-}
mode=${2:-test}
case $arch:$mode in
x86_64:test | arm64:test | 5.4:test | x86_64:demo | arm64:demo | x86_64:bench | arm64:bench) ;;
*) echo "usage: $0 x86_64|arm64|5.4 [demo|bench]" >&2 && exit 2 ;;
esac

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
tq=$root/tests/qemu	# the guest tester, its probe module and /init
work=$root/.cache/qemu/$arch
[ $mode = test ] || work=$work-$mode
armdir=$root/.cache/arm64
k54=$root/.cache/k54/linux-5.4.286-arm64-debug
# The storm takes a minute on the debug kernel, less where nothing but
# slub_debug watches; it bounds the guest's watchdog too, which ends a
# stuck step before the host's timeout.
debug=
[ "$arch" != 5.4 ] || debug=1
storm_s=${JIX_STORM_S:-${debug:+60}}
storm_s=${storm_s:-15}
guard_s=$((480 + 4 * storm_s))
timeout_s=${QEMU_TIMEOUT:-$((guard_s + 120))}
start=$SECONDS

say() { echo "qemu-$arch: $*"; }
die() { echo "qemu-$arch: $*" >&2 && exit 1; }
# Run a step quietly; show its output only when it fails.
quiet() { "${@:2}" > "$work/step.log" 2>&1 || { cat "$work/step.log" >&2 && die "$1 failed"; }; }
apt_install() {
	say "installing $*"
	export DEBIAN_FRONTEND=noninteractive
	local get=(apt-get install -y -q --no-install-recommends "$@")
	quiet "apt-get install $*" sh -c '"$@" || { apt-get update -q && "$@"; }' - "${get[@]}"
}
# need COMMAND PACKAGE: install PACKAGE when COMMAND is missing.
need() { command -v "$1" > /dev/null || apt_install "$2"; }

mkdir -p "$work"
if [ -n "$debug" ]; then
	quiet "unpacking the 5.4 kernel (make kernel-5.4)" make -s -C "$root" kernel-5.4
	[ -f "$k54/build/Makefile" ] ||
		{ say "no ../shared/kernels beside the clone: the 5.4 debug kernel run is skipped" && exit 0; }
fi
# The Debian kernel version of the installed amd64 headers (as mk/kernel.mk
# picks it); the running kernel is never consulted.
kver=$(ls -d /usr/src/linux-headers-*-amd64 2> /dev/null | sort -V | tail -n 1 |
	sed 's|.*/linux-headers-||; s|-amd64$||')
[ -n "$kver" ] || die "no /usr/src/linux-headers-*-amd64: install linux-headers-amd64"
for c in cpio gzip; do need $c $c; done

if [ "$arch" = x86_64 ]; then
	need qemu-system-x86_64 qemu-system-x86
	need g++ g++
	kdir=/usr/src/linux-headers-$kver-amd64
	kimage=/boot/vmlinuz-$kver-amd64
	veth=/lib/modules/$kver-amd64/kernel/drivers/net/veth.ko
	[ -f "$kimage" ] || apt_install "linux-image-$kver-amd64"
	busybox=/bin/busybox
	dpkg-query -W -f='${Status}' busybox-static 2> /dev/null | grep -q 'ok installed' ||
		apt_install busybox-static
	cross=
	qemu=(qemu-system-x86_64 -accel tcg -smp 2 -m 512)
	console=ttyS0
	quiet "make module" make -C "$root" module
else
	need qemu-system-aarch64 qemu-system-arm
	need aarch64-linux-gnu-gcc gcc-aarch64-linux-gnu
	need aarch64-linux-gnu-g++ g++-aarch64-linux-gnu
	busybox=$armdir/root/bin/busybox
	pkgs=()
	if [ -n "$debug" ]; then
		kdir=$k54/build
		kimage=$k54/boot/Image
		veth=$k54/modules/veth.ko
		quiet "make module" make -C "$root" module ARCH=arm64 KDIR="$kdir"
	else
		kdir=$armdir/root/usr/src/linux-headers-$kver-arm64
		kimage=$armdir/root/boot/vmlinuz-$kver-arm64
		veth=$armdir/root/lib/modules/$kver-arm64/kernel/drivers/net/veth.ko
		quiet "make module-arm64" make -C "$root" module-arm64
		[ -f "$kimage" ] && [ -f "$veth" ] && [ -f "${veth%/drivers/*}/net/bridge/bridge.ko" ] ||
			pkgs+=("linux-image-$kver-arm64-unsigned")
	fi
	[ -f "$busybox" ] || pkgs+=(busybox-static)
	# The arm64 kernel and busybox come from Debian's arm64 packages of
	# the same version, fetched with apt's own client next to the headers
	# that module-arm64 fetched (its package lists are reused); only the
	# three files used are unpacked.
	if [ ${#pkgs[@]} -gt 0 ]; then
		o=(-oAPT::Architecture=arm64 -oAPT::Architectures=arm64
			-oDir::State::Lists="$armdir/lists" -oAPT::Sandbox::User=root)
		say "fetching ${pkgs[*]} (arm64)"
		mkdir -p "$armdir/lists/partial" "$armdir/root"
		(cd "$armdir" && rm -f ./*.deb &&
			{ apt-get "${o[@]}" download "${pkgs[@]}" ||
				{ apt-get "${o[@]}" update && apt-get "${o[@]}" download "${pkgs[@]}"; }; } &&
			for d in ./*.deb; do
				dpkg-deb --fsys-tarfile "$d" | tar -x -C root --wildcards --no-wildcards-match-slash \
					'./boot/vmlinuz-*' './lib/modules/*/kernel/drivers/net/veth.ko' ./bin/busybox \
					'./lib/modules/*/kernel/drivers/net/dummy.ko' './lib/modules/*/kernel/net/llc/llc.ko' \
					'./lib/modules/*/kernel/net/802/stp.ko' './lib/modules/*/kernel/net/bridge/bridge.ko' || true
			done; rm -f ./*.deb) > "$work/fetch.log" 2>&1 || true
		[ -f "$busybox" ] && [ -f "$kimage" ] || { cat "$work/fetch.log" >&2 && die "could not fetch ${pkgs[*]} (arm64)"; }
	fi
	cross=aarch64-linux-gnu-
	# KASAN's shadow and kmemleak's bookkeeping need room.
	qemu=(qemu-system-aarch64 -accel tcg -M virt -cpu cortex-a57 -smp 2 -m $((debug ? 1024 : 512)))
	console=ttyAMA0
fi
for f in "$kimage" "$veth" "$busybox"; do [ -f "$f" ] || die "$f missing"; done
readelf -l "$busybox" | grep -q 'program interpreter' && die "$busybox is not static (busybox-static)"

# ---- initramfs ----
rootfs=$work/rootfs
rm -rf "$rootfs"
mkdir -p "$rootfs/bin" "$rootfs/lib/jix" "$rootfs/etc"
# The repository's module build is shared by both architectures: take its
# products before anything else builds there.
cp "$root/jix_xpon_multicast.ko" "$root/quor_platform.ko" "$veth" "$rootfs/lib/jix/"
probe=$work/probe
rm -rf "$probe" && mkdir -p "$probe" && cp "$tq/jix_probe.c" "$tq/Kbuild" "$probe/"
quiet "jix_probe.ko build" make -C "$kdir" M="$probe" JIX_ROOT="$root" \
	KBUILD_EXTRA_SYMBOLS="$root/Module.symvers" ${cross:+ARCH=arm64 CROSS_COMPILE=$cross} modules
cp "$probe/jix_probe.ko" "$rootfs/lib/jix/"
quiet "jixtest build" "${cross}g++" -static -O2 -std=c++17 -Wall -Wextra -Werror -pthread \
	-I"$root/platform" -o "$rootfs/bin/jixtest" "$tq/jixtest.cc"
quiet "mcctl build" "${cross}g++" -static -O2 -std=c++17 -I"$root/tools/mcctl" -I"$root/include" \
	-o "$rootfs/bin/mcctl" "$root/tools/mcctl/main.cc" "$root/tools/mcctl/mcctl_lib.cc"
cp "$busybox" "$rootfs/bin/busybox"
init=$tq/guest-init.sh
[ $mode != demo ] || init=$root/tools/demo/demo-init.sh
install -m 755 "$init" "$rootfs/init"
# The benchmark's guest replaces /init with its own.
[ $mode != bench ] || . "$root/bench/qemu/rootfs.sh"
printf 'STORM_S=%s\nCYCLES=%s\nWATCHDOG_S=%s\n' "$storm_s" "${JIX_CYCLES:-50}" "$guard_s" > "$rootfs/etc/jixtest.conf"
# The README's operator's tour: the guest runs its commands; on x86-64 it
# must print what the README shows.
sed -n '/^<!-- tour begin -->$/,/^<!-- tour end -->$/p' "$root/README.md" | sed '1,2d;$d' | sed '$d' > "$work/tour.readme"
sed -n 's/^# //p' "$work/tour.readme" > "$rootfs/etc/tour"
(cd "$rootfs" && find . | cpio -o -H newc -R 0:0 --quiet) | gzip -1 > "$work/initrd.gz"

# ---- boot ----
log=$work/console.log
append="console=$console panic=-1 slub_debug=FZPU panic_on_warn=1 rdinit=/init${debug:+ kmemleak=on}"
say "booting $(basename "$kimage") (timeout ${timeout_s}s)"
boot=$SECONDS
rc=0
timeout --kill-after=10 "$timeout_s" "${qemu[@]}" -nographic -no-reboot -net none \
	-kernel "$kimage" -initrd "$work/initrd.gz" -append "$append" < /dev/null > "$log" 2>&1 || rc=$?
boot_s=$((SECONDS - boot))
tr -d '\r' < "$log" > "$log.txt"

# ---- verdict: the guest's own summary, and a clean console ----
# What the kernel reports about us: oopses and warnings everywhere; on the
# debug kernel also lockdep, RCU, KASAN, DEBUG_OBJECTS and atomic-sleep
# reports (most carry BUG or WARNING too, but not all) and the guest's
# kmemleak verdict.
trouble='BUG|WARNING:|Oops|slab|Kernel panic|general protection|refcount_t|unregister_netdevice: waiting'
trouble="$trouble|possible circular locking|possible recursive locking|inconsistent lock state"
trouble="$trouble|suspicious RCU usage|KASAN|ODEBUG|sleeping function called from invalid context"
trouble="$trouble|lock held when returning|bad unlock balance|kmemleak: leak"
bad=$(grep -a -n -E "$trouble" "$log.txt" | head -n 20 || true)
ok=yes
[ -z "$bad" ] || ok=no
case $mode in
demo | bench)
	tag=$(echo $mode | tr a-z A-Z)
	sed -n "/^$tag BEGIN\$/,/^$tag END\$/p" "$log.txt" | sed '1d;$d'
	summary=$(grep -a -o "JIX$tag .*" "$log.txt" | tail -n 1 || true)
	[ "$summary" = "JIX$tag OK" ] || ok=no
	;;
test)
	sed -n '/^TOUR BEGIN$/,/^TOUR END$/p' "$log.txt" | sed '1d;$d' > "$work/tour.txt"
	summary=$(grep -a -o 'JIXTEST \(PASS\|FAIL\).*' "$log.txt" | tail -n 1 || true)
	case $summary in "JIXTEST PASS "*) ;; *) ok=no ;; esac
	[ -n "$summary" ] || summary="no summary line from the guest (qemu exit $rc, timeout ${timeout_s}s)"
	if [ "$arch" = x86_64 ] && ! cmp -s "$work/tour.txt" "$work/tour.readme"; then
		ok=no
		summary="$summary; the README tour differs from the guest's (diff $work/tour.readme $work/tour.txt)"
	fi
	;;
esac
if [ $ok = yes ]; then
	say "$summary; boot and guest ${boot_s}s, total $((SECONDS - start))s (console: $log)"
	exit 0
fi
# The console's tail, the failed checks, the kernel's reports and the
# first of them whole.
{
	tail -n 60 "$log.txt" && grep -a '^FAILED - ' "$log.txt"
	[ -z "$bad" ] || { printf -- '---- kernel trouble:\n%s\n' "$bad" && sed -n "${bad%%:*},+50p" "$log.txt"; }
} >&2 || true
die "FAILED: ${summary:-no summary line}"
