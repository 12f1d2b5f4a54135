// Any mc_data record through the control API hook.
//
// The API is a contract between kernel modules, so a caller is trusted to
// make the pointer fields an operation reads valid; which those are:
//
//   op 0      param: NULL, or a location holding the callback (or NULL)
//   op 1      param2: the frame bytes, param3 long (NULL with length 0)
//   ops 2, 3  skb: NULL, or a socket buffer, data at its MAC header
//   ops 4-6   param: NULL, or one igmp_entry_info
//   op 9      param: NULL, or one igmp_entry_get_req whose entries point
//             to room for entry_num records (when entry_num > 0)
//   ops 10,11 param: NULL, or one u32
//   ops 12,13 param: NULL, or one u8
//   op 14     param2: NULL, or a NUL-terminated name
//
// Everything else in the record (the inline values, the reserved bytes,
// and the pointer fields an operation does not read) is left as the
// input's bytes, pointer fields a poisoned address that crashes if
// followed.  Each object a valid pointer names is exactly its own size,
// so an access past it is caught.  Checks: the hook answers 1 with result
// 2 or -1 for every filled slot, -1 with the result untouched otherwise;
// no byte of the record but the result changes; read-back operations
// answer the state; a transmitted frame reaches its port's device intact.
#include "fuzz/fuzz_support.h"

#include <cstring>
#include <memory>

using frames::Bytes;

namespace {

constexpr unsigned int kMaxOps = 32;

void *poison(fz::Input &in)
{
	return (void *)(uintptr_t)(0xdead000000000000ULL | (in.u16() << 4));
}

// Objects the record's pointers name, freed after the call.
struct Owned {
	std::vector<std::unique_ptr<uint8_t[]>> bufs;
	frames::Skb skb;

