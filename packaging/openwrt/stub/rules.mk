# Stub of OpenWrt's rules.mk for packaging/openwrt/check.sh: the names a
# package recipe uses, with harmless values.
INCLUDE_DIR := $(TOPDIR)/include
CP := cp -fpR
INSTALL_DIR := install -d -m0755
INSTALL_BIN := install -m0755
TARGET_CXX := c++
TARGET_CXXFLAGS := -Os
TARGET_LDFLAGS :=
