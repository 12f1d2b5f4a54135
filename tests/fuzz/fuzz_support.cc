// What the fuzz harnesses share: an input reader, a fresh module per input
// over a port map (which of the 26 named ports have a device, which are
// up), hardware-driver pointers (each present or not, answering what the
// input says), filter mode, snooping and debug level chosen by the input;
// the operations the harnesses pick from; and the checks.  After every
// operation: no lock held, no warning, the flow and drop tables consistent,
// every bound port holding a reference on a registered device.  At the end:
// no allocation, timer, reference, proc file, hook, counter or device left.
// A failed check aborts, so libFuzzer keeps the input.  Without libFuzzer,
// main() replays the harness's seeds (seeds.cc) as a plain test.
#include <arpa/inet.h>	// before plat_os.h, which defines htons() as a macro

#include <algorithm>
#include <fstream>
#include <memory>
#include <numeric>

#include "fuzz/fuzz_support.h"
#include "support/frames.h"
#include "support/hwnat_check.h"
#include "support/module_fixture.h"

extern "C" {
#include "hwnat/hwnat_flow.h"
}

#define FZ_CHECK(cond, ...) do { if (!(cond)) { \
	fprintf(stderr, "%s:%d: check failed: %s: ", __FILE__, __LINE__, #cond); \
	fprintf(stderr, __VA_ARGS__); fputc('\n', stderr); abort(); } } while (0)

using frames::Bytes;

