# SPDX-License-Identifier: GPL-2.0
#
# Kernel module targets.  Included by the top-level Makefile; also usable
# on its own: make -f mk/kernel.mk module
#
#   module         build jix_xpon_multicast.ko (and quor_platform.ko)
#   module-clean   remove the kernel build's products from the source tree
#   module-check   clean W=1 build that fails on any warning, for KDIR, then
#                  for the 5.4 AArch64 debug tree and Debian's 6.12 headers
#   module-check-5.4, module-check-6.12   one of those legs alone
#   kernel-5.4     unpack ../shared/kernels' 5.4 debug kernel into .cache/k54
#   headers-6.12   fetch Debian's newest 6.12 amd64 headers into .cache/k612
#   module-sparse  sparse over every source (C=2), fails on any warning
#   module-arm64   AArch64 cross build against Debian's arm64 headers,
#                  downloaded into .cache/arm64
#
# KDIR selects the kernel build tree (default: the newest Debian headers
# for ARCH under /usr/src, or the downloaded arm64 ones); ARCH,
# CROSS_COMPILE, W and JIX_VENDOR_KERNEL pass through to Kbuild.

JIX_ROOT := $(abspath $(dir $(lastword $(MAKEFILE_LIST)))..)
JIX_CACHE := $(JIX_ROOT)/.cache

# Highest version first; never the running kernel's (it is not Debian's).
jix_newest = $(shell ls -d $(1) 2>/dev/null | sort -V | tail -n 1)

ifeq ($(ARCH),arm64)
KDIR ?= $(or $(call jix_newest,$(JIX_CACHE)/arm64/root/usr/src/linux-headers-*-arm64),$(call jix_newest,/usr/src/linux-headers-*-arm64))
CROSS_COMPILE ?= aarch64-linux-gnu-
else
KDIR ?= $(call jix_newest,/usr/src/linux-headers-*-amd64)
endif

jix_kbuild_vars = M=$(JIX_ROOT) \
	$(if $(ARCH),ARCH=$(ARCH)) \
	$(if $(CROSS_COMPILE),CROSS_COMPILE=$(CROSS_COMPILE)) \
	$(if $(W),W=$(W)) \
	$(if $(JIX_VENDOR_KERNEL),JIX_VENDOR_KERNEL=$(JIX_VENDOR_KERNEL))
jix_kmake = $(MAKE) -C $(KDIR) $(jix_kbuild_vars)

# Run a kernel build, show its output, and fail on a failed build or on
# any line with "warning:" (compiler, sparse and modpost alike).
define jix_kmake_strict
	@out=$$($(jix_kmake) $(1) modules 2>&1); rc=$$?; \
	printf '%s\n' "$$out"; \
	if [ $$rc -ne 0 ]; then echo "$@: build failed" >&2; exit $$rc; fi; \
	if printf '%s\n' "$$out" | grep -i 'warning:' >/dev/null; then \
		echo "$@: warnings in the kernel build" >&2; exit 1; fi; \
	echo "$@: clean"
endef

# Directories holding kernel objects (as in Kbuild).
jix_kobj_dirs = module fdb datapath vlan hwnat acnt platform/kernel platform/standin

.PHONY: module module-clean module-check module-sparse module-kdir module-arm64 \
	module-check-kdir module-check-5.4 module-check-6.12 kernel-5.4 headers-6.12

module-kdir:
	@test -n "$(KDIR)" && test -f "$(KDIR)/Makefile" || \
	{ echo "kernel build tree not found (KDIR='$(KDIR)'): install linux-headers-amd64, set KDIR, or run 'make module-arm64'" >&2; exit 1; }

module: module-kdir
	$(jix_kmake) modules

# Kbuild's own clean deletes every *.o, *.a, *.s and .*.cmd below M=,
# which would reach a host build directory or .cache; remove only what
# the kernel build made.
module-clean:
	cd $(JIX_ROOT) && rm -f *.ko *.mod *.mod.c *.o .*.cmd .*.d \
		Module.symvers modules.order
	cd $(JIX_ROOT) && for d in $(jix_kobj_dirs); do \
		[ ! -d $$d ] || find $$d -maxdepth 1 -type f \
		\( -name '*.o' -o -name '.*.cmd' -o -name '.*.d' \) -delete; \
	done

# The legs share the repository's build products, so they run in turn.
module-check:
	$(MAKE) -f $(JIX_ROOT)/mk/kernel.mk module-check-kdir
	$(MAKE) -f $(JIX_ROOT)/mk/kernel.mk module-check-5.4
	$(MAKE) -f $(JIX_ROOT)/mk/kernel.mk module-check-6.12

module-check-kdir: module-kdir module-clean
	$(call jix_kmake_strict,W=1)

# ---- the target kernel: Linux 5.4 AArch64 with lock, memory and object
# debugging, from ../shared/kernels (absent in a plain clone: skipped) ----

JIX_SHARED_KERNELS ?= $(abspath $(JIX_ROOT)/../shared/kernels)
JIX_K54_NAME := linux-5.4.286-arm64-debug
JIX_K54_TAR := $(JIX_SHARED_KERNELS)/$(JIX_K54_NAME).tar.xz
JIX_K54_DIR := $(JIX_CACHE)/k54/$(JIX_K54_NAME)

