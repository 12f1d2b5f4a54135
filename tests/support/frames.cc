// Frame builders for data-path tests.
#include "support/frames.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace frames {

namespace {

void put16(Bytes &b, uint16_t v)
{
	b.push_back(v >> 8);
	b.push_back(v & 0xff);
}

void append(Bytes &b, const Bytes &tail)
{
	b.insert(b.end(), tail.begin(), tail.end());
}

// Internet checksum over @b, starting from @sum.
uint16_t csum(const Bytes &b, uint32_t sum = 0)
{
	for (size_t i = 0; i < b.size(); i += 2)
		sum += (uint32_t)(b[i] << 8) | (i + 1 < b.size() ? b[i + 1] : 0);
	while (sum >> 16)
		sum = (sum & 0xffff) + (sum >> 16);
	return (uint16_t)~sum;
}

void set16(Bytes &b, size_t off, uint16_t v)
{
	b[off] = v >> 8;
	b[off + 1] = v & 0xff;
}

} // namespace

Bytes mac(const char *text)
{
	unsigned int m[6];

	if (sscanf(text, "%x:%x:%x:%x:%x:%x", &m[0], &m[1], &m[2], &m[3], &m[4],
		   &m[5]) != 6)
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

	if (a.size() == 4)
		return { 0x01, 0x00, 0x5e, (uint8_t)(a[1] & 0x7f), a[2], a[3] };
	return { 0x33, 0x33, a[12], a[13], a[14], a[15] };
}

Bytes eth(const Bytes &dst, const Bytes &src, const std::vector<Tag> &tags,
	  uint16_t type, const Bytes &payload)
{
	Bytes b = dst;

	append(b, src);
	for (const Tag &t : tags) {
		put16(b, t.tpid);
		put16(b, t.tci);
	}
	put16(b, type);
	append(b, payload);
	return b;
}

Bytes pppoe(uint16_t ppp_proto, const Bytes &payload)
{
	Bytes b = { 0x11, 0x00, 0x00, 0x01 };	// version/type, code, session

	put16(b, (uint16_t)(payload.size() + 2));
	put16(b, ppp_proto);
	append(b, payload);
	return b;
}

Bytes router_alert()
{
	return { 0x94, 0x04, 0x00, 0x00 };
}

Bytes ipv4(const char *src, const char *dst, uint8_t proto, const Bytes &payload,
	   const Bytes &options, uint8_t ttl)
{
	Bytes opt = options;

	while (opt.size() % 4)
		opt.push_back(0);	// end of options list
	size_t hlen = 20 + opt.size();
	Bytes b = { (uint8_t)(0x40 | hlen / 4), 0 };

	put16(b, (uint16_t)(hlen + payload.size()));
	put16(b, 0x1234);	// identification
	put16(b, 0x4000);	// don't fragment
	b.push_back(ttl);
	b.push_back(proto);
	put16(b, 0);
	append(b, addr(src));
	append(b, addr(dst));
	append(b, opt);
	set16(b, 10, csum(b));
	append(b, payload);
	return b;
}

Bytes ipv6(const char *src, const char *dst, uint8_t next, const Bytes &payload,
	   bool hop_by_hop)
{
	Bytes ext;

	if (hop_by_hop) {
		// Next Header, length 0 (8 bytes), router alert (MLD), PadN.
		ext = { next, 0, 0x05, 0x02, 0x00, 0x00, 0x01, 0x00 };
		next = 0;
	}
	Bytes b = { 0x60, 0, 0, 0 };
	put16(b, (uint16_t)(ext.size() + payload.size()));
	b.push_back(next);
	b.push_back(1);		// hop limit
	append(b, addr(src));
	append(b, addr(dst));
	append(b, ext);
	append(b, payload);
	return b;
}

Bytes udp(uint16_t sport, uint16_t dport, const Bytes &payload)
{
	Bytes b;

	put16(b, sport);
	put16(b, dport);
	put16(b, (uint16_t)(8 + payload.size()));
	put16(b, 0);
	append(b, payload);
	return b;
}

Bytes igmp_query(const char *group, bool v3)
{
	Bytes b = { 0x11, 100, 0, 0 };	// type, max response 10 s

	append(b, addr(group));
	if (v3) {
		b.insert(b.end(), { 0x02, 125, 0, 0 });	// QRV 2, QQIC, no sources
	}
	set16(b, 2, csum(b));
	return b;
}

Bytes igmp_report(const char *group)
{
	Bytes b = { 0x16, 0, 0, 0 };

	append(b, addr(group));
	set16(b, 2, csum(b));
	return b;
}

Bytes mld(uint8_t type, const char *src, const char *dst, const char *group)
{
	Bytes b = { type, 0, 0, 0, 0x27, 0x10, 0, 0 };	// max delay 10 s
	Bytes pseudo = addr(src);

	append(b, addr(group));
	append(pseudo, addr(dst));
	uint32_t sum = 0;
	for (size_t i = 0; i < pseudo.size(); i += 2)
		sum += (uint32_t)(pseudo[i] << 8 | pseudo[i + 1]);
	sum += (uint32_t)b.size() + 58;	// upper-layer length, next header
	set16(b, 2, csum(b, sum));
	return b;
}

Bytes ipv4_udp_frame(const char *src, const char *group, uint16_t sport,
		     uint16_t dport, const std::vector<Tag> &tags)
{
	return eth(group_mac(group), mac("00:11:22:33:44:55"), tags, 0x0800,
		   ipv4(src, group, 17, udp(sport, dport)));
}

Bytes ipv6_udp_frame(const char *src, const char *group, uint16_t sport,
		     uint16_t dport, const std::vector<Tag> &tags, bool hop_by_hop)
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

	if (!skb)
		return Skb();
	skb_reserve(skb, (int)headroom);
	if (!frame.empty())
		memcpy(skb_put(skb, (unsigned int)frame.size()), frame.data(),
		       frame.size());
	skb_reset_mac_header(skb);
	skb_pull(skb, frame.size() < ETH_HLEN ? (unsigned int)frame.size() : ETH_HLEN);
	return Skb(skb);
}

std::string hex(const Bytes &b)
{
	std::string s;
	char x[4];

	for (size_t i = 0; i < b.size(); i++) {
		snprintf(x, sizeof(x), i ? " %02x" : "%02x", b[i]);
		s += x;
	}
	return s;
}

} // namespace frames
