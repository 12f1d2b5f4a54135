// Frames of any shape through the per-packet hook, through API operations
// 2 and 3 (the 1:N VLAN check and software replication) and through the
// hooks that the module installs for the hardware-forwarding driver, mixed
// with control operations, device events and time, over a database, port
// map, filter and snooping mode and driver state that the input chooses.
//
// Every frame sits in a buffer that ends exactly where the frame does, so
// a read past it is caught by AddressSanitizer.  Checks after each call:
// the dispatcher's answer and the result are among the documented ones,
// the frame the caller keeps has its data pointer, length and bytes back
// as given (operation 2 may zero the two bytes behind a type-0 switch tag
// it re-inserts), no lock is held, every bound port holds a reference and
// no flow index has two flow records; at the end, nothing is left behind.
#include "fuzz/fuzz_support.h"

#include <cstring>

using frames::Bytes;
using frames::Tag;

namespace {

constexpr unsigned int kMaxOps = 48;
constexpr size_t kMaxFrame = 2048;

std::vector<Tag> tags_from(fz::Input &in)
{
	static const uint16_t tpids[] = { 0x8100, 0x88a8, 0x9100, 0x8100 };
	std::vector<Tag> tags;
	unsigned int n = in.u8() % 4;

	for (unsigned int i = 0; i < n; i++) {
		uint8_t t = in.u8();
		tags.push_back({ t < 0xf0 ? tpids[t % 4] : in.u16(), in.u16() });
	}
	return tags;
}

uint16_t dport_from(fz::Input &in)
{
	static const uint16_t ports[] = { 1234, 5004, 1900, 5353, 547, 546, 0, 65535 };
	uint8_t p = in.u8();

	return p < 0xf0 ? ports[p % 8] : in.u16();
}

// A frame: any bytes, or a frame of a known kind aimed at one of the
// vocabulary's groups, then mutated and cut as the input says.
Bytes frame_from(fz::Input &in)
{
	uint8_t kind = in.u8();
	const char *g4 = fz::kGroups4[(kind >> 4) % fz::kGroupNum];
	const char *g6 = fz::kGroups6[(kind >> 4) % fz::kGroupNum];
	Bytes f;

	switch (kind % 9) {
	case 0:
		return in.bytes(kMaxFrame);
	case 1: {
		auto tags = tags_from(in);
		f = frames::ipv4_udp_frame("10.0.0.1", g4, 4000, dport_from(in), tags);
		break;
	}
	case 2: {
		auto tags = tags_from(in);
		f = frames::ipv6_udp_frame("2001:db8::1", g6, 4000, dport_from(in),
					   tags, kind & 0x80);
		break;
	}
	case 3: {
		auto tags = tags_from(in);
		bool general = kind & 0x40;
		f = frames::igmp_frame(frames::igmp_query(general ? "0.0.0.0" : g4,
							  kind & 0x80),
				       general ? "224.0.0.1" : g4, tags);
		break;
	}
	case 4: {
		Bytes m = frames::mld(kind & 0x80 ? 130 : 131, "fe80::1", g6,
				      kind & 0x40 ? "::" : g6);
		Bytes ip = frames::ipv6("fe80::1", g6, 58, m, true);
		f = frames::eth(frames::group_mac(g6), frames::mac("00:11:22:33:44:55"),
				tags_from(in), ETH_P_IPV6, ip);
		break;
	}
	case 5: {
		bool v6 = kind & 0x80;
		Bytes ip = v6 ? frames::ipv6("2001:db8::1", g6, 17,
					     frames::udp(4000, dport_from(in)))
			      : frames::ipv4("10.0.0.1", g4, 17,
					     frames::udp(4000, dport_from(in)));
		uint16_t ppp = in.flag() ? (v6 ? 0x0057 : 0x0021) : in.u16();
		f = frames::eth(frames::group_mac(v6 ? g6 : g4),
				frames::mac("00:11:22:33:44:55"), tags_from(in),
				ETH_P_PPP_SES, frames::pppoe(ppp, ip));
		break;
	}
	case 6: {
		/* A switch tag in the type position: 16-bit value, 2 bytes. */
		f = frames::ipv4_udp_frame("10.0.0.1", g4, 4000, dport_from(in),
					   tags_from(in));
		uint16_t stag = in.u16();
		uint8_t st[4] = { (uint8_t)(stag >> 8), (uint8_t)stag, in.u8(),
				  in.u8() };
		if (in.flag()) {
			/* The tag replaced a VLAN TPID. */
			if (f.size() >= 14 && f[12] == 0x81) {
				f[12] = st[0];
				f[13] = st[1];
			}
		} else {
			f.insert(f.begin() + 12, st, st + 4);
		}
		break;
	}
	case 7:
		f = frames::ipv4_udp_frame("10.0.0.1", g4, 4000, dport_from(in),
					   tags_from(in));
		{
			/* IPv4 options push the transport header along. */
			uint8_t ihl = in.u8() & 0x0f;
			if (f.size() > 14)
				f[14] = (uint8_t)(0x40 | ihl);
		}
		break;
	default: {
		Bytes dst = in.bytes(6);
		dst.resize(6);
		f = frames::eth(dst, frames::mac("00:11:22:33:44:55"), tags_from(in),
				in.u16(), in.bytes(256));
		break;
	}
	}
	unsigned int muts = in.u8() % 5;
	for (unsigned int i = 0; i < muts && !f.empty(); i++) {
		size_t pos = in.u16() % f.size();
		f[pos] = in.u8();
	}
	uint8_t cut = in.u8();
	if (cut >= 0xc0 && !f.empty())
		f.resize(in.u16() % (f.size() + 1));
	if (f.size() > kMaxFrame)
		f.resize(kMaxFrame);
	return f;
}

// A buffer as the driver hands it to the module: @headroom bytes before
// the MAC header, the frame to the buffer's very end.  @at_mac leaves the
// data pointer at the MAC header (API operations 2 and 3, driver hooks);
// otherwise it is 14 bytes past it, as on the per-packet hook.
frames::Skb skb_for(const Bytes &f, unsigned int headroom, bool at_mac)
{
	if (!at_mac)
		return frames::skb_from(f, headroom);
	sk_buff *skb = alloc_skb(headroom + (unsigned int)f.size(), GFP_ATOMIC);
	if (!skb)
		return frames::Skb();
	skb_reserve(skb, (int)headroom);
	if (!f.empty())
		memcpy(skb_put(skb, (unsigned int)f.size()), f.data(), f.size());
	skb_reset_mac_header(skb);
	return frames::Skb(skb);
}

unsigned int headroom_from(fz::Input &in)
{
	uint8_t h = in.u8();

	return h < 0xc0 ? 32 : h % 80;
}

struct Snapshot {
	unsigned char *data;
	unsigned int len;
	Bytes bytes;	/* head to tail */
};

Snapshot snap(const sk_buff *skb)
{
	return { skb->data, skb->len, Bytes(skb->head, skb->tail) };
}

void expect_same(const sk_buff *skb, const Snapshot &s, const char *what,
		 size_t skip_from = 0, size_t skip_len = 0)
{
	FZ_CHECK(skb->data == s.data && skb->len == s.len,
		 "%s moved the frame: data %+ld len %u -> %u", what,
		 (long)(skb->data - s.data), s.len, skb->len);
	Bytes now(skb->head, skb->tail);
	FZ_CHECK(now.size() == s.bytes.size(), "%s resized the buffer", what);
	for (size_t i = 0; i < now.size(); i++)
		if (i < skip_from || i >= skip_from + skip_len)
			FZ_CHECK(now[i] == s.bytes[i], "%s changed byte %zu", what, i);
}

void op_interval(fz::Input &in)
{
	Bytes f = frame_from(in);
	frames::Skb skb = skb_for(f, headroom_from(in), false);
	FZ_CHECK(skb, "no buffer");
	uint8_t id = in.u8();
	quor_peer_mc mc{};
	mc.in_function_id = id < 0xf0 ? 0 : (id < 0xfc ? id % 8 : in.u32());
	mc.skb = skb.get();
	mc.result = 12345;
	Snapshot s = snap(skb.get());
	unsigned long cbs = fz::rx_cb_calls;

	int ret = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_INTERVAL,
			      &mc);
	if (mc.in_function_id == 0) {
		FZ_CHECK(ret == 1, "interval hook %d", ret);
		FZ_CHECK(mc.result == 0 || mc.result == -1, "result %d", mc.result);
	} else {
		FZ_CHECK(ret == -1 && mc.result == 12345, "slot %u ran",
			 mc.in_function_id);
	}
	if (fz::rx_cb_calls == cbs)
		expect_same(skb.get(), s, "data handler");
	else
		FZ_CHECK(skb->data == s.data && skb->len == s.len,
			 "query path moved the frame");
}

