// Frame builders for data-path tests.
#include "support/frames.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace frames {

namespace {

Bytes be16(unsigned v) { return { (uint8_t)(v >> 8), (uint8_t)v }; }
Bytes cat(std::initializer_list<Bytes> parts)
{
	Bytes b;
	for (const Bytes &p : parts) b.insert(b.end(), p.begin(), p.end());
	return b;
}

// Internet checksum over @b, starting from @sum, stored at @off.
void csum(Bytes &b, size_t off, uint32_t sum = 0)
{
	for (size_t i = 0; i < b.size(); i += 2)
		sum += (uint32_t)(b[i] << 8) | (i + 1 < b.size() ? b[i + 1] : 0);
	while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
	b[off] = (uint8_t)(~sum >> 8), b[off + 1] = (uint8_t)~sum;
}

} // namespace

Bytes mac(const char *text)
{
	unsigned int m[6];
	if (sscanf(text, "%x:%x:%x:%x:%x:%x", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5]) != 6)
		throw std::invalid_argument(text);
	return Bytes(m, m + 6);
}

Bytes addr(const char *text)
{
	Bytes a(strchr(text, ':') ? 16 : 4);
	if (inet_pton(a.size() == 16 ? AF_INET6 : AF_INET, text, a.data()) != 1)
		throw std::invalid_argument(text);
	return a;
}

Bytes group_mac(const char *group)
{
	Bytes a = addr(group);
	if (a.size() == 4) return { 0x01, 0x00, 0x5e, (uint8_t)(a[1] & 0x7f), a[2], a[3] };
	return { 0x33, 0x33, a[12], a[13], a[14], a[15] };
}

Bytes eth(const Bytes &dst, const Bytes &src, const std::vector<Tag> &tags, uint16_t type,
	  const Bytes &payload)
{
	Bytes b = cat({ dst, src });
	for (const Tag &t : tags) b = cat({ b, be16(t.tpid), be16(t.tci) });
	return cat({ b, be16(type), payload });
}

// Version/type, code, session 1, length, PPP protocol.
Bytes pppoe(uint16_t ppp_proto, const Bytes &payload)
{
	return cat({ { 0x11, 0x00, 0x00, 0x01 }, be16(payload.size() + 2), be16(ppp_proto), payload });
}

Bytes router_alert() { return { 0x94, 0x04, 0x00, 0x00 }; }

// Identification 0x1234, don't fragment; options end with zeros.
Bytes ipv4(const char *src, const char *dst, uint8_t proto, const Bytes &payload,
	   const Bytes &options, uint8_t ttl)
{
	Bytes opt = options;
	opt.resize((opt.size() + 3) / 4 * 4, 0);
	Bytes b = cat({ { (uint8_t)(0x45 + opt.size() / 4), 0 }, be16(20 + opt.size() + payload.size()),
			{ 0x12, 0x34, 0x40, 0x00, ttl, proto, 0, 0 }, addr(src), addr(dst), opt });
	csum(b, 10);
	return cat({ b, payload });
}

// The hop-by-hop header: next header, length 0 (8 bytes), router alert
// (MLD), PadN.  Hop limit 1.
Bytes ipv6(const char *src, const char *dst, uint8_t next, const Bytes &payload, bool hop_by_hop)
{
	Bytes ext = hop_by_hop ? Bytes{ next, 0, 0x05, 0x02, 0x00, 0x00, 0x01, 0x00 } : Bytes();
	return cat({ { 0x60, 0, 0, 0 }, be16(ext.size() + payload.size()),
		     { hop_by_hop ? (uint8_t)0 : next, 1 }, addr(src), addr(dst), ext, payload });
}

Bytes udp(uint16_t sport, uint16_t dport, const Bytes &payload)
{
	return cat({ be16(sport), be16(dport), be16(8 + payload.size()), { 0, 0 }, payload });
}

// Max response 10 s; a v3 query adds QRV 2, QQIC 125 and no sources.
static Bytes igmp(uint8_t type, uint8_t max_resp, const char *group, bool v3)
{
	Bytes b = cat({ { type, max_resp, 0, 0 }, addr(group), v3 ? Bytes{ 0x02, 125, 0, 0 } : Bytes() });
	csum(b, 2);
	return b;
}

Bytes igmp_query(const char *group, bool v3) { return igmp(0x11, 100, group, v3); }
Bytes igmp_report(const char *group) { return igmp(0x16, 0, group, false); }

// Max delay 10 s; the checksum covers the pseudo header.
Bytes mld(uint8_t type, const char *src, const char *dst, const char *group)
{
	Bytes b = cat({ { type, 0, 0, 0, 0x27, 0x10, 0, 0 }, addr(group) });
	Bytes pseudo = cat({ addr(src), addr(dst) });
	uint32_t sum = (uint32_t)b.size() + 58;	// upper-layer length, next header
	for (size_t i = 0; i < pseudo.size(); i += 2) sum += (uint32_t)(pseudo[i] << 8 | pseudo[i + 1]);
	csum(b, 2, sum);
	return b;
}

Bytes ipv4_udp_frame(const char *src, const char *group, uint16_t sport, uint16_t dport,
		     const std::vector<Tag> &tags)
{
	return eth(group_mac(group), mac("00:11:22:33:44:55"), tags, 0x0800,
		   ipv4(src, group, 17, udp(sport, dport)));
}

Bytes ipv6_udp_frame(const char *src, const char *group, uint16_t sport, uint16_t dport,
		     const std::vector<Tag> &tags, bool hop_by_hop)
{
	return eth(group_mac(group), mac("00:11:22:33:44:55"), tags, 0x86dd,
		   ipv6(src, group, 17, udp(sport, dport), hop_by_hop));
}

Bytes igmp_frame(const Bytes &igmp, const char *dst, const std::vector<Tag> &tags)
{
	return eth(group_mac(dst), mac("00:11:22:33:44:66"), tags, 0x0800,
		   ipv4("192.168.1.1", dst, 2, igmp, router_alert()));
}

Skb skb_from(const Bytes &frame, unsigned int headroom)
{
	sk_buff *skb = alloc_skb(headroom + (unsigned int)frame.size(), GFP_ATOMIC);
	if (!skb) return Skb();
	skb_reserve(skb, (int)headroom);
	if (!frame.empty()) memcpy(skb_put(skb, (unsigned int)frame.size()), frame.data(), frame.size());
	skb_reset_mac_header(skb);
	skb_pull(skb, frame.size() < ETH_HLEN ? (unsigned int)frame.size() : ETH_HLEN);
	return Skb(skb);
}

std::string hex(const Bytes &b)
{
	std::string s;
	char x[4];
	for (size_t i = 0; i < b.size(); i++) snprintf(x, sizeof(x), i ? " %02x" : "%02x", b[i]), s += x;
	return s;
}

} // namespace frames
