# jix_xpon_multicast: top-level entry points.
#
#   make check   install what is missing, build both ways, run every test
#   make run     start the module on the host emulation and forward a stream
#   make module  build the kernel module (KDIR, ARCH, CROSS_COMPILE, W=1)
#   make host    build the host library, tests and tools
#   make test    run the host tests

BUILD ?= build
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all check deps host test run clean

all: host module

deps:
	@bash tools/ensure-deps.sh

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS)

host: $(BUILD)/build.ninja
	ninja -C $(BUILD)

test: host
	cd $(BUILD) && ctest --output-on-failure -j2

check: deps
	$(MAKE) host
	$(MAKE) test
	$(MAKE) module-check

run: host
	$(BUILD)/tools/mcdemo

clean: module-clean
	rm -rf $(BUILD)

include mk/kernel.mk
