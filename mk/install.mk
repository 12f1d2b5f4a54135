# SPDX-License-Identifier: GPL-2.0
#
# Installation and packages.  Included by the top-level Makefile.
#
#   install      the modules (modules_install into $(DESTDIR)) and mcctl
#                with its manual and bash completion under $(PREFIX)
#   install-tools  mcctl, its manual page and completion only
#   dkms         copy the module sources to /usr/src/<name>-<version> and
#                build and install them through DKMS for $(KVER)
#   dkms-check   make dkms, check the installed modules, remove them again;
#                one line and success when dkms cannot be installed
#   openwrt-check  parse the OpenWrt recipe with stub include files

JIX_VERSION := $(shell sed -n 's/^\#define JIX_MC_VERSION[^"]*"\(.*\)"/\1/p' $(JIX_ROOT)/include/jix_mc_version.h)
JIX_DKMS_NAME := jix-xpon-multicast
DESTDIR ?=
PREFIX ?= /usr/local
CXX ?= g++
# The kernel of the installed headers (KDIR), not the running one.
KVER ?= $(patsubst linux-headers-%,%,$(notdir $(KDIR)))

JIX_MCCTL := $(JIX_ROOT)/$(BUILD)/mcctl-bin/mcctl
JIX_MCCTL_SRC := $(JIX_ROOT)/tools/mcctl/main.cc $(JIX_ROOT)/tools/mcctl/mcctl_lib.cc

.PHONY: install install-tools dkms dkms-check openwrt-check

$(JIX_MCCTL): $(JIX_MCCTL_SRC) $(JIX_ROOT)/tools/mcctl/mcctl.h $(JIX_ROOT)/include/jix_mc_version.h
	mkdir -p $(dir $@)
	$(CXX) -O2 -std=c++17 -Wall -Wextra $(CXXFLAGS) -I$(JIX_ROOT)/tools/mcctl \
		-I$(JIX_ROOT)/include -o $@ $(JIX_MCCTL_SRC) $(LDFLAGS)

install-tools: $(JIX_MCCTL)
	install -D -m 755 $(JIX_MCCTL) $(DESTDIR)$(PREFIX)/sbin/mcctl
	install -D -m 644 $(JIX_ROOT)/docs/mcctl.8 $(DESTDIR)$(PREFIX)/share/man/man8/mcctl.8
	install -D -m 644 $(JIX_ROOT)/tools/mcctl/mcctl.bash-completion \
		$(DESTDIR)$(PREFIX)/share/bash-completion/completions/mcctl

install: module install-tools
	$(jix_kmake) $(if $(DESTDIR),INSTALL_MOD_PATH=$(DESTDIR)) modules_install

# The files of the module's Kbuild, as DKMS builds them.
jix_dkms_files = Kbuild dkms.conf include platform/platform.h platform/quor_peer.h platform/quor_vendor.h \
	platform/kernel platform/standin $(jix_kobj_dirs)

dkms: module-kdir
	@command -v dkms >/dev/null || { echo "dkms is not installed (apt-get install dkms)" >&2; exit 1; }
	@grep -q '^PACKAGE_VERSION="$(JIX_VERSION)"$$' $(JIX_ROOT)/dkms.conf || \
		{ echo "dkms.conf: PACKAGE_VERSION is not $(JIX_VERSION)" >&2; exit 1; }
	set -e; src=/usr/src/$(JIX_DKMS_NAME)-$(JIX_VERSION); \
	dkms remove $(JIX_DKMS_NAME)/$(JIX_VERSION) --all >/dev/null 2>&1 || true; \
	rm -rf $$src; mkdir -p $$src; \
	cd $(JIX_ROOT) && cp -r --parents $(sort $(jix_dkms_files)) $$src/; \
	find $$src -name '*.o' -o -name '.*.cmd' | xargs rm -f; \
	dkms add $(JIX_DKMS_NAME)/$(JIX_VERSION); \
	dkms build $(JIX_DKMS_NAME)/$(JIX_VERSION) -k $(KVER); \
	dkms install $(JIX_DKMS_NAME)/$(JIX_VERSION) -k $(KVER)

# Run by make check: the DKMS round trip on this machine's headers.
dkms-check:
	@command -v dkms >/dev/null || DEBIAN_FRONTEND=noninteractive \
		apt-get install -y -q --no-install-recommends dkms >/dev/null 2>&1 || true
	@if ! command -v dkms >/dev/null; then echo "dkms-check: skipped, dkms is not installable"; exit 0; fi; \
	set -e; mkdir -p $(JIX_ROOT)/$(BUILD); $(MAKE) --no-print-directory dkms > $(JIX_ROOT)/$(BUILD)/dkms.log 2>&1 || \
		{ tail -n 30 $(JIX_ROOT)/$(BUILD)/dkms.log; exit 1; }; \
	dkms status $(JIX_DKMS_NAME)/$(JIX_VERSION) -k $(KVER) | grep -q installed; \
	ko=$$(find /lib/modules/$(KVER)/updates/dkms -name 'jix_xpon_multicast.ko*' | head -n 1); \
	modinfo -F version $$ko | grep -qx '$(JIX_VERSION)'; \
	modinfo -F parm $$ko | grep -q '^major:'; \
	dkms remove $(JIX_DKMS_NAME)/$(JIX_VERSION) --all >/dev/null; \
	rm -rf /usr/src/$(JIX_DKMS_NAME)-$(JIX_VERSION); \
	echo "dkms-check: built, installed ($$ko) and removed $(JIX_DKMS_NAME) $(JIX_VERSION) for $(KVER)"

openwrt-check:
	@bash $(JIX_ROOT)/packaging/openwrt/check.sh