void op_vlan_api(fz::Input &in, u32 id)
{
	Bytes f = frame_from(in);
	frames::Skb skb = skb_for(f, headroom_from(in), true);
	FZ_CHECK(skb, "no buffer");
	bool none = in.u8() >= 0xf8;
	quor_peer_mc mc{};
	mc.api_function_id = id;
	mc.skb = none ? nullptr : skb.get();
	mc.result = 12345;
	quor_peer_mc before = mc;
	Snapshot s = snap(skb.get());

	int ret = fz::api_call(&mc);
	FZ_CHECK(ret == 1 || ret == -1, "API hook %d", ret);
	if (ret == -1) {
		/* The slot is empty: nothing ran. */
		FZ_CHECK(mc.result == 12345, "result written by an empty slot");
		expect_same(skb.get(), s, "empty slot");
		return;
	}
	FZ_CHECK(mc.result == 2 || mc.result == -1, "op %u result %d", id,
		 mc.result);
	int result = mc.result;
	mc.result = before.result;
	FZ_CHECK(!memcmp(&mc, &before, sizeof(mc)), "op %u wrote the record", id);
	if (none) {
		FZ_CHECK(result == -1, "op %u without a frame: %d", id, result);
		return;
	}
	if (id == QUOR_MC_API_VLAN_HANDLE) {
		/* Replication consumes the frame it was given. */
		if (result == 2)
			skb.release();
		return;
	}
	/* The 1:N check gives the frame back as it came; a type-0 switch
	 * tag comes back with zeros behind its value. */
	expect_same(skb.get(), s, "1:N check",
		    (size_t)(skb_mac_header(skb.get()) - skb->head) + 14, 2);
}