namespace fz {

// Reads the input front to back; past its end every value is 0.
class Input {
public:
	Input(const uint8_t *p, size_t n) : p_(p), n_(n) {}
	bool empty() const { return !n_; }
	uint8_t u8() { return n_ ? (n_--, *p_++) : 0; }
	uint16_t u16() { uint16_t lo = u8(); return (uint16_t)(lo | u8() << 8); }
	uint32_t u32() { uint32_t lo = u16(); return lo | (uint32_t)u16() << 16; }
	// Mostly one of @v, now and then any 16-bit value.
	template <class T, size_t N> T pick(const T (&v)[N])
	{ uint8_t b = u8(); return b < 0xf0 ? v[b % N] : (T)u16(); }
	// A length up to @max, then that many bytes (fewer at the end).
	Bytes bytes(size_t max)
	{
		size_t len = std::min<size_t>(u16() % (max + 1), n_);
		p_ += len, n_ -= len;
		return Bytes(p_ - len, p_);
	}
	void fill(void *dst, size_t len) { for (size_t i = 0; i < len; i++) ((uint8_t *)dst)[i] = u8(); }
private:
	const uint8_t *p_;
	size_t n_;
};

namespace {

// Rows of the port map that have a name, and so can have a device.
const u8 kPorts[] = { 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23,
		      24, 25, 26, 27, 28, 29, 30, 31, 32, 33 };
constexpr unsigned int kDevNum = sizeof(kPorts);
// Proc files with the longest write each accepts (-1: read-only).
const struct { const char *name; long max; } kFiles[] = {
	{ "kv7730/jix_mc_fwd_entry", 255 }, { "kv7730/jix_mc_debug", 31 },
	{ "kv7730/jix_mc_port_type", 63 }, { "kv7730/jix_mc_hwnat_entry", -1 },
	{ "kv7730/jix_mc_acnt_mapping", -1 },
};

net_device *devs[kDevNum];	// allocated once, reused by every input
long live0;
unsigned long rx_calls;
struct { int foe, is_mc, is_drop, drop; } drv;	// what the driver answers

net_device *dev(unsigned int i)
{
	return devs[i] ? devs[i] : (devs[i] = host_netdev_alloc(lan_map_data[kPorts[i]].ifname));
}

// The driver's own pointers, each present when its bit of @p is set; flow
// indexes none (negative or 0), a few small ones that collide, or any.
void driver_set(uint8_t p, Input &in)
{
	using G = unsigned char *;
	static const int idx[] = { -1, 0, 1, 2, 3, 7, 0x3fff, -1000 };
	hwnat_skb_to_foe_hook = p & 1 ? +[](sk_buff *) { return drv.foe; } : nullptr;
	hwnat_is_multicast_entry_hook = p & 2 ? +[](int, G, G, int) { return drv.is_mc; } : nullptr;
	hwnat_is_drop_entry_hook = p & 4 ? +[](int, G, G, int) { return drv.is_drop; } : nullptr;
	hwnat_multicast_set_hwnat_info_hook = p & 8 ? +[](int, unsigned, int) { return 0; } : nullptr;
	hwnat_delete_foe_entry_hook = p & 16 ? +[](int) { return 0; } : nullptr;
	ux_sw_nat_hook_update_dp = p & 32 ? +[](int, int) { return 0; } : nullptr;
	ux_sw_nat_hook_update_vlan = p & 64 ? +[](int, unsigned, unsigned) { return 0; } : nullptr;
	ux_sw_nat_hook_drop_packet = p & 128 ? +[](sk_buff *) { return drv.drop; } : nullptr;
	drv = { in.pick(idx), in.u8() % 4 - 1, in.u8() % 4 - 1, in.u8() % 4 - 1 };
}

// The control plane's receive callback reads every byte it is given.
int rx_cb(u8, u8 *frame, u32 len)
{
	rx_calls++;
	return std::accumulate(frame, frame + len, len) & 1;
}

void check_quiet()
{
	std::string fault = jt::hwnat_table_fault();
	FZ_CHECK(!host_locks_held() && !host_warn_count() && fault.empty(), "%s", fault.c_str());
	for (u8 p : kPorts) {
		net_device *d = lan_map_data[p].dev;
		FZ_CHECK(!d || (d->registered && host_netdev_refcnt(d) > 0), "port %u", p);
	}
}

std::string texts()
{
	std::string s;
	for (auto &f : kFiles)
		s += std::string(host_proc_read_all(f.name, 4096)) + "|";
	return s;
}

// An entry request: any bytes (the seeds hold entries of every port,
// family, VLAN and treatment, for the groups of its frames).
quor_peer_entry entry_from(Input &in)
{
	quor_peer_entry e;
	in.fill(&e, sizeof(e));
	return e;
}

// A buffer as the driver hands a frame over: the frame to the buffer's
// very end, so that a read past it is caught; data 14 bytes past the MAC
// header (per-packet hook) or at it (the driver hooks and the API).
frames::Skb skb_for(Input &in, const Bytes &f, bool at_mac)
{
	uint8_t h = in.u8();
	frames::Skb skb = frames::skb_from(f, h < 0xc0 ? 32 : h % 80);
	if (at_mac)
		skb_push(skb.get(), skb->data - skb_mac_header(skb.get()));
	return skb;
}

// A frame's data pointer and length, and with @bytes its bytes (but 2
// from @skip).
std::string look(const sk_buff *s, bool bytes = true, size_t skip = ~(size_t)2)
{
	std::string b = bytes ? std::string((const char *)s->head, s->tail - s->head) : "";
	if (skip < b.size())
		b.replace(skip, 2, std::min<size_t>(2, b.size() - skip), '?');
	return std::to_string(s->data - s->head) + "," + std::to_string(s->len) + "," + b;
}

void *poison(Input &in) { return (void *)(0xdead000000000000ULL | in.u16() << 4); }

// What a record's pointers name, each exactly its size, freed after the call.
struct Owned {
	std::vector<std::unique_ptr<uint8_t[]>> bufs;
	template <class T = uint8_t> T *buf(size_t n = sizeof(T))
	{ bufs.emplace_back(new uint8_t[n ? n : 1]()); return (T *)bufs.back().get(); }
	template <class T> T *put(const T &v) { return &(*buf<T>() = v); }
	uint8_t *copy(const Bytes &b) { return std::copy(b.begin(), b.end(), buf(b.size())) - b.size(); }
};

} // namespace

// Any bytes as a frame (the seeds hold frames of every kind the module
// tells apart) through the per-packet hook, now and then with its k-th
// allocation failing: slot 0 answers 1 with result 0 or -1, other slots -1
// with the result untouched; the frame comes back as given (from the query
// path: its pointer and length).
void frame(Input &in)
{
	Bytes f = in.bytes(2048);
	frames::Skb skb = skb_for(in, f, false);
	uint8_t id = in.u8();
	quor_peer_mc mc{};
	mc.in_function_id = id < 0xf0 ? 0 : id < 0xfc ? id % 8 : in.u32();
	mc.skb = skb.get();
	mc.result = 12345;
	std::string before = look(skb.get()), where = look(skb.get(), false);
	unsigned long cbs = rx_calls;
	uint8_t fail = in.u8();
	host_alloc_fail_nth(fail >= 0xf0 ? fail % 16 + 1 : 0);
	int ret = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_INTERVAL, &mc);
	host_alloc_fail_nth(0);
	FZ_CHECK(mc.in_function_id ? ret == -1 && mc.result == 12345 :
		 ret == 1 && (mc.result == 0 || mc.result == -1),
		 "slot %u: hook %d result %d", mc.in_function_id, ret, mc.result);
	FZ_CHECK(look(skb.get(), rx_calls == cbs) == (rx_calls == cbs ? before : where), "moved");
}

