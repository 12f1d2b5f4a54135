// What every fuzz harness shares: an input reader, a fresh module per
// input over a port map and hardware-driver state that the input chooses,
// and the end-of-input checks (nothing leaked, no lock held, every device
// reference given back, at most one flow record per flow index).
#pragma once

#include <arpa/inet.h>	// before plat_os.h, which defines htons() as a macro
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/frames.h"

extern "C" {
#include "jix_mc.h"
#include "fdb/fdb.h"
#include "hwnat/hwnat_flow.h"
#include "host_ctl.h"
}

// A failed check is a crash, so libFuzzer keeps the input.
#define FZ_CHECK(cond, ...) do { \
	if (!(cond)) { \
		fprintf(stderr, "%s:%d: check failed: %s: ", __FILE__, __LINE__, \
			#cond); \
		fprintf(stderr, __VA_ARGS__); \
		fputc('\n', stderr); \
		abort(); \
	} \
} while (0)

namespace fz {

// Reads the input front to back; past its end every value is 0.
class Input {
public:
	Input(const uint8_t *p, size_t n) : p_(p), n_(n) {}

	size_t left() const { return n_; }
	bool empty() const { return !n_; }

	uint8_t u8()
	{
		if (!n_)
			return 0;
		n_--;
		return *p_++;
	}
	uint16_t u16() { return (uint16_t)(u8() | u8() << 8); }
	uint32_t u32() { return (uint32_t)u16() | (uint32_t)u16() << 16; }
	uint64_t u64() { return (uint64_t)u32() | (uint64_t)u32() << 32; }
	bool flag() { return u8() & 1; }
	// A value in [0, n).
	uint32_t below(uint32_t n) { return n ? u16() % n : 0; }

	// Up to @max bytes: a length, then that many bytes (fewer at the end).
	frames::Bytes bytes(size_t max)
	{
		size_t len = max ? u16() % (max + 1) : 0;

		if (len > n_)
			len = n_;
		frames::Bytes b(p_, p_ + len);
		p_ += len;
		n_ -= len;
		return b;
	}
	void fill(void *dst, size_t len)
	{
		uint8_t *d = (uint8_t *)dst;

		for (size_t i = 0; i < len; i++)
			d[i] = u8();
	}

private:
	const uint8_t *p_;
	size_t n_;
};

// Rows of the port map that have a name, and so can have a device.
constexpr unsigned int kNamedPorts[] = {
	0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23,
	24, 25, 26, 27, 28, 29, 30, 31, 32, 33,
};
constexpr unsigned int kDevNum = sizeof(kNamedPorts) / sizeof(kNamedPorts[0]);

// The device of port-map row kNamedPorts[i] (allocated once, reused).
net_device *dev(unsigned int i);
void dev_register(unsigned int i);
void dev_unregister(unsigned int i);
void dev_set_up(unsigned int i, bool up);

// The hardware-forwarding driver's side: its exported pointers set to
// fakes that answer what the input chose.
struct Driver {
	int foe_index;		// hwnat_skb_to_foe_hook
	int is_mc;		// hwnat_is_multicast_entry_hook
	int is_drop;		// hwnat_is_drop_entry_hook
	int drop_packet;	// ux_sw_nat_hook_drop_packet
	unsigned long calls;
};
extern Driver driver;
// Install the fakes named by the bits of @present (bit 0 foe ... bit 7).
void driver_install(uint8_t present);
void driver_choose(Input &in);

// The control plane's receive callback: reads every byte it is given.
int fake_rx_cb(u8 port, u8 *frame, u32 len);
extern unsigned long rx_cb_calls;

// One API call through the hook framework.
int api_call(quor_peer_mc *mc);

// A fresh module: the emulation reset, devices registered and up as the
// input says, driver fakes installed, the module started, then filter
// mode, snooping and debug level chosen.  Returns false (and leaves no
// state) when the start failed, which the harnesses never ask for.
void start(Input &in, bool choose_modes = true);
// Invariants that hold at any quiet moment; aborts when one does not.
void check_quiet();
// Stop the module and check that nothing is left behind.
void stop();
// One API call with @ptr as its argument.
int api(u32 id, void *ptr);

using Op = void (*)(Input &in);
/* One input: start, @prelude, up to @max_ops operations while input is
 * left (one byte picks among @ops when there are several; each is followed
 * by the quiet-state checks), stop. */
int run(const uint8_t *data, size_t size, unsigned int max_ops,
	std::initializer_list<Op> ops, Op prelude = nullptr);

// A group vocabulary so that frames meet entries.
extern const char *const kGroups4[];
extern const char *const kGroups6[];
constexpr unsigned int kGroupNum = 4;

// An entry request built from the input: mostly from the vocabulary,
// sometimes any bytes at all.
igmp_entry_info entry_from(Input &in);

} // namespace fz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// A harness's entry point: fz::run's arguments after the input.
#define FZ_HARNESS(...) \
	extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) \
	{ return fz::run(data, size, __VA_ARGS__); }
