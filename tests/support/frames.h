// Frame builders for data-path tests: Ethernet with stacked tags, PPPoE
// sessions, IPv4 (with options), IPv6 (with a hop-by-hop header), UDP,
// IGMP and MLD, as byte vectors; and socket buffers made from them as the
// network driver offers frames to the module.
#pragma once

#include <arpa/inet.h>	// before plat_os.h, which defines htons() as a macro
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

extern "C" {
#include "plat_os.h"
}

namespace frames {

using Bytes = std::vector<uint8_t>;

struct Tag {
	uint16_t tpid, tci;
};

// "01:00:5e:01:01:01" to 6 bytes.
Bytes mac(const char *text);
// The multicast MAC of an IPv4 (01:00:5E + low 23 bits) or IPv6 group
// (33:33 + last 4 bytes).
Bytes group_mac(const char *group);
// 4 or 16 address bytes, by the presence of a ':'.
Bytes addr(const char *text);

// Destination, source, tags in wire order, EtherType, payload.
Bytes eth(const Bytes &dst, const Bytes &src, const std::vector<Tag> &tags, uint16_t type,
	  const Bytes &payload);
// A PPPoE session header (session id 1) and PPP protocol before @payload;
// the result is the payload of an EtherType 0x8864 frame.
Bytes pppoe(uint16_t ppp_proto, const Bytes &payload);

// IPv4 with header checksum; @options is padded to whole words.
Bytes ipv4(const char *src, const char *dst, uint8_t proto, const Bytes &payload,
	   const Bytes &options = {}, uint8_t ttl = 1);
// IPv6; with @hop_by_hop an 8-byte hop-by-hop header carrying a router
// alert option is put first, and @next goes into it.
Bytes ipv6(const char *src, const char *dst, uint8_t next, const Bytes &payload, bool hop_by_hop = false);
// The IPv4 router alert option (4 bytes).
Bytes router_alert();

// UDP; the checksum is left 0 (no checksum), which IPv4 allows.
Bytes udp(uint16_t sport, uint16_t dport, const Bytes &payload = Bytes(16, 0xab));
// IGMP: queries v2 (8 bytes) or v3 (12 bytes), reports v2 (type 0x16).
// @group "0.0.0.0" makes a general query.
Bytes igmp_query(const char *group, bool v3 = false);
Bytes igmp_report(const char *group);
// MLDv1 messages (ICMPv6 with checksum over the pseudo header): type 130
// query, 131 report.  @group "::" makes a general query.
Bytes mld(uint8_t type, const char *src, const char *dst, const char *group);

// Whole frames for the common cases, untagged unless @tags is given.
Bytes ipv4_udp_frame(const char *src, const char *group, uint16_t sport, uint16_t dport,
		     const std::vector<Tag> &tags = {});
Bytes ipv6_udp_frame(const char *src, const char *group, uint16_t sport,
		     uint16_t dport, const std::vector<Tag> &tags = {},
		     bool hop_by_hop = false);
// An IGMP frame (with router alert) to @dst; a general query goes to
// 224.0.0.1.
Bytes igmp_frame(const Bytes &igmp, const char *dst, const std::vector<Tag> &tags = {});

struct SkbFree {
	void operator()(sk_buff *skb) const { kfree_skb(skb); }
};
using Skb = std::unique_ptr<sk_buff, SkbFree>;

// A socket buffer as the driver hands a received frame over: @headroom
// bytes before the MAC header, the data pointer 14 bytes past the MAC
// header (or at the frame's end when it is shorter) and the buffer
// allocated exactly to the frame's end, so that a read past it is caught
// by AddressSanitizer.
Skb skb_from(const Bytes &frame, unsigned int headroom = 32);

// Readable dump for failure messages ("01 00 5e ...").
std::string hex(const Bytes &b);

} // namespace frames