// Any mc_data record through the API hook.  A caller is trusted to make
// valid the pointer fields its operation reads: param for 0, 4-6 and 9-13,
// param2 and param3 for 1, skb for 2 and 3, param2 for 14, op 9's entries
// for entry_num records.  Each is exactly its object's size or NULL; every
// other field is the input's bytes, pointers poisoned.  Checks: 1 with
// result 2 or -1 for ids 0-14, -1 otherwise; no byte but the result
// written; -1 for a NULL argument; op 1 sends exactly its bytes; op 2
// gives its frame back (but the two bytes behind a re-inserted type-0
// switch tag); op 3 consumes it only with result 2.
void api(Input &in)
{
	Owned own;
	frames::Skb skb;
	quor_peer_mc mc;
	in.fill(&mc, sizeof(mc));
	uint8_t idb = in.u8();
	u32 id = mc.api_function_id = idb < 0xf0 ? idb % 16 : in.u32();
	mc.skb = mc.param2 = mc.param.ptr = poison(in);
	bool null = in.u8() >= 0xe0;
	void *arg = nullptr;	/* the object param names */
	Bytes f;
	if (id == 0) {
		arg = own.put<quor_mc_rx_cb_t>(in.u8() & 1 ? rx_cb : nullptr);
	} else if (id == 1) {
		f = in.bytes(2100);
		mc.param2 = in.u8() < 0xf0 ? own.copy(f) : (f.clear(), nullptr);
		mc.param3 = mc.param2 || in.u8() & 1 ? f.size() : in.u32();
		mc.param.bytes[0] = in.u8();
	} else if (id == 2 || id == 3) {
		f = in.bytes(2048);
		skb = skb_for(in, f, true);
		mc.skb = null ? nullptr : skb.get();
	} else if (id >= 4 && id <= 6) {
		arg = own.put(entry_from(in));
	} else if (id == 9) {
		auto *r = own.buf<quor_peer_get_req>();
		in.fill(r, sizeof(*r));
		r->port_id = kPorts[r->port_id % kDevNum];
		r->entry_num = r->entry_num > 0 ? r->entry_num % 40 : r->entry_num;
		r->entries = r->entry_num > 0 ? own.buf<quor_peer_entry>(r->entry_num * 80)
					      : (quor_peer_entry *)poison(in);
		arg = r;
	} else if (id >= 10 && id <= 13) {
		arg = own.put<u32>(in.u8() < 0xf0 ? in.u8() % 7 : in.u32());
	} else if (id == 14) {
		f = in.bytes(24);	/* a port name */
		f.push_back(0);
		mc.param2 = null ? nullptr : own.copy(f);
		mc.param.val = in.u8() < 0xf0 ? in.u8() % 4 : in.u32();
	} else {	/* 7, 8 and out of range: inline values only */
		mc.param.bytes[0] = in.u8();
	}
	if (arg)
		mc.param.ptr = null ? nullptr : arg;
	u8 port = mc.param.bytes[0];
	net_device *xdev = id == 1 && port < JIX_PORT_NUM ? lan_map_data[port].dev : nullptr;
	unsigned int tx0 = xdev ? host_netdev_tx_count(xdev) : 0;
	mc.result = 0x5a5a5a5a;
	quor_peer_mc before = mc;
	std::string frame0 = skb ? look(skb.get(), true, skb->mac_header + 14) : "";

	int ret = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc);

	int res = mc.result;
	mc.result = before.result;
	FZ_CHECK(!memcmp(&mc, &before, sizeof(mc)), "op %u wrote the record", id);
	FZ_CHECK(id < QUOR_MC_API_NUM ? ret == 1 && (res == 2 || res == -1) :
		 ret == -1 && res == before.result, "op %u: hook %d result %d", id, ret, res);
	FZ_CHECK(!null || !(arg || id == 2 || id == 3) || res == -1, "op %u with NULL", id);
	if (id == 3 && res == 2 && !null)
		skb.release();	/* replication consumed it */
	FZ_CHECK(id != 2 || null || look(skb.get(), true, skb->mac_header + 14) == frame0, "1:N");
	FZ_CHECK(res != 2 || id != 1 || (xdev && mc.param3 == f.size() && f.size() <= 1984 &&
		 host_netdev_tx_count(xdev) == tx0 + 1 && jt::sent(xdev, tx0) == f),
		 "port %u: %u bytes sent wrong", port, mc.param3);
}

