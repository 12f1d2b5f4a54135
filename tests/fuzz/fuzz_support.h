// The fuzz harnesses' shared part (fuzz_support.cc): each harness is one
// entry point naming how many operations an input may run, which ones it
// picks from and what it sets up first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace fz {

class Input;
using Op = void (*)(Input &in);

/* One input: a fresh module over the state the input chooses, @prelude,
 * up to @max_ops of @ops (a byte picks one) while input is left, each
 * followed by the quiet-state checks, then stop and the leak checks. */
int run(const uint8_t *data, size_t size, unsigned int max_ops,
	std::initializer_list<Op> ops, Op prelude = nullptr);

void frame(Input &in);		// the per-packet hook
void api(Input &in);		// any record through the control API hook
void hooks(Input &in);		// the hooks the module gives the driver
void env(Input &in);		// time, device events, driver state
void ioctl(Input &in);		// any command and record, faulting user memory
void proc_write(Input &in);	// any bytes and count to any proc file
void add_entries(Input &in);	// up to 7 entries from the vocabulary
void populate(Input &in);	// up to 126 distinct entries

// The seed inputs of harness @harness ("fuzz_frames", ...; seeds.cc).
std::vector<std::vector<uint8_t>> seeds(const std::string &harness);

} // namespace fz

#define FZ_HARNESS(...) \
	extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) \
	{ return fz::run(data, size, __VA_ARGS__); }