# Unpacked once; a partial unpack never takes the final name.
kernel-5.4:
	@if [ -f $(JIX_K54_DIR)/build/Makefile ]; then exit 0; fi; \
	if [ ! -f $(JIX_K54_TAR) ]; then \
		echo "kernel-5.4: $(JIX_K54_TAR) not found (no ../shared beside the clone): skipped"; exit 0; fi; \
	set -e; rm -rf $(JIX_CACHE)/k54/tmp; mkdir -p $(JIX_CACHE)/k54/tmp; \
	echo "kernel-5.4: unpacking $(notdir $(JIX_K54_TAR))"; \
	tar -xJf $(JIX_K54_TAR) -C $(JIX_CACHE)/k54/tmp; \
	mv $(JIX_CACHE)/k54/tmp/$(JIX_K54_NAME) $(JIX_K54_DIR); rm -rf $(JIX_CACHE)/k54/tmp

module-check-5.4: kernel-5.4
	@if [ -f $(JIX_K54_DIR)/build/Makefile ]; then \
		$(MAKE) -f $(JIX_ROOT)/mk/kernel.mk module-check-kdir ARCH=arm64 \
			CROSS_COMPILE=aarch64-linux-gnu- KDIR=$(JIX_K54_DIR)/build; fi

# ---- the newest end: Debian's 6.12 amd64 headers (backports), fetched
# with apt's own client and unpacked into .cache/k612 (never installed:
# the default KDIR stays the system's 6.1); pahole from dwarves for the
# module's BTF.  Not in the mirror: skipped. ----

JIX_K612_DIR := $(JIX_CACHE)/k612
jix_k612_kdir = $(call jix_newest,$(JIX_K612_DIR)/root/usr/src/linux-headers-6.12.*-amd64)

headers-6.12:
	@set -e; if [ -n "$(jix_k612_kdir)" ]; then exit 0; fi; \
	v=$$(apt-cache search --names-only '^linux-headers-6\.12\.[0-9.]+\+deb[0-9]+-amd64$$' 2>/dev/null | \
		cut -d' ' -f1 | sed 's/^linux-headers-//; s/-amd64$$//' | sort -V | tail -n 1); \
	if [ -z "$$v" ]; then echo "headers-6.12: no linux-headers-6.12.*-amd64 in the reachable mirror: skipped"; exit 0; fi; \
	command -v pahole >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -q dwarves >/dev/null; \
	echo "headers-6.12: fetching linux-headers-$$v-amd64"; \
	rm -rf $(JIX_K612_DIR); mkdir -p $(JIX_K612_DIR); cd $(JIX_K612_DIR); \
	apt-get download linux-headers-$$v-amd64 linux-headers-$$v-common linux-kbuild-$$v >/dev/null 2>&1; \
	for f in *.deb; do dpkg -x $$f root; done; rm -f *.deb; \
	echo "include $(JIX_K612_DIR)/root/usr/src/linux-headers-$$v-common/Makefile" \
		> root/usr/src/linux-headers-$$v-amd64/Makefile

module-check-6.12: headers-6.12
	@if [ -n "$(jix_k612_kdir)" ]; then \
		$(MAKE) -f $(JIX_ROOT)/mk/kernel.mk module-check-kdir ARCH= CROSS_COMPILE= KDIR=$(jix_k612_kdir); fi

module-sparse: module-kdir
	@command -v sparse >/dev/null || { echo "sparse is not installed (apt-get install sparse)" >&2; exit 1; }
	$(call jix_kmake_strict,C=2)

# ---- AArch64 cross build against Debian's arm64 headers ----
#
# The arm64 headers package of the same version as the installed amd64
# headers shares their -common tree and works with the amd64 build tools
# (linux-kbuild); only the package is fetched, with apt's own client.

JIX_ARM64_DIR := $(JIX_CACHE)/arm64
jix_kver = $(patsubst linux-headers-%-amd64,%,$(notdir $(call jix_newest,/usr/src/linux-headers-*-amd64)))
jix_apt_arm64 = -oAPT::Architecture=arm64 -oAPT::Architectures=arm64 \
	-oDir::State::Lists=$(JIX_ARM64_DIR)/lists -oAPT::Sandbox::User=root

module-arm64:
	@test -n "$(jix_kver)" || { echo "install linux-headers-amd64 first" >&2; exit 1; }
	@command -v aarch64-linux-gnu-gcc >/dev/null || { echo "install gcc-aarch64-linux-gnu first" >&2; exit 1; }
	@set -e; H=$(JIX_ARM64_DIR)/root/usr/src/linux-headers-$(jix_kver)-arm64; \
	if [ ! -f $$H/Makefile ]; then \
		mkdir -p $(JIX_ARM64_DIR)/lists/partial; \
		cd $(JIX_ARM64_DIR); \
		apt-get $(jix_apt_arm64) update; \
		apt-get $(jix_apt_arm64) download linux-headers-$(jix_kver)-arm64; \
		dpkg -x linux-headers-$(jix_kver)-arm64_*.deb root; \
	fi; \
	ln -sfn /usr/lib/linux-kbuild-$$(echo $(jix_kver) | cut -d. -f1,2)/scripts $$H/scripts
	$(MAKE) -f $(JIX_ROOT)/mk/kernel.mk module ARCH=arm64 \
		KDIR=$(JIX_ARM64_DIR)/root/usr/src/linux-headers-$(jix_kver)-arm64 \
		CROSS_COMPILE=$(or $(CROSS_COMPILE),aarch64-linux-gnu-)