// The hooks the module installs for the driver: the driver keeps its
// frame (what the find hook answers: the hwnat tests).
void hooks(Input &in)
{
	multicast_speed_find_entry_hook(in.u8() % 10 - 1);
	Bytes f = in.bytes(2048);
	frames::Skb skb = skb_for(in, f, true);
	uint64_t mask = in.u32();
	mask |= (uint64_t)in.u32() << 32;
	std::string where = look(skb.get(), false);
	bool learn = in.u8() & 1;
	int r = learn ? xpon_igmp_learn_flow_hook(skb.get())
		      : multicast_hwnat_drop_entry_hook(skb.get(), mask);
	FZ_CHECK(look(skb.get(), false) == where && (learn || r == 0 || r == -1),
		 "driver frame moved, or drop hook %d", r);
}

// Time passes, a device comes or goes, goes up or down, the driver changes.
void env(Input &in)
{
	static const unsigned short ticks[] = { 1, 250, 1000, 2999, 3000, 3250, 6500 };
	uint8_t what = in.u8() % 6;
	net_device *d = dev(in.u8() % kDevNum);
	if (what < 2)
		host_jiffies_advance(in.pick(ticks));
	else if (what == 2 && d->registered)
		host_netdev_unregister(d);
	else if (what == 2)
		host_netdev_register(d);
	else if (what == 3)
		d->flags ^= IFF_UP;
	else
		driver_set(what == 4 ? in.u8() : 0xff, in);
}