	uint8_t *buf(size_t n)
	{
		bufs.emplace_back(new uint8_t[n ? n : 1]());
		return bufs.back().get();
	}
};

void op_api(fz::Input &in)
{
	Owned own;
	quor_peer_mc mc;
	in.fill(&mc, sizeof(mc));
	uint8_t idb = in.u8();
	mc.api_function_id = idb < 0xf0 ? idb % 16 : in.u32();
	mc.skb = (sk_buff *)poison(in);
	mc.param2 = poison(in);
	bool null = in.u8() >= 0xe0;
	u32 id = mc.api_function_id;
	quor_mc_rx_cb_t cb_val = nullptr;
	u32 xmit_len = 0;
	uint8_t *xmit_bytes = nullptr;

	switch (id) {
	case 0: {
		auto *slot = (quor_mc_rx_cb_t *)own.buf(sizeof(quor_mc_rx_cb_t));
		cb_val = in.flag() ? fz::fake_rx_cb : nullptr;
		*slot = cb_val;
		mc.param.ptr = null ? nullptr : slot;
		break;
	}
	case 1: {
		Bytes f = in.bytes(2100);
		if (in.u8() >= 0xf0) {
			mc.param2 = nullptr;
			mc.param3 = in.u8() & 1 ? 0 : in.u32();
		} else {
			xmit_bytes = own.buf(f.size());
			if (!f.empty())
				memcpy(xmit_bytes, f.data(), f.size());
			mc.param2 = xmit_bytes;
			mc.param3 = (u32)f.size();
		}
		xmit_len = mc.param3;
		break;
	}
	case 2:
	case 3: {
		Bytes f = in.bytes(600);
		unsigned int head = in.u8() % 64;
		sk_buff *skb = alloc_skb(head + (unsigned int)f.size(), GFP_ATOMIC);
		FZ_CHECK(skb, "no buffer");
		skb_reserve(skb, (int)head);
		if (!f.empty())
			memcpy(skb_put(skb, (unsigned int)f.size()), f.data(), f.size());
		skb_reset_mac_header(skb);
		own.skb.reset(skb);
		mc.skb = null ? nullptr : skb;
		break;
	}
	case 4:
	case 5:
	case 6: {
		auto *e = (igmp_entry_info *)own.buf(sizeof(igmp_entry_info));
		*e = fz::entry_from(in);
		mc.param.ptr = null ? nullptr : e;
		break;
	}
	case 9: {
		auto *r = (igmp_entry_get_req *)own.buf(sizeof(igmp_entry_get_req));
		in.fill(r, sizeof(*r));
		r->port_id = fz::kNamedPorts[r->port_id % fz::kDevNum];
		if (r->entry_num > 0)
			r->entry_num %= 40;
		r->entries = r->entry_num > 0 ?
			(igmp_entry_info *)own.buf(r->entry_num * sizeof(igmp_entry_info)) :
			(igmp_entry_info *)poison(in);
		mc.param.ptr = null ? nullptr : r;
		break;
	}
	case 10:
	case 11: {
		auto *m = (u32 *)own.buf(4);
		*m = in.u8() < 0xf0 ? in.u8() % 7 : in.u32();
		mc.param.ptr = null ? nullptr : m;
		break;
	}
	case 12:
	case 13: {
		auto *b = own.buf(1);
		*b = in.u8();
		mc.param.ptr = null ? nullptr : b;
		break;
	}
	case 14: {
		static const char *names[] = { "eth0.1", "eth0.8", "eth0.0", "eth0.",
					       "eth", "ux3", "eth1.5", "" };
		Bytes n;
		uint8_t how = in.u8();
		if (how < 0xc0) {
			const char *s = names[how % 8];
			n.assign(s, s + strlen(s));
		} else {
			n = in.bytes(24);
		}
		char *s = (char *)own.buf(n.size() + 1);
		if (!n.empty())
			memcpy(s, n.data(), n.size());
		s[n.size()] = '\0';
		mc.param2 = null ? nullptr : s;
		uint8_t t = in.u8();
		mc.param.val = t < 0xf0 ? t % 4 : in.u32();
		break;
	}
	default:
		/* 7, 8 and out of range: inline values only. */
		mc.param.ptr = poison(in);
		mc.param.bytes[0] = in.u8() < 0xe0 ? fz::kNamedPorts[in.u8() % fz::kDevNum]
						   : in.u8();
		break;
	}
	/* op 1's port: mostly a row that can have a device. */
	if (id == 1)
		mc.param.bytes[0] = in.u8() < 0xe0 ? fz::kNamedPorts[in.u8() % fz::kDevNum]
						   : in.u8();
	net_device *xdev = id == 1 && mc.param.bytes[0] < JIX_PORT_NUM ?
		lan_map_data[mc.param.bytes[0]].dev : nullptr;
	unsigned int tx0 = xdev ? host_netdev_tx_count(xdev) : 0;
	mc.result = 0x5a5a5a5a;
	quor_peer_mc before = mc;

	int ret = fz::api_call(&mc);

	if (id >= QUOR_MC_API_NUM) {
		FZ_CHECK(ret == -1 && !memcmp(&mc, &before, sizeof(mc)),
			 "op %u out of range: hook %d", id, ret);
		return;
	}
	if (ret == -1) {
		/* An empty slot (1:N operations before they are built). */
		FZ_CHECK(id == 2 || id == 3, "op %u did not run", id);
		FZ_CHECK(!memcmp(&mc, &before, sizeof(mc)), "empty slot wrote");
		return;
	}
	FZ_CHECK(ret == 1, "op %u: hook %d", id, ret);
	int res = mc.result;
	FZ_CHECK(res == 2 || res == -1, "op %u: result %d", id, res);
	mc.result = before.result;
	FZ_CHECK(!memcmp(&mc, &before, sizeof(mc)), "op %u wrote the record", id);
	if (id == 3 && res == 2)
		own.skb.release();	/* replication consumed it */
	if (null && id != 1 && id != 7 && id != 8 && id != 14)
		FZ_CHECK(res == -1, "op %u with a NULL argument: %d", id, res);
	if (res != 2)
		return;
	switch (id) {
	case 0:
		FZ_CHECK(quor_mc_ctrl_packet_rx_cb_func == cb_val, "callback not set");
		break;
	case 1: {
		FZ_CHECK(xdev && xmit_len <= 1984, "sent %u bytes without a device",
			 xmit_len);
		FZ_CHECK(host_netdev_tx_count(xdev) == tx0 + 1, "nothing sent");
		std::vector<unsigned char> got(xmit_len + 1);
		int n = host_netdev_tx_frame(xdev, tx0, got.data(), xmit_len + 1);
		FZ_CHECK(n == (int)xmit_len &&
			 (!n || !memcmp(got.data(), xmit_bytes, (size_t)n)),
			 "port %u sent %d bytes of %u", mc.param.bytes[0], n, xmit_len);
		break;
	}
	case 9: {
		auto *r = (igmp_entry_get_req *)before.param.ptr;
		FZ_CHECK(r->entry_num >= 0 && r->entry_num <= 40, "get wrote %d",
			 r->entry_num);
		break;
	}
	case 10: {
		u32 m = *(u32 *)before.param.ptr;
		if (m <= IGMP_FILTER_MAX)
			FZ_CHECK(igmp_filter_mode == m, "mode %u after %u",
				 igmp_filter_mode, m);
		break;
	}
	case 11:
		FZ_CHECK(*(u32 *)before.param.ptr == igmp_filter_mode, "get mode");
		break;
	case 13:
		FZ_CHECK(*(u8 *)before.param.ptr == (u8)igmp_snooping_enable,
			 "get snooping");
		break;
	case 14:
		FZ_CHECK(before.param.val == 1 || before.param.val == 2,
			 "port type %u accepted", before.param.val);
		break;
	}
}

} // namespace

FZ_HARNESS(kMaxOps, { op_api })
