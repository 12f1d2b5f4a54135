#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Boot Debian's own kernel in QEMU (software emulation, 2 processors,
# slub_debug, panic_on_warn) with jix_xpon_multicast.ko, quor_platform.ko,
# the test module jix_mc_probe.ko, a static mcctl and jixtest in a busybox
# initramfs, and judge the run by the guest's summary line and the console.
#
#   tests/qemu/run.sh x86_64|arm64|5.4 [demo|bench]
#
# "5.4" is the product's target kernel, Linux 5.4 AArch64 built with
# KASAN, lockdep, RCU checking, DEBUG_OBJECTS and kmemleak, unpacked from
# ../shared/kernels into .cache/k54 (make kernel-5.4); without ../shared
# the run says so and passes.  There the kernel's own reports count too.
#
# With "demo" the guest runs tools/demo/demo-init.sh instead of the tests
# (make run): the module forwarding a stream, printed for the reader.
# With "bench" it runs bench/qemu (make bench-qemu): the per-packet hook
# timed against a Linux bridge with MDB entries.
#
# Builds the modules for that architecture (make module / make
# module-arm64), fetches what is missing with apt-get, and keeps
# everything it makes under .cache/qemu/<arch>/ (console.log there).
# QEMU_TIMEOUT (seconds, default 600) bounds the boot.
set -euo pipefail

arch=${1:-}
mode=${2:-test}
case $arch:$mode in
x86_64:test | arm64:test | 5.4:test | x86_64:demo | arm64:demo | x86_64:bench | arm64:bench) ;;
*)
	echo "usage: $0 x86_64|arm64|5.4 [demo|bench]" >&2
	exit 2
	;;
esac

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
work=$root/.cache/qemu/$arch
if [ $mode != test ]; then work=$work-$mode; fi
armdir=$root/.cache/arm64
# Seconds of the concurrency test in the guest (it bounds the guest's
# watchdog too): a minute on the debug kernel, less where nothing but
# slub_debug watches.
storm_s=${JIX_STORM_S:-15}
debug=
if [ "$arch" = 5.4 ]; then
	storm_s=${JIX_STORM_S:-60}
	debug=1
fi
# The guest's own watchdog ends a stuck step before the host's timeout.
guard_s=$((480 + 4 * storm_s))
timeout_s=${QEMU_TIMEOUT:-$((guard_s + 120))}
start=$SECONDS

say() { echo "qemu-$arch: $*"; }
die() {
	echo "qemu-$arch: $*" >&2
	exit 1
}

k54=$root/.cache/k54/linux-5.4.286-arm64-debug
if [ "$arch" = 5.4 ]; then
	make -s -C "$root" kernel-5.4 > "$root/.cache/kernel-5.4.log" 2>&1 ||
		{ cat "$root/.cache/kernel-5.4.log" >&2; die "unpacking the 5.4 kernel failed"; }
	if [ ! -f "$k54/build/Makefile" ]; then
		say "no ../shared/kernels beside the clone: the 5.4 debug kernel run is skipped"
		exit 0
	fi
fi

# Run a build step quietly; show its output only when it fails.
quiet() {
	local what=$1
	shift
	if ! "$@" > "$work/step.log" 2>&1; then
		cat "$work/step.log" >&2
		die "$what failed"
	fi
}

apt_install() {
	say "installing $*"
	DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$@" > "$work/apt.log" 2>&1 ||
		{
			DEBIAN_FRONTEND=noninteractive apt-get update -q > /dev/null 2>&1 &&
				DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$@" > "$work/apt.log" 2>&1
		} || {
		cat "$work/apt.log" >&2
		die "apt-get install $* failed"
	}
}

# need COMMAND PACKAGE: install PACKAGE when COMMAND is missing.
need() { command -v "$1" > /dev/null || apt_install "$2"; }

mkdir -p "$work"

