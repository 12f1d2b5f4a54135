# jix_xpon_multicast: top-level entry points.
#
#   make check   install what is missing, build both ways, run every test
#   make run     start the module on the host emulation and forward a stream
#   make module  build the kernel module (KDIR, ARCH, CROSS_COMPILE, W=1)
#   make host    build the host library, tests and tools
#   make test    run the host tests

BUILD ?= build
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all check deps host test sanitize run clean

all: host module

deps:
	@bash tools/ensure-deps.sh

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS)

host: $(BUILD)/build.ninja
	ninja -C $(BUILD)

test: host
	cd $(BUILD) && ctest --output-on-failure -j2

# The host tests again under AddressSanitizer+UBSan (clang) and ThreadSanitizer.
sanitize:
	cmake -S . -B $(BUILD)-asan -G Ninja -DCMAKE_C_COMPILER=clang \
		-DCMAKE_CXX_COMPILER=clang++ -DJIX_SANITIZE=address,undefined
	ninja -C $(BUILD)-asan
	cd $(BUILD)-asan && UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
		ctest --output-on-failure -j2
	cmake -S . -B $(BUILD)-tsan -G Ninja -DJIX_SANITIZE=thread
	ninja -C $(BUILD)-tsan
	cd $(BUILD)-tsan && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure -j2

check: deps
	$(MAKE) host
	$(MAKE) test
	$(MAKE) sanitize
	$(MAKE) module-check
	$(MAKE) qemu-check

run: host
	$(BUILD)/tools/mcdemo

clean: module-clean
	rm -rf $(BUILD) $(BUILD)-asan $(BUILD)-tsan

include mk/kernel.mk
include mk/qemu.mk
