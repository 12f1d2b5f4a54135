# jix_xpon_multicast: top-level entry points.
#
#   make check   install what is missing, build both ways, run every test
#   make run     boot AArch64 in QEMU, load the modules, forward a stream
#   make run-host the same stream on the host emulation
#   make module  build the kernel module (KDIR, ARCH, CROSS_COMPILE, W=1)
#   make host    build the host library, tests and tools
#   make test    run the host tests

BUILD ?= build
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all check deps host test sanitize bench run run-host clean

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

# Benchmarks on the host build in Release (-O2), one table of medians.
# JIX_BENCH_REPS / JIX_BENCH_SLOW_REPS set the repetitions; BENCH_ARGS
# passes Google Benchmark flags (--benchmark_filter=...).
BENCH_BUILD ?= $(BUILD)-bench
bench:
	cmake -S . -B $(BENCH_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release \
		-DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" \
		-DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG"
	ninja -C $(BENCH_BUILD) jix_bench
	$(BENCH_BUILD)/bench/jix_bench $(BENCH_ARGS)

check: deps
	$(MAKE) host
	$(MAKE) test
	$(MAKE) sanitize
	$(MAKE) module-check
	$(MAKE) qemu-check

run:
	tests/qemu/run.sh arm64 demo

run-host: host
	$(BUILD)/tools/mcdemo

clean: module-clean
	rm -rf $(BUILD) $(BUILD)-asan $(BUILD)-tsan $(BUILD)-bench

include mk/kernel.mk
include mk/qemu.mk