# The Debian kernel version of the installed amd64 headers (as mk/kernel.mk
# picks it); the running kernel is never consulted.
kver=$(ls -d /usr/src/linux-headers-*-amd64 2> /dev/null | sort -V | tail -n 1)
kver=${kver#/usr/src/linux-headers-}
kver=${kver%-amd64}
[ -n "$kver" ] || die "no /usr/src/linux-headers-*-amd64: install linux-headers-amd64"

need cpio cpio
need gzip gzip

if [ "$arch" = x86_64 ]; then
	need qemu-system-x86_64 qemu-system-x86
	need g++ g++
	kdir=/usr/src/linux-headers-$kver-amd64
	kimage=/boot/vmlinuz-$kver-amd64
	kmods=/lib/modules/$kver-amd64
	[ -f "$kimage" ] || apt_install "linux-image-$kver-amd64"
	busybox=/bin/busybox
	if ! dpkg-query -W -f='${Status}' busybox-static 2> /dev/null | grep -q 'ok installed'; then
		apt_install busybox-static
	fi
	cxx=g++
	kvars=()
	qemu=(qemu-system-x86_64 -accel tcg -smp 2 -m 512)
	console=ttyS0
	say "building the modules (make module)"
	quiet "make module" make -C "$root" module
else
	need qemu-system-aarch64 qemu-system-arm
	need aarch64-linux-gnu-gcc gcc-aarch64-linux-gnu
	need aarch64-linux-gnu-g++ g++-aarch64-linux-gnu
	busybox=$armdir/root/bin/busybox
	pkgs=()
	if [ "$arch" = 5.4 ]; then
		kdir=$k54/build
		say "building the modules (make module against the 5.4 debug tree)"
		quiet "make module" make -C "$root" module ARCH=arm64 KDIR="$kdir"
		kimage=$k54/boot/Image
		veth=$k54/modules/veth.ko
	else
		say "building the modules (make module-arm64)"
		quiet "make module-arm64" make -C "$root" module-arm64
		kdir=$armdir/root/usr/src/linux-headers-$kver-arm64
		kimage=$armdir/root/boot/vmlinuz-$kver-arm64
		veth=$armdir/root/lib/modules/$kver-arm64/kernel/drivers/net/veth.ko
		[ -f "$kimage" ] && [ -f "$veth" ] && [ -f "${veth%/drivers/*}/net/bridge/bridge.ko" ] ||
			pkgs+=("linux-image-$kver-arm64-unsigned")
	fi
	[ -f "$busybox" ] || pkgs+=(busybox-static)
	# The arm64 kernel and busybox come from Debian's arm64 packages of
	# the same version, fetched with apt's own client next to the headers
	# that module-arm64 fetched (its package lists are reused).
	if [ ${#pkgs[@]} -gt 0 ]; then
		o=(-oAPT::Architecture=arm64 -oAPT::Architectures=arm64
			-oDir::State::Lists="$armdir/lists" -oAPT::Sandbox::User=root)
		say "fetching ${pkgs[*]} (arm64)"
		mkdir -p "$armdir/lists/partial"
		# Only the files used are unpacked (the image package holds every
		# module of the kernel); the bridge's modules are for mode bench.
		(cd "$armdir" && rm -f linux-image-*.deb busybox-static_*.deb &&
			{ apt-get "${o[@]}" download "${pkgs[@]}" > /dev/null 2>&1 ||
				{ apt-get "${o[@]}" update > /dev/null && apt-get "${o[@]}" download "${pkgs[@]}"; }; } &&
			mkdir -p root &&
			for d in linux-image-*.deb; do
				[ ! -f "$d" ] || dpkg-deb --fsys-tarfile "$d" | tar -x -C root --wildcards \
					'./boot/vmlinuz-*' './lib/modules/*/kernel/drivers/net/veth.ko' \
					'./lib/modules/*/kernel/drivers/net/dummy.ko' './lib/modules/*/kernel/net/llc/llc.ko' \
					'./lib/modules/*/kernel/net/802/stp.ko' './lib/modules/*/kernel/net/bridge/bridge.ko' || exit 1
			done &&
			for d in busybox-static_*.deb; do
				[ ! -f "$d" ] || dpkg-deb --fsys-tarfile "$d" | tar -x -C root ./bin/busybox || exit 1
			done &&
			rm -f linux-image-*.deb busybox-static_*.deb) ||
			die "could not fetch ${pkgs[*]} (arm64)"
	fi
	cxx=aarch64-linux-gnu-g++
	kvars=(ARCH=arm64 CROSS_COMPILE=aarch64-linux-gnu-)
	# KASAN's shadow and kmemleak's bookkeeping need room.
	mem=512
	[ -z "$debug" ] || mem=1024
	qemu=(qemu-system-aarch64 -accel tcg -M virt -cpu cortex-a57 -smp 2 -m $mem)
	console=ttyAMA0
fi

[ -f "$kimage" ] || die "kernel image $kimage missing"
[ -n "${veth:-}" ] || veth=$kmods/kernel/drivers/net/veth.ko
[ -f "$veth" ] || die "$veth missing"
[ -x "$busybox" ] || die "$busybox missing"
if readelf -l "$busybox" 2> /dev/null | grep -q 'program interpreter'; then
	die "$busybox is not statically linked (install busybox-static)"
fi

# ---- initramfs ----
rootfs=$work/rootfs
rm -rf "$rootfs"
mkdir -p "$rootfs/bin" "$rootfs/lib/jix"
# The repository's module build is shared by both architectures: take its
# products before anything else builds there.
cp "$root/jix_xpon_multicast.ko" "$root/quor_platform.ko" "$veth" "$rootfs/lib/jix/"

say "building jix_mc_probe.ko, jixtest, jixstream and mcctl"
probe=$work/probe
rm -rf "$probe"
mkdir -p "$probe"
cp "$here/jix_mc_probe.c" "$here/jix_hw_probe.c" "$here/jix_probe_frame.h" "$here/Kbuild" "$probe/"
quiet "jix_mc_probe.ko build" make -C "$kdir" M="$probe" JIX_ROOT="$root" \
	KBUILD_EXTRA_SYMBOLS="$root/Module.symvers" "${kvars[@]}" modules
cp "$probe/jix_mc_probe.ko" "$probe/jix_hw_probe.ko" "$rootfs/lib/jix/"

quiet "jixtest build" "$cxx" -static -O2 -std=c++17 -Wall -Wextra -Werror -I"$root/include" -I"$here" \
	-o "$rootfs/bin/jixtest" "$here/jixtest.cc"
quiet "jixstream build" "$cxx" -static -O2 -std=c++17 -Wall -Wextra -Werror \
	-o "$rootfs/bin/jixstream" "$here/jixstream.cc"
quiet "mcctl build" "$cxx" -static -O2 -std=c++17 -I"$root/tools/mcctl" -I"$root/include" \
	-o "$rootfs/bin/mcctl" "$root/tools/mcctl/main.cc" "$root/tools/mcctl/mcctl_lib.cc"

cp "$busybox" "$rootfs/bin/busybox"
if [ $mode = demo ]; then
	install -m 755 "$root/tools/demo/demo-init.sh" "$rootfs/init"
elif [ $mode = bench ]; then
	. "$root/bench/qemu/rootfs.sh"
else
	install -m 755 "$here/guest-init.sh" "$rootfs/init"
fi
mkdir -p "$rootfs/etc"
printf 'STORM_S=%s\nWATCHDOG_S=%s\n' "$storm_s" "$guard_s" > "$rootfs/etc/jixtest.conf"
(cd "$rootfs" && find . | cpio -o -H newc -R 0:0 --quiet) | gzip -1 > "$work/initrd.gz"

# ---- boot ----
log=$work/console.log
append="console=$console panic=-1 slub_debug=FZPU panic_on_warn=1 rdinit=/init"
[ -z "$debug" ] || append="$append kmemleak=on"
say "booting $(basename "$kimage") (timeout ${timeout_s}s)"
boot=$SECONDS
rc=0
timeout --kill-after=10 "$timeout_s" "${qemu[@]}" -nographic -no-reboot -net none \
	-kernel "$kimage" -initrd "$work/initrd.gz" -append "$append" \
	< /dev/null > "$log" 2>&1 || rc=$?
boot_s=$((SECONDS - boot))

# ---- verdict: the guest's own summary, and a clean console ----
tr -d '\r' < "$log" > "$log.txt"
if [ $mode != test ]; then
	tag=$(echo $mode | tr a-z A-Z)
	sed -n "/^$tag BEGIN\$/,/^$tag END\$/p" "$log.txt" | sed '1d;$d'
	if grep -a -q "^JIX$tag OK" "$log.txt" &&
		! grep -a -q -E 'BUG|WARNING:|Oops|Kernel panic|general protection' "$log.txt"; then
		say "done in $((SECONDS - start))s (console: $log)"
		exit 0
	fi
	tail -n 40 "$log.txt" >&2
	die "the $mode run failed (console: $log)"
fi
# The operator's tour as the guest printed it; on x86-64 it must be the
# one the README shows.
sed -n '/^TOUR BEGIN$/,/^TOUR END$/p' "$log.txt" | sed '1d;$d' > "$work/tour.txt"
tour_ok=yes
if [ "$arch" = x86_64 ]; then
	sed -n '/^<!-- tour begin -->$/,/^<!-- tour end -->$/p' "$root/README.md" |
		sed '1,2d;$d' | sed '$d' > "$work/tour.readme"
	cmp -s "$work/tour.txt" "$work/tour.readme" || tour_ok=no
fi
summary=$(grep -a -o 'JIXTEST \(PASS\|FAIL\).*' "$log.txt" | tail -n 1 || true)
# What the kernel reports about us: oopses and warnings everywhere; on the
# debug kernel also lockdep, RCU, KASAN, DEBUG_OBJECTS and atomic-sleep
# reports (most carry BUG or WARNING too, but not all) and the guest's
# kmemleak verdict.
trouble='BUG|WARNING:|Oops|slab|Kernel panic|general protection'
trouble="$trouble|possible circular locking|possible recursive locking|inconsistent lock state"
trouble="$trouble|suspicious RCU usage|KASAN|ODEBUG|sleeping function called from invalid context"
trouble="$trouble|lock held when returning|bad unlock balance|kmemleak: leak"
bad=$(grep -a -n -E "$trouble" "$log.txt" | head -n 20 || true)

verdict=ok
case $summary in
"JIXTEST PASS "*) ;;
"JIXTEST FAIL"*) verdict=fail ;;
*)
	verdict=fail
	summary="no summary line from the guest (qemu exit $rc)"
	[ $rc != 124 ] || summary="no summary line from the guest: timed out after ${timeout_s}s"
	;;
esac
[ -z "$bad" ] || verdict=fail
if [ $tour_ok = no ]; then
	verdict=fail
	summary="$summary; the README tour differs from the guest's (diff $work/tour.readme $work/tour.txt)"
fi

grep -a '^KNOWN - ' "$log.txt" | sed "s/^/qemu-$arch: /" || true
if [ $verdict = ok ]; then
	say "${summary#JIXTEST } checks passed; boot and tests ${boot_s}s, total $((SECONDS - start))s"
	exit 0
fi
echo "---- $log (tail)" >&2
tail -n 60 "$log.txt" >&2
grep -a '^FAILED - ' "$log.txt" >&2 || true
if [ -n "$bad" ]; then
	echo "---- kernel trouble on the console:" >&2
	echo "$bad" >&2
	# The first report whole: the lines that follow its first line.
	first=${bad%%:*}
	echo "---- the first report (console lines $first..$((first + 50))):" >&2
	sed -n "${first},$((first + 50))p" "$log.txt" >&2
fi
die "FAILED: $summary"
