// The harnesses' seed inputs, written in the input format fuzz_support.cc
// reads: every frame kind the module tells apart, every API operation with
// and without its argument, every ioctl command with its faults, the proc
// commands.  Replayed as a test each; `make fuzz` starts from them.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/fuzz_support.h"
#include "support/frames.h"

extern "C" {
#include "quor_peer.h"
}

using namespace frames;

namespace {

struct Enc {
	Bytes b;
	Enc &u8(unsigned v) { b.push_back((uint8_t)v); return *this; }
	Enc &u16(unsigned v) { return u8(v & 255).u8(v >> 8); }
	Enc &u32(uint32_t v) { return u16(v & 0xffff).u16(v >> 16); }
	Enc &bytes(const Bytes &x) { u16((unsigned)x.size()); return raw(x); }
	Enc &raw(const Bytes &x) { b.insert(b.end(), x.begin(), x.end()); return *this; }
	Enc &zeros(size_t n) { return raw(Bytes(n, 0)); }
	// A record as the control plane fills it: group, port, VID, treatment.
	Enc &entry(unsigned port, const char *grp, int vid = -1, unsigned mode = 0, uint16_t o_tci = 100,
		   uint16_t i_tci = 0, const char *src = "0.0.0.0")
	{
		quor_peer_entry r{};
		Bytes a = addr(grp), m = group_mac(grp), sa = addr(src);
		r.port = (uint8_t)port, r.vlan = (int16_t)vid, r.vlan_mode = mode;
		memcpy(r.grp_ip.addr, a.data(), a.size());
		memcpy(r.src_ip.addr, sa.data(), std::min(sa.size(), a.size()));
		r.grp_ip.isipv6 = r.src_ip.isipv6 = a.size() == 16;
		memcpy(r.grp_mac, m.data(), 6);
		r.outer_tpid = r.inner_tpid = 0x8100, r.outer_tci = o_tci, r.inner_tci = i_tci;
		return raw(Bytes((uint8_t *)&r, (uint8_t *)(&r + 1)));
	}
};

// Every device present and up, all driver hooks answering flow 1 (multicast
// @is_mc, a drop entry), filter mode @mode, snooping on unless @off.
Enc start(unsigned mode = 4, unsigned drv = 0xff, unsigned is_mc = 2, bool off = false, unsigned dbg = 0)
{
	return Enc().u32(~0u).u32(~0u).u8(drv).u8(2).u8(is_mc).u8(2).u8(1).u8(mode).u8(off).u8(dbg);
}

// Five members of 239.1.1.1 and ff0e::1, one of each treatment.
Enc members(Enc e)
{
	e.u8(5).entry(0, "239.1.1.1").entry(1, "239.1.1.1", 100, 4, 100, 0xfff).entry(16, "239.1.1.1", -1, 3);
	return e.entry(2, "ff0e::1").entry(3, "239.1.1.1", 100, 1, 200, 0, "10.0.0.1");
}

Enc &frame(Enc &e, const Bytes &f, unsigned fail = 0) { return e.u8(0).bytes(f).u8(0).u8(0).u8(fail); }
Enc &api(Enc &e, unsigned id, bool null = false) { return e.zeros(88).u8(id).u16(0).u8(null ? 0xf0 : 0); }

std::vector<Bytes> frame_seeds()
{
	const std::vector<Tag> tag = { { 0x8100, 100 } }, qinq = { { 0x88a8, 300 }, { 0x8100, 100 } };
	const Bytes src = mac("00:11:22:33:44:55"), v4 = ipv4_udp_frame("10.0.0.1", "239.1.1.1", 4000, 5004);
	Bytes stag0 = v4, stag1 = v4, short_v4(v4.begin(), v4.begin() + 20);
	stag0.insert(stag0.begin() + 12, { 0x00, 0x01, 0, 0 });
	stag1.insert(stag1.begin() + 12, { 0x10, 0x02, 0, 0 });
	const Bytes kinds[] = {
		v4, ipv4_udp_frame("10.0.0.1", "239.1.1.1", 4000, 5004, tag),
		ipv4_udp_frame("10.0.0.1", "239.1.1.1", 4000, 5004, qinq),
		ipv4_udp_frame("10.0.0.1", "232.0.0.7", 4000, 5004),
		eth(group_mac("239.1.1.1"), src, {}, 0x0800, ipv4("10.0.0.1", "239.1.1.1", 17, udp(4000, 5004), router_alert())),
		ipv6_udp_frame("2001:db8::1", "ff0e::1", 4000, 5004),
		ipv6_udp_frame("2001:db8::1", "ff0e::1", 4000, 5004, tag, true),
		igmp_frame(igmp_query("0.0.0.0"), "224.0.0.1"),
		igmp_frame(igmp_query("239.1.1.1", true), "239.1.1.1", tag),
		igmp_frame(igmp_report("239.1.1.1"), "239.1.1.1"),
		eth(group_mac("ff02::1"), src, {}, 0x86dd, ipv6("fe80::1", "ff02::1", 58, mld(130, "fe80::1", "ff02::1", "::"), true)),
		eth(group_mac("239.1.1.1"), src, {}, 0x8864, pppoe(0x0021, ipv4("10.0.0.1", "239.1.1.1", 17, udp(4000, 5004)))),
		eth(group_mac("ff0e::1"), src, {}, 0x8864, pppoe(0x0057, ipv6("2001:db8::1", "ff0e::1", 17, udp(4000, 5004)))),
		short_v4, Bytes(), stag0, stag1,
	};
	std::vector<Bytes> out;
	for (const Bytes &k : kinds) {	// twice: the flow is known the second time
		Enc e = members(start());
		out.push_back(frame(frame(e, k), k).b);
	}
	for (unsigned k = 0; k < 8; k++) {	// the k-th allocation fails
		Enc e = members(start());
		out.push_back(frame(frame(e, kinds[k % 2], 0xf0 + k), kinds[k % 2], 0xf0 + k).b);
	}
	Enc e = members(start(4, 0xff, 2, true, 0xe4));	// snooping off, frames dumped
	e.u8(0).bytes(v4).u8(0xc5).u8(0).u8(0);		// little headroom
	out.push_back(frame(e, kinds[7]).b);
	e = members(start(4, 0));			// no driver
	out.push_back(frame(frame(e, v4), kinds[3]).b);
	e = members(start(4, 0xff, 3));		// the driver's hooks, a device goes, time
	frame(e, v4).u8(5).u8(2).bytes(v4).u8(0).u32(0).u32(0).u8(1);
	e.u8(5).u8(2).bytes(v4).u8(0).u32(3).u32(0).u8(0).u8(6).u8(2).u8(1);
	frame(e, v4).u8(6).u8(3).u8(0).u8(6).u8(0).u8(0).u8(6).u8(6).u8(4).u8(0).u8(0x0f).u8(4).u8(1).u8(1).u8(1);
	out.push_back(frame(e, kinds[1]).u8(6).u8(2).u8(1).b);
	return out;
}

std::vector<Bytes> api_seeds()
{
	const Bytes v4 = ipv4_udp_frame("10.0.0.1", "239.1.1.1", 4000, 5004);
	Bytes stag = v4;
	stag.insert(stag.begin() + 12, { 0x00, 0x01, 0, 0 });
	std::vector<Bytes> out;
	for (bool null : { false, true }) {
		Enc e = start();
		api(e, 0, null).u8(1);
		api(e, 2, null).bytes(stag).u8(0);
		api(e, 3, null).bytes(ipv4_udp_frame("10.0.0.1", "239.1.1.1", 4000, 5004, { { 0x8100, 100 } })).u8(0);
		api(e, 4, null).entry(0, "239.1.1.1");
		api(e, 4).entry(1, "239.1.1.1", 100, 2, 0xa064);
		api(e, 5, null).entry(0, "239.1.1.1", -1, 3);
		api(e, 9, null).u8(1).zeros(3).u32(8).zeros(24);
		api(e, 6, null).entry(0, "239.1.1.1");
		api(e, 10, null).u8(0).u8(5);
		api(e, 11, null).u8(0).u8(0);
		api(e, 12, null).u8(0).u8(0);
		api(e, 13, null).u8(0).u8(0);
		api(e, 14, null).bytes(Bytes({ 'e', 't', 'h', '0', '.', '8' })).u8(0).u8(2);
		api(e, 7).u8(0);
		out.push_back(api(e, 8).u8(0).b);
	}
	Enc e = start();	// operation 1: sent, empty (once crashed), no bytes, too long
	api(e, 1).bytes(v4).u8(0).u8(0);
	api(e, 1).bytes(Bytes()).u8(0).u8(32);
	api(e, 1).bytes(Bytes()).u8(0xf0).u8(1).u8(0);
	api(e, 1).bytes(v4).u8(0xf0).u8(0).u32(60).u8(0);
	api(e, 1).bytes(Bytes(1985, 0x55)).u8(0).u8(0);
	api(e, 15).u8(0).zeros(88).u8(0xf0).u32(~0u).u16(0).u8(0).u8(0);
	api(e, 14).bytes(Bytes({ 'u', 'x', '3' })).u8(0xf0).u32(1);
	out.push_back(api(e, 14).bytes(Bytes({ 'e', 't', 'h', '0', '.' })).u8(0).u8(1).b);
	return out;
}

// Every command, then each with the record unreadable at 0 and 1 and NULL;
// get-entries claiming any count over any room.
std::vector<Bytes> ioctl_seeds()
{
	auto io = [](Enc &e, unsigned cmd, unsigned where = 0, int bad = -1, unsigned cap = 4,
		     unsigned claim = 4, unsigned ep = 0, uint32_t val = 0, unsigned nomem = 0) {
		e.u8(cmd).u8(where);
		(bad < 0 ? e.u8(0) : e.u8(0xc0).u16(bad)).u8(cap).entry(1, "239.1.1.9");
		if (cmd == 6)
			e.u8(1).u8(claim).u8(ep);
		else if (cmd < 1 || cmd > 3)
			e.u32(val).u32(0);
		e.u8(nomem).u8(0);
	};
	std::vector<Bytes> out;
	for (unsigned cmd = 0; cmd <= 11; cmd++) {
		Enc e = start();
		io(e, 1);
		io(e, cmd, 0, -1, 4, 4, 0, cmd == 7 ? 3 : cmd == 4);
		io(e, cmd, 0, 0);
		io(e, cmd, 0xf9);
		io(e, cmd, 0, 1);
		out.push_back(e.b);
	}
	Enc e = start();
	io(e, 1);
	for (unsigned claim : { 0, 1, 2, 3, 5, 6, 7 })
		io(e, 6, 0, -1, claim == 2 ? 1 : 4, claim);
	io(e, 6, 0, -1, 0, 4, 0xf1);
	io(e, 6, 0, -1, 4, 4, 0, 0, 0xf0);
	io(e, 6, 0, -1, 4, 0, 0, 0, 0xf0);
	out.push_back(e.b);
	return out;
}

// The commands of every proc file, over few and many entries; a write too
// long and writes from partly unreadable memory.
std::vector<Bytes> proc_seeds()
{
	const char *cmds[][2] = {
		{ "0", "add ipv4 239.1.1.1 01:00:5e:01:01:01 1 100 0 8100 0064 8100 0fff" },
		{ "0", "add ipv6 ff0e:0:0:0:0:0:0:1 33:33:00:00:00:01 16 -1 4 88a8 e00a 8100 0001\n" },
		{ "0", "del ipv4 239.1.1.1 01:00:5e:01:01:01 1 100 0 0 0 0 0" },
		{ "0", "update ipv4 239.1.1.1 01:00:5e:01:01:01 1 100 3 0 0 0 0" },
		{ "0", "del_by_port 1" }, { "0", "del_all" }, { "0", "filter_mode 5" },
		{ "0", "snooping 0" }, { "0", "add ipv4x 1.2.3.4 1:2:3:4:5:6" }, { "0", "add" },
		{ "1", "3" }, { "1", "0\n" }, { "2", "eth0.2 2" }, { "2", "eth0.9 1" }, { "2", "ux0 2" },
		{ "3", "x" }, { "4", "x" },
	};
	auto text = [](const char *s) { return Bytes(s, s + strlen(s)); };
	std::vector<Bytes> out;
	for (unsigned populate : { 5, 0xff }) {
		Enc e = start().u8(populate);
		for (auto &c : cmds)
			e.u8(c[0][0] - '0').bytes(text(c[1])).u8(0);
		out.push_back(e.b);
	}
	Enc e = start().u8(3);
	e.u8(0).bytes(text(cmds[0][1])).u8(0xe0).u16(10).u8(1).bytes(text("2")).u8(0xe0).u16(0);
	e.u8(0).bytes(text(cmds[0][1])).u8(0xc0).u16(30).u8(2).bytes(text("eth0.1 1")).u8(0xc0).u16(3);
	out.push_back(e.u8(0).bytes(Bytes(255, 'a')).u8(0).b);
	return out;
}

} // namespace

std::vector<Bytes> fz::seeds(const std::string &harness)
{
	return harness == "fuzz_frames" ? frame_seeds() : harness == "fuzz_api" ? api_seeds() :
	       harness == "fuzz_ioctl" ? ioctl_seeds() : harness == "fuzz_proc" ? proc_seeds() :
	       std::vector<Bytes>();
}