void op_driver_hooks(fz::Input &in)
{
	uint8_t which = in.u8() % 3;

	if (which == 0) {
		int idx = (int)(in.u8() % 10) - 1;
		auto *find = multicast_speed_find_entry_hook;
		FZ_CHECK(find, "find hook not installed");
		struct hwnat_flow_entry *e = find(idx);
		s32 got;
		if (e) {	/* read as the driver does, by offset */
			memcpy(&got, (const u8 *)e + QUOR_PEER_FLOW_INDEX, sizeof(got));
			FZ_CHECK(idx > 0 && got == idx,
				 "record %d answered for index %d", got, idx);
		}
		return;
	}
	Bytes f = frame_from(in);
	frames::Skb skb = skb_for(f, headroom_from(in), true);
	FZ_CHECK(skb, "no buffer");
	Snapshot s = snap(skb.get());
	if (which == 1) {
		FZ_CHECK(xpon_igmp_learn_flow_hook, "learn hook not installed");
		xpon_igmp_learn_flow_hook(skb.get());
	} else {
		FZ_CHECK(multicast_hwnat_drop_entry_hook, "drop hook not installed");
		int r = multicast_hwnat_drop_entry_hook(skb.get(), in.u64());
		FZ_CHECK(r == 0 || r == -1, "drop hook %d", r);
	}
	/* The driver keeps its frame. */
	FZ_CHECK(skb->data == s.data && skb->len == s.len, "driver frame moved");
}

