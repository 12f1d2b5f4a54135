# jix_xpon_multicast: top-level entry points.
#
#   make check   install what is missing, build both ways, run every test
#   make run     boot AArch64 in QEMU, load the modules, forward a stream
#   make run-host the same stream on the host emulation
#   make module  build the kernel module (KDIR, ARCH, CROSS_COMPILE, W=1)
#   make host    build the host library, tests and tools
#   make test    run the host tests
#   make test-stats lines of code, lines of tests and their ratio
#   make bench   host benchmarks (docs/PERFORMANCE.md); make bench-instr: in instructions
#   make install the modules and mcctl (DESTDIR, PREFIX); make dkms: through DKMS

BUILD ?= build
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all check deps host test test-stats sanitize fuzz fuzz-build fuzz-smoke bench bench-instr run run-host clean

all: host module

deps:
	@bash tools/ensure-deps.sh

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS)

host: $(BUILD)/build.ninja
	ninja -C $(BUILD)

test: host
	cd $(BUILD) && ctest --output-on-failure -j2

# Tracked files only, blank and comment lines left out (tools/line-count.sh
# says which): code is *.c *.h *.cc *.cpp *.hpp outside tests/ and bench/,
# tests are all files under tests/.
# TEST_STATS_DIRS=... adds a line per directory.
test-stats:
	@bash tools/line-count.sh $(TEST_STATS_DIRS)

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

# libFuzzer harnesses (clang, ASan+UBSan) in build-fuzz/, each run for
# FUZZ_SECONDS starting from its seeds (tests/fuzz/seeds.cc, written by the
# host build's harness to build-fuzz/seeds/<harness>); new inputs go to
# build-fuzz/corpus/<harness>, crashes to build-fuzz/<harness>-crash-*.
FUZZ_SECONDS ?= 600
FUZZ_HARNESSES := fuzz_frames fuzz_proc fuzz_ioctl fuzz_api
FUZZ_FLAGS ?=

fuzz-build:
	cmake -S . -B build-fuzz -G Ninja -DCMAKE_C_COMPILER=clang \
		-DCMAKE_CXX_COMPILER=clang++ -DJIX_SANITIZE=address,undefined \
		-DJIX_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo
	ninja -C build-fuzz -j2 $(FUZZ_HARNESSES)

fuzz: fuzz-build host
	@set -e; for h in $(FUZZ_HARNESSES); do \
		mkdir -p build-fuzz/corpus/$$h build-fuzz/seeds/$$h; \
		$(BUILD)/tests/fuzz/$$h --write build-fuzz/seeds/$$h; \
		echo "== $$h: $(FUZZ_SECONDS) s"; \
		UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
		ASAN_OPTIONS=detect_leaks=1 \
		build-fuzz/tests/fuzz/$$h -max_total_time=$(FUZZ_SECONDS) \
			-max_len=4096 -timeout=20 -rss_limit_mb=2048 \
			-print_final_stats=1 -artifact_prefix=build-fuzz/$$h- \
			$(FUZZ_FLAGS) build-fuzz/corpus/$$h build-fuzz/seeds/$$h \
			2>&1 | tee build-fuzz/$$h.log | grep -E '^(#[0-9]+ +DONE|stat::|==|SUMMARY|.*check failed)' || true; \
		grep -q 'DONE' build-fuzz/$$h.log || { echo "$$h failed, see build-fuzz/$$h.log"; exit 1; }; \
	done

fuzz-smoke:
	$(MAKE) fuzz FUZZ_SECONDS=15

# Benchmarks on the host build in Release (-O2), one table of medians.
# JIX_BENCH_REPS / JIX_BENCH_SLOW_REPS set the repetitions; BENCH_ARGS
# passes Google Benchmark flags (--benchmark_filter=...).  It reaches the
# shell as an exported variable, expanded unquoted but without globbing:
# split into words, never parsed, so '^(a|b)' survives.
BENCH_BUILD ?= $(BUILD)-bench
export BENCH_ARGS
bench:
	cmake -S . -B $(BENCH_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release \
		-DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" \
		-DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG"
	ninja -C $(BENCH_BUILD) jix_bench
	set -f; $(BENCH_BUILD)/bench/jix_bench $$BENCH_ARGS

# The handler against its bare baseline in instructions per frame
# (callgrind), a figure the machine's load does not move.
bench-instr:
	$(MAKE) bench BENCH_ARGS=--benchmark_filter=none > /dev/null
	command -v callgrind_annotate > /dev/null || apt-get install -y -q valgrind
	bench/instr.sh $(BENCH_BUILD)/bench/jix_bench

check: deps
	$(MAKE) host
	$(MAKE) test
	$(MAKE) sanitize
	$(MAKE) fuzz-smoke
	$(MAKE) module-check
	$(MAKE) dkms-check
	$(MAKE) openwrt-check
	$(MAKE) qemu-check

run:
	tools/qemu/run.sh arm64 demo

run-host: host
	$(BUILD)/tools/mcdemo

clean: module-clean
	rm -rf $(BUILD) $(BUILD)-asan $(BUILD)-tsan $(BUILD)-bench build-fuzz

include mk/kernel.mk
include mk/qemu.mk
include mk/install.mk
