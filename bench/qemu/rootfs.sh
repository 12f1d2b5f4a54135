# SPDX-License-Identifier: GPL-2.0
#
# The benchmark guest's part of the initramfs, sourced by tools/qemu/run.sh
# in mode "bench" once the modules, busybox and $rootfs are in place (it
# uses run.sh's $root $work $rootfs $kdir $cross $veth, quiet and
# say).  Adds jix_bridge_bench.ko, mdbadd, the kernel's dummy and bridge
# modules, and bench-init.sh as /init.  JIX_BENCH_QEMU_ARGS (for example
# "frames=10000 rounds=1") is passed to jix_bridge_bench.ko.

say "building jix_bridge_bench.ko and mdbadd"
bench_build=$work/bench
rm -rf "$bench_build"
mkdir -p "$bench_build"
cp "$root/bench/qemu/jix_bridge_bench.c" "$root/bench/qemu/Kbuild" "$bench_build/"
quiet "jix_bridge_bench.ko build" make -C "$kdir" M="$bench_build" JIX_ROOT="$root" \
	KBUILD_EXTRA_SYMBOLS="$root/Module.symvers" W=1 ${cross:+ARCH=arm64 CROSS_COMPILE=$cross} modules
if grep -q -i 'warning:' "$work/step.log"; then
	cat "$work/step.log" >&2
	die "warnings in the jix_bridge_bench.ko build"
fi
cp "$bench_build/jix_bridge_bench.ko" "$rootfs/lib/jix/"
quiet "mdbadd build" "${cross}g++" -static -O2 -std=c++17 -Wall -Wextra -Werror \
	-o "$rootfs/bin/mdbadd" "$root/bench/qemu/mdbadd.cc"

# The guest kernel's own modules, beside veth.ko: .../kernel/drivers/net.
bench_kmods=${veth%/drivers/net/veth.ko}
for m in drivers/net/dummy.ko net/llc/llc.ko net/802/stp.ko net/bridge/bridge.ko; do
	[ -f "$bench_kmods/$m" ] || die "$bench_kmods/$m missing"
	cp "$bench_kmods/$m" "$rootfs/lib/jix/"
done

install -m 755 "$root/bench/qemu/bench-init.sh" "$rootfs/init"
mkdir -p "$rootfs/etc"
printf 'BENCH_ARGS="%s"\n' "${JIX_BENCH_QEMU_ARGS:-}" > "$rootfs/etc/jixbench.conf"