void op_control(fz::Input &in)
{
	quor_peer_mc mc{};
	igmp_entry_info e;
	u32 mode;
	u8 b;
	static char names[][8] = { "eth0.1", "eth0.4", "eth0.8", "ux3", "eth0.9" };
	static quor_mc_rx_cb_t cbs[] = { nullptr, fz::fake_rx_cb };

	switch (in.u8() % 9) {
	case 0:
	case 1:
		e = fz::entry_from(in);
		mc.api_function_id = QUOR_MC_API_ENTRY_ADD;
		mc.param.ptr = &e;
		break;
	case 2:
		e = fz::entry_from(in);
		mc.api_function_id = in.flag() ? QUOR_MC_API_ENTRY_DEL
					       : QUOR_MC_API_ENTRY_UPDATE;
		mc.param.ptr = &e;
		break;
	case 3:
		mc.api_function_id = QUOR_MC_API_CLEAR_BY_PORT;
		mc.param.bytes[0] = fz::kNamedPorts[in.u8() % fz::kDevNum];
		break;
	case 4:
		mc.api_function_id = QUOR_MC_API_CLEAR_ALL;
		break;
	case 5:
		mode = in.u8() % 7;
		mc.api_function_id = QUOR_MC_API_SET_FILTER_MODE;
		mc.param.ptr = &mode;
		break;
	case 6:
		b = in.u8() % 3;
		mc.api_function_id = QUOR_MC_API_SET_SNOOPING;
		mc.param.ptr = &b;
		break;
	case 7:
		mc.api_function_id = QUOR_MC_API_SET_PORT_TYPE;
		mc.param.val = in.u8() % 4;
		mc.param2 = names[in.u8() % 5];
		break;
	default:
		mc.api_function_id = QUOR_MC_API_SET_RECV_CB;
		mc.param.ptr = &cbs[in.u8() & 1];
		break;
	}
	int ret = fz::api_call(&mc);
	FZ_CHECK(ret == 1 && (mc.result == 2 || mc.result == -1),
		 "API op %u: hook %d result %d", mc.api_function_id, ret,
		 mc.result);
}

void op_env(fz::Input &in)
{
	static const unsigned long ticks[] = { 1, 250, 1000, 2999, 3000, 3250, 6500 };
	unsigned int i;

	switch (in.u8() % 6) {
	case 0:
	case 1: {
		uint8_t t = in.u8();
		host_jiffies_advance(t < 0xf0 ? ticks[t % 7] : in.u16());
		break;
	}
	case 2:
		i = in.u8() % fz::kDevNum;
		if (fz::dev(i)->registered)
			fz::dev_unregister(i);
		else
			fz::dev_register(i);
		break;
	case 3:
		i = in.u8() % fz::kDevNum;
		fz::dev_set_up(i, !(fz::dev(i)->flags & IFF_UP));
		break;
	case 4:
		fz::driver_install(in.u8());
		fz::driver_choose(in);
		break;
	default:
		fz::driver_choose(in);
		break;
	}
}

// A few entries first, so most frames meet a database.
void prelude(fz::Input &in)
{
	for (unsigned int i = 0, n = in.u8() % 8; i < n; i++) {
		igmp_entry_info e = fz::entry_from(in);
		fz::api(QUOR_MC_API_ENTRY_ADD, &e);
	}
}

void op_one_to_n(fz::Input &in) { op_vlan_api(in, QUOR_MC_API_VLAN_IS_ONE_TO_N); }
void op_handle(fz::Input &in) { op_vlan_api(in, QUOR_MC_API_VLAN_HANDLE); }

} // namespace

FZ_HARNESS(kMaxOps, { op_interval, op_interval, op_interval, op_one_to_n,
		      op_handle, op_driver_hooks, op_control, op_env }, prelude)