// Any command and minor through the character device, the record at the
// start of a user page (unreadable from anywhere), NULL or below 4096;
// get-entries claiming any capacity over an
// array of 0 to 7 records with unwritable memory behind, or a bad pointer.
// Checks: -1 for unknown commands; -EFAULT and nothing changed when the
// record cannot be read (entries, mode, snooping, the caller's array);
// -EFAULT when the answer cannot be written; the mode read back; get
// writes no more records than asked or room for, gives back the caller's
// pointer and count, and only records of its port, or without room for
// them (-ENOMEM) leaves the request as it was.
void ioctl(Input &in)
{
	static const uint8_t size_in[11] = { 0, 80, 80, 80, 1, 0, 32, 4, 0, 1, 0 };
	static const uint8_t size_out[11] = { 0, 0, 0, 0, 0, 0, 32, 0, 4, 0, 1 };
	static const s32 claims[] = { -1, 0, 1, 2, 5, 64, 0x7fffffff, -0x7fffffff };
	constexpr size_t kPage = 4096;
	std::vector<uint8_t> page(2 * kPage), arr(2 * kPage);	/* a guard page each */
	uint8_t c = in.u8(), where = in.u8();
	unsigned int cmd = c < 0xf0 ? c % 12 : in.u32();
	uintptr_t arg = where < 0xf8 ? (uintptr_t)page.data() : where & 1 ? 0 : in.u16() % 4096;
	uint8_t *bad = &page[in.u8() < 0xc0 ? kPage : in.u16() % 128];
	quor_peer_get_req req{};
	size_t cap = in.u8() % 8;
	quor_peer_entry e = entry_from(in);
	if (cmd >= 1 && cmd <= 3)
		memcpy(page.data(), &e, sizeof(e));
	if (cmd == 6) {
		req.port_id = kPorts[in.u8() % kDevNum];
		req.entry_num = in.pick(claims);
		uint8_t ep = in.u8();
		req.entries = (quor_peer_entry *)(ep < 0xf0 ? (uintptr_t)arr.data() : ep % 4096);
		memcpy(page.data(), &req, sizeof(req));
	} else if (cmd < 1 || cmd > 3) {
		in.fill(page.data(), 8);
	}
	std::vector<uint8_t> arr0 = arr;
	std::string before = texts();
	host_uaccess_add_fault(bad, page.data() + 2 * kPage - bad);
	host_uaccess_add_fault(&arr[cap * 80], 2 * kPage - cap * 80);

	bool nomem = in.u8() >= 0xf0;	/* the room for get-entries */
	host_alloc_fail_sleeping(nomem);
	long r = host_chrdev_ioctl(QUOR_IGMP_MAJOR, in.u8(), cmd, arg);
	host_alloc_fail_sleeping(0);
	host_uaccess_clear_faults();
	u32 m;
	memcpy(&m, page.data(), 4);
	auto faults = [&](size_t n) { return n && (arg < 4096 || (uintptr_t)bad < arg + n); };
	if (cmd == 0 || cmd > 10 || faults(size_in[cmd])) {
		FZ_CHECK(r == (cmd == 0 || cmd > 10 ? -1 : -EFAULT) && texts() == before &&
			 arr == arr0, "command %u: %ld", cmd, r);
		return;
	}
	FZ_CHECK(cmd == 6 || (faults(size_out[cmd]) ? r == -EFAULT : cmd == 8 ?
		 r == (long)m && m == igmp_filter_mode : r == 0 || r == -1), "command %u: %ld", cmd, r);
	quor_peer_get_req out;
	memcpy(&out, page.data(), sizeof(out));
	FZ_CHECK(cmd != 6 || (texts() == before && (r == -EFAULT || (r == -ENOMEM && nomem &&
		 !memcmp(&out, &req, sizeof(out))) || (r >= 0 &&
		 r <= std::max(req.entry_num, 0) && out.entry_num == r &&
		 out.entries == req.entries && out.port_id == req.port_id &&
		 (req.entries != (void *)arr.data() || r <= (long)cap)))),
		 "get: %ld records, claimed %d, room %zu", r, req.entry_num, cap);
	for (long i = 0; cmd == 6 && i < r; i++)
		FZ_CHECK(arr[i * 80] == req.port_id, "record of port %u", arr[i * 80]);
}

// Any bytes (the seeds hold the commands) and any count to any proc
// file, from a buffer exactly as long as the bytes, part of it unreadable
// now and then.  A write answers the count; -22 for a count
// over the file's limit (read nothing); -14 when a byte cannot be read; -5
// for the read-only files; a refused write changes no file's text.
void proc_write(Input &in)
{
	auto &f = kFiles[in.u8() % 5];
	Bytes t = in.bytes(300);
	uint8_t how = in.u8();
	size_t count = how >= 0xe0 ? f.max + 1 + in.u16() : t.size();
	size_t fault = how >= 0xc0 && how < 0xe0 && !t.empty() ? in.u16() % t.size() : t.size();
	Owned own;
	char *buf = (char *)own.copy(t);
	std::string before = texts();
	host_uaccess_add_fault(buf + fault, t.size() - fault);

	long r = host_proc_write(f.name, buf, count);

	host_uaccess_clear_faults();
	long want = f.max < 0 ? -EIO : (long)count > f.max ? -EINVAL :
		    fault < count ? -EFAULT : (long)count;
	FZ_CHECK(r == want && (r >= 0 || texts() == before), "%zu bytes to %s: %ld, want %ld",
		 count, f.name, r, want);
	if (quor_mc_debug_level > 1)	/* keep the traces from drowning the run */
		quor_mc_debug_level = 1;
}

void add_entries(Input &in)
{
	for (unsigned int n = in.u8() % 8; n; n--) {
		quor_peer_entry e = entry_from(in);
		jt::api(QUOR_MC_API_ENTRY_ADD, &e);
	}
}

