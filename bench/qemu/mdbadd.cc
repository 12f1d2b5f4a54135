// SPDX-License-Identifier: GPL-2.0
//
// mdbadd BRIDGE GROUP PORT...: adds a permanent IPv4 MDB entry of GROUP
// on each PORT of BRIDGE over rtnetlink (what "bridge mdb add dev BRIDGE
// port PORT grp GROUP permanent" does), for the bridge benchmark guest,
// whose busybox has no "bridge" command.  Exit status 0 when every entry
// was added; otherwise one line per failure on stderr and status 1.

#include <arpa/inet.h>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

struct MdbRequest {
	nlmsghdr hdr;
	br_port_msg port_msg;
	rtattr attr;
	br_mdb_entry entry;
};

// Sends one RTM_NEWMDB request and returns the kernel's answer (0 or -errno).
int AddEntry(int fd, unsigned bridge, unsigned port, in_addr group, unsigned seq)
{
	MdbRequest req;
	std::memset(&req, 0, sizeof(req));
	req.hdr.nlmsg_len = sizeof(req);
	req.hdr.nlmsg_type = RTM_NEWMDB;
	req.hdr.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL;
	req.hdr.nlmsg_seq = seq;
	req.port_msg.family = AF_BRIDGE;
	req.port_msg.ifindex = static_cast<int>(bridge);
	req.attr.rta_type = MDBA_SET_ENTRY;
	req.attr.rta_len = RTA_LENGTH(sizeof(req.entry));
	req.entry.ifindex = port;
	req.entry.state = MDB_PERMANENT;
	req.entry.addr.u.ip4 = group.s_addr;
	req.entry.addr.proto = htons(ETH_P_IP);
	if (send(fd, &req, sizeof(req), 0) != static_cast<ssize_t>(sizeof(req)))
		return -errno;

	alignas(nlmsghdr) char buf[4096];
	ssize_t n = recv(fd, buf, sizeof(buf), 0);
	if (n < 0)
		return -errno;
	auto *ans = reinterpret_cast<nlmsghdr *>(buf);
	if (!NLMSG_OK(ans, static_cast<unsigned>(n)) || ans->nlmsg_type != NLMSG_ERROR)
		return -EPROTO;
	return static_cast<nlmsgerr *>(NLMSG_DATA(ans))->error;
}

}  // namespace

int main(int argc, char **argv)
{
	in_addr group{};
	if (argc < 4 || inet_pton(AF_INET, argv[2], &group) != 1) {
		std::fprintf(stderr, "usage: mdbadd BRIDGE IPV4-GROUP PORT...\n");
		return 2;
	}
	unsigned bridge = if_nametoindex(argv[1]);
	if (!bridge) {
		std::fprintf(stderr, "mdbadd: no device %s\n", argv[1]);
		return 1;
	}
	int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
	if (fd < 0) {
		std::perror("mdbadd: netlink socket");
		return 1;
	}
	int rc = 0;
	for (int i = 3; i < argc; i++) {
		unsigned port = if_nametoindex(argv[i]);
		int err = port ? AddEntry(fd, bridge, port, group, static_cast<unsigned>(i)) : -ENODEV;
		if (err) {
			std::fprintf(stderr, "mdbadd: %s on %s: %s\n", argv[2], argv[i], std::strerror(-err));
			rc = 1;
		}
	}
	close(fd);
	return rc;
}
