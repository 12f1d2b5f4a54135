# SPDX-License-Identifier: GPL-2.0
#
# Kernel module targets.  Included by the top-level Makefile; also usable
# on its own: make -f mk/kernel.mk module
#
#   module         build jix_xpon_multicast.ko (and quor_platform.ko)
#   module-clean   remove the kernel build's products
#   module-check   clean W=1 build that fails on any warning
#   module-sparse  sparse over every source (C=2)
#   module-arm64   AArch64 cross build against Debian's arm64 headers,
#                  downloaded into .cache/arm64
#
# KDIR selects the kernel build tree (default: the newest Debian headers
# for ARCH under /usr/src, or the downloaded arm64 ones); ARCH,
# CROSS_COMPILE, W, C and JIX_VENDOR_KERNEL pass through to Kbuild.

JIX_ROOT := $(abspath $(dir $(lastword $(MAKEFILE_LIST)))..)
JIX_CACHE := $(JIX_ROOT)/.cache

# Highest version first; never the running kernel's (it is not Debian's).
jix_newest = $(shell ls -d $(1) 2>/dev/null | sort -V | tail -n 1)

ifeq ($(ARCH),arm64)
KDIR ?= $(or $(call jix_newest,$(JIX_CACHE)/arm64/root/usr/src/linux-headers-*-arm64),\
	     $(call jix_newest,/usr/src/linux-headers-*-arm64))
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

.PHONY: module module-clean module-check module-sparse module-kdir module-arm64

module-kdir:
	@test -n "$(KDIR)" && test -f "$(KDIR)/Makefile" || \
	{ echo "kernel build tree not found (KDIR='$(KDIR)'); install linux-headers-amd64 or set KDIR" >&2; exit 1; }

module: module-kdir
	$(jix_kmake) modules

module-clean: module-kdir
	$(jix_kmake) clean

# The build output is kept in a shell variable so the build's own status
# and the warning scan both decide the result.
module-check: module-kdir
	@$(jix_kmake) clean >/dev/null
	@out=$$($(jix_kmake) W=1 modules 2>&1); rc=$$?; \
	printf '%s\n' "$$out"; \
	if [ $$rc -ne 0 ]; then echo "module-check: build failed" >&2; exit $$rc; fi; \
	if printf '%s\n' "$$out" | grep -i 'warning:'; then \
		echo "module-check: warnings in the kernel build" >&2; exit 1; fi; \
	echo "module-check: W=1 build clean"

module-sparse: module-kdir
	@command -v sparse >/dev/null || { echo "sparse is not installed (apt-get install sparse)" >&2; exit 1; }
	$(jix_kmake) C=2 modules

# ---- AArch64 cross build against Debian's arm64 headers ----
#
# The arm64 headers package of the same version as the installed amd64
# headers shares their -common tree and works with the amd64 build tools.

JIX_ARM64_DIR := $(JIX_CACHE)/arm64
jix_amd64_kdir = $(call jix_newest,/usr/src/linux-headers-*-amd64)
jix_kver = $(patsubst linux-headers-%-amd64,%,$(notdir $(jix_amd64_kdir)))
jix_apt_arm64 = -oAPT::Architecture=arm64 -oAPT::Architectures=arm64 \
	-oDir::State::Lists=$(JIX_ARM64_DIR)/lists

module-arm64:
	@test -n "$(jix_kver)" || { echo "install linux-headers-amd64 first" >&2; exit 1; }
	@command -v aarch64-linux-gnu-gcc >/dev/null || { echo "install gcc-aarch64-linux-gnu first" >&2; exit 1; }
	@H=$(JIX_ARM64_DIR)/root/usr/src/linux-headers-$(jix_kver)-arm64; \
	if [ ! -f $$H/Makefile ]; then \
		set -e; mkdir -p $(JIX_ARM64_DIR)/lists/partial; \
		cd $(JIX_ARM64_DIR); \
		apt-get $(jix_apt_arm64) update; \
		apt-get $(jix_apt_arm64) download linux-headers-$(jix_kver)-arm64; \
		dpkg -x linux-headers-$(jix_kver)-arm64_*.deb root; \
	fi; \
	ln -sfn /usr/lib/linux-kbuild-$$(echo $(jix_kver) | cut -d. -f1,2)/scripts $$H/scripts
	$(MAKE) -f $(JIX_ROOT)/mk/kernel.mk module ARCH=arm64 \
		KDIR=$(JIX_ARM64_DIR)/root/usr/src/linux-headers-$(jix_kver)-arm64 \
		CROSS_COMPILE=$(or $(CROSS_COMPILE),aarch64-linux-gnu-)