void populate(Input &in)
{
	uint8_t b = in.u8();
	for (unsigned int i = 0, n = b < 0xc0 ? b % 8 : (b - 0xc0) * 2; i < n; i++) {
		std::string g = i % 5 == 4 ? "ff0e::" + std::to_string(i) :
			"239.1." + std::to_string(i >> 8) + "." + std::to_string(i & 255);
		igmp_entry_info e = jt::entry(kPorts[i % kDevNum], g.c_str(), i % 3 ? 100 + i : -1);
		e.vlan_mode = i % 6;
		jt::api(QUOR_MC_API_ENTRY_ADD, &e);
	}
}

int run(const uint8_t *data, size_t size, unsigned int max_ops,
	std::initializer_list<Op> ops, Op prelude)
{
	Input in(data, size);
	host_reset();
	host_hwnat_reset();
	jt::reset_image_state();
	rx_calls = 0;
	live0 = host_alloc_live();
	uint32_t present = in.u32(), up = in.u32();
	for (unsigned int i = 0; i < kDevNum; i++) {
		dev(i)->flags = up >> i & 1 ? dev(i)->flags | IFF_UP : dev(i)->flags & ~IFF_UP;
		if (present >> i & 1)
			host_netdev_register(dev(i));
	}
	driver_set(in.u8(), in);
	FZ_CHECK(init_module() == 0, "start failed");
	u32 mode = in.u8() % 7;		/* 6: refused */
	u8 snoop = ~in.u8() & 1, dbg = in.u8();
	jt::api(QUOR_MC_API_SET_FILTER_MODE, &mode);
	jt::api(QUOR_MC_API_SET_SNOOPING, &snoop);
	quor_mc_debug_level = dbg < 0xe0 ? dbg & 1 : dbg & 7;	/* traces, dumps now and then */
	if (prelude)
		prelude(in);
	for (unsigned int n = 0; n < max_ops && !in.empty(); n++) {
		ops.begin()[ops.size() > 1 ? in.u8() % ops.size() : 0](in);
		check_quiet();
	}
	texts();
	check_quiet();
	cleanup_module();
	for (net_device *d : devs) {
		if (d->registered)
			host_netdev_unregister(d);
		host_netdev_tx_clear(d);
		FZ_CHECK(!host_netdev_refcnt(d), "%s keeps references", d->name);
	}
	FZ_CHECK(host_alloc_live() == live0 && !host_timers_pending() && !host_locks_held() &&
		 !host_proc_count() && !host_quor_registered_count() && !host_counters_taken() &&
		 !host_chrdev_registered(QUOR_IGMP_MAJOR) && !host_warn_count() &&
		 !xpon_igmp_learn_flow_hook && !multicast_speed_find_entry_hook &&
		 !multicast_hwnat_drop_entry_hook, "left: %ld objects, %d timers",
		 host_alloc_live() - live0, host_timers_pending());
	host_hwnat_reset();
	return 0;
}

} // namespace fz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

#ifndef JIX_LIBFUZZER
// Replays the harness's seeds, each in a buffer exactly its own size, or
// with "--write DIR" writes them there.  (A libFuzzer build replays any
// input file it is given.)
int main(int argc, char **argv)
{
	const char *slash = strrchr(argv[0], '/');
	std::vector<Bytes> in = fz::seeds(slash ? slash + 1 : argv[0]);
	bool write = argc == 3 && !strcmp(argv[1], "--write");
	if (argc != 1 && !write)
		return fprintf(stderr, "usage: %s [--write DIR]\n", argv[0]), 2;
	for (size_t i = 0; write && i < in.size(); i++) {
		std::ofstream f(std::string(argv[2]) + "/seed" + std::to_string(i), std::ios::binary);
		FZ_CHECK(f.write((const char *)in[i].data(), in[i].size()), "cannot write to %s", argv[2]);
	}
	for (size_t i = 0; argc == 1 && i < in.size(); i++) {
		std::unique_ptr<uint8_t[]> copy(new uint8_t[in[i].size() + !in[i].size()]);
		std::copy(in[i].begin(), in[i].end(), copy.get());
		LLVMFuzzerTestOneInput(copy.get(), in[i].size());
	}
	printf("%s %zu seeds\n", write ? "wrote" : "replayed", in.size());
	return in.empty();
}
#endif
