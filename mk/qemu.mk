# SPDX-License-Identifier: GPL-2.0
#
# QEMU integration tests: Debian's own 6.1 kernel booted under software
# emulation with 2 processors, slub_debug and panic_on_warn, the modules
# loaded into a busybox initramfs and driven from inside the guest.
# Included by the top-level Makefile; also usable on its own:
# make -f mk/qemu.mk qemu-check
#
#   qemu-check          the three below, one after the other (they share
#                       the repository's module build)
#   qemu-check-x86_64   x86-64 only
#   qemu-check-arm64    AArch64 only
#   qemu-check-5.4      the target kernel, Linux 5.4 AArch64 with KASAN,
#                       lockdep, DEBUG_OBJECTS and kmemleak, from
#                       ../shared/kernels (skipped, with one line, without it)
#   bench-qemu          not a test: the per-packet hook timed against a
#                       Linux bridge, x86-64 and AArch64 (bench-qemu-<arch>)
#
# Everything downloaded or built goes to .cache/qemu/<arch>/ (and the arm64
# packages to .cache/arm64/); QEMU_TIMEOUT bounds one boot (seconds).

JIX_QEMU_ROOT := $(abspath $(dir $(lastword $(MAKEFILE_LIST)))..)
JIX_QEMU_RUN := $(JIX_QEMU_ROOT)/tools/qemu/run.sh

.PHONY: qemu-check qemu-check-x86_64 qemu-check-arm64 qemu-check-5.4

# All run even when one fails, so one report covers them.
qemu-check:
	@rc=0; \
	for a in x86_64 arm64 5.4; do bash $(JIX_QEMU_RUN) $$a || rc=1; done; \
	exit $$rc

qemu-check-x86_64 qemu-check-arm64 qemu-check-5.4: qemu-check-%:
	bash $(JIX_QEMU_RUN) $*

# The per-packet hook timed against a Linux bridge with MDB entries for
# the same four ports, in one boot each of x86-64 and AArch64 (bench/qemu,
# docs/PERFORMANCE.md).  JIX_BENCH_QEMU_ARGS passes module parameters
# (frames=, warmup=, rounds=) to jix_bridge_bench.ko.
.PHONY: bench-qemu bench-qemu-x86_64 bench-qemu-arm64

bench-qemu:
	@rc=0; \
	for a in x86_64 arm64; do QEMU_TIMEOUT=$${QEMU_TIMEOUT:-1800} bash $(JIX_QEMU_RUN) $$a bench || rc=1; done; \
	exit $$rc

bench-qemu-x86_64 bench-qemu-arm64: bench-qemu-%:
	QEMU_TIMEOUT=$${QEMU_TIMEOUT:-1800} bash $(JIX_QEMU_RUN) $* bench
