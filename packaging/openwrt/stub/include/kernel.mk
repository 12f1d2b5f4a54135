# Stub of OpenWrt's kernel.mk.
KERNEL_BUILD_DIR := /tmp/openwrt-stub/build
LINUX_DIR := /tmp/openwrt-stub/linux
KERNEL_MAKE := $(MAKE) -C $(LINUX_DIR) ARCH=arm64 CROSS_COMPILE=aarch64-openwrt-linux-
AutoProbe = $(if $(strip $(1)),probe:$(strip $(1)),$(error AutoProbe without modules))
