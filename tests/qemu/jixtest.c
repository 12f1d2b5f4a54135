// SPDX-License-Identifier: GPL-2.0
/*
 * jixtest: the guest-side helper of the QEMU tests, linked statically.
 * Busybox cannot make veth pairs, receive raw frames or issue arbitrary
 * ioctls; this does, and prints one line per result for the guest script.
 *
 *   jixtest veth NAME PEER            make a veth pair, bring both ends up
 *   jixtest del NAME MAX_MS           delete a link; fail when it takes
 *                                     longer (a leaked device reference
 *                                     makes the kernel wait for ever)
 *   jixtest recv IF PORT MS [CMD...]  listen on IF, run CMD, then expect
 *                                     exactly one test frame of PORT
 *   jixtest ioctl CMD [VALUE]         raw ioctl on /dev/quor_igmp with a
 *                                     4-byte argument
 *   jixtest get PORT CAPACITY ROOM    get-entries (command 6) claiming
 *                                     CAPACITY records with ROOM real ones
 *
 * Exit status 0 means the expected outcome, 1 a failed check, 2 an error
 * of the helper itself.
 */
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/if_link.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <net/ethernet.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "uapi/jix_mc_uapi.h"
#include "jix_probe_frame.h"

#define DEV_PATH "/dev/quor_igmp"

static long now_ms(void)
{
	struct timespec ts;

	clock_gettime(CLOCK_MONOTONIC, &ts);
	return ts.tv_sec * 1000L + ts.tv_nsec / 1000000L;
}

/* ---- rtnetlink ---- */

struct nl_req {
	struct nlmsghdr nh;
	struct ifinfomsg ifi;
	char attrs[512];
};

static struct rtattr *nl_put(struct nlmsghdr *nh, unsigned short type,
			     const void *data, size_t len)
{
	struct rtattr *rta = (struct rtattr *)((char *)nh + NLMSG_ALIGN(nh->nlmsg_len));

	rta->rta_type = type;
	rta->rta_len = RTA_LENGTH(len);
	if (len)
		memcpy(RTA_DATA(rta), data, len);
	nh->nlmsg_len = NLMSG_ALIGN(nh->nlmsg_len) + RTA_ALIGN(rta->rta_len);
	return rta;
}

static void nl_end(struct nlmsghdr *nh, struct rtattr *nest)
{
	nest->rta_len = (unsigned short)((char *)nh + nh->nlmsg_len - (char *)nest);
}

/* Send one request and wait for its acknowledgement; returns -errno. */
static int nl_talk(struct nlmsghdr *nh)
{
	char buf[4096];
	int fd, ret;
	ssize_t n;

	fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
	if (fd < 0)
		return -errno;
	nh->nlmsg_flags |= NLM_F_REQUEST | NLM_F_ACK;
	if (send(fd, nh, nh->nlmsg_len, 0) < 0) {
		ret = -errno;
		close(fd);
		return ret;
	}
	n = recv(fd, buf, sizeof(buf), 0);
	ret = n < 0 ? -errno : -EPROTO;
	if (n >= (ssize_t)NLMSG_LENGTH(sizeof(struct nlmsgerr))) {
		struct nlmsghdr *r = (struct nlmsghdr *)buf;

		if (r->nlmsg_type == NLMSG_ERROR)
			ret = ((struct nlmsgerr *)NLMSG_DATA(r))->error;
	}
	close(fd);
	return ret;
}

static int link_up(const char *name)
{
	struct ifreq ifr;
	int fd, ret = 0;

	fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
	if (fd < 0)
		return -errno;
	memset(&ifr, 0, sizeof(ifr));
	snprintf(ifr.ifr_name, sizeof(ifr.ifr_name), "%s", name);
	if (ioctl(fd, SIOCGIFFLAGS, &ifr) < 0)
		ret = -errno;
	ifr.ifr_flags |= IFF_UP;
	if (!ret && ioctl(fd, SIOCSIFFLAGS, &ifr) < 0)
		ret = -errno;
	close(fd);
	return ret;
}

static int cmd_veth(const char *name, const char *peer)
{
	struct rtattr *info, *data, *peer_attr;
	struct ifinfomsg peer_ifi;
	struct nl_req req;
	int ret;

	memset(&req, 0, sizeof(req));
	req.nh.nlmsg_len = NLMSG_LENGTH(sizeof(req.ifi));
	req.nh.nlmsg_type = RTM_NEWLINK;
	req.nh.nlmsg_flags = NLM_F_CREATE | NLM_F_EXCL;
	req.ifi.ifi_family = AF_UNSPEC;
	nl_put(&req.nh, IFLA_IFNAME, name, strlen(name) + 1);
	info = nl_put(&req.nh, IFLA_LINKINFO, NULL, 0);
	nl_put(&req.nh, IFLA_INFO_KIND, "veth", 4);
	data = nl_put(&req.nh, IFLA_INFO_DATA, NULL, 0);
	memset(&peer_ifi, 0, sizeof(peer_ifi));
	peer_attr = nl_put(&req.nh, VETH_INFO_PEER, &peer_ifi, sizeof(peer_ifi));
	nl_put(&req.nh, IFLA_IFNAME, peer, strlen(peer) + 1);
	nl_end(&req.nh, peer_attr);
	nl_end(&req.nh, data);
	nl_end(&req.nh, info);

	ret = nl_talk(&req.nh);
	if (!ret)
		ret = link_up(name);
	if (!ret)
		ret = link_up(peer);
	if (ret) {
		printf("veth %s %s: %s\n", name, peer, strerror(-ret));
		return 2;
	}
	return 0;
}

static int cmd_del(const char *name, long max_ms)
{
	long start = now_ms(), took;
	unsigned int idx = if_nametoindex(name);
	int status;
	pid_t pid;

	if (!idx) {
		printf("del %s: no such link\n", name);
		return 2;
	}
	pid = fork();
	if (pid < 0)
		return 2;
	if (pid == 0) {
		struct nl_req req;

		memset(&req, 0, sizeof(req));
		req.nh.nlmsg_len = NLMSG_LENGTH(sizeof(req.ifi));
		req.nh.nlmsg_type = RTM_DELLINK;
		req.ifi.ifi_family = AF_UNSPEC;
		req.ifi.ifi_index = (int)idx;
		_exit(nl_talk(&req.nh) ? 2 : 0);
	}
	/* The kernel waits inside the request while references remain. */
	for (;;) {
		pid_t r = waitpid(pid, &status, WNOHANG);

		took = now_ms() - start;
		if (r == pid)
			break;
		if (took > max_ms) {
			printf("del %s: still waiting after %ld ms\n", name, took);
			return 1;
		}
		usleep(10000);
	}
	if (!WIFEXITED(status) || WEXITSTATUS(status)) {
		printf("del %s: refused\n", name);
		return 2;
	}
	printf("del %s: %ld ms\n", name, took);
	return 0;
}

/* ---- frames ---- */

static int frame_matches(const unsigned char *f, size_t len, unsigned int port)
{
	size_t i;

	if (len != JIX_PROBE_LEN)
		return 0;
	for (i = 0; i < len; i++)
		if (f[i] != jix_probe_frame_byte((unsigned int)i, port))
			return 0;
	return 1;
}

static int run_cmd(char **argv)
{
	int status;
	pid_t pid = fork();

	if (pid < 0)
		return -1;
	if (pid == 0) {
		execvp(argv[0], argv);
		_exit(127);
	}
	if (waitpid(pid, &status, 0) < 0)
		return -1;
	return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/*
 * Bind before running the command, so a frame sent by it cannot be
 * missed; after the first test frame wait a little longer to catch a
 * second copy.
 */
static int cmd_recv(const char *ifname, unsigned int port, long timeout_ms,
		    char **argv)
{
	struct sockaddr_ll sll;
	unsigned char buf[4096];
	int fd, good = 0, bad = 0;
	long deadline;

	fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
	if (fd < 0) {
		perror("socket");
		return 2;
	}
	memset(&sll, 0, sizeof(sll));
	sll.sll_family = AF_PACKET;
	sll.sll_protocol = htons(ETH_P_ALL);
	sll.sll_ifindex = (int)if_nametoindex(ifname);
	if (!sll.sll_ifindex || bind(fd, (struct sockaddr *)&sll, sizeof(sll)) < 0) {
		printf("RX %s: cannot bind\n", ifname);
		return 2;
	}
	if (argv[0] && run_cmd(argv) != 0)
		printf("RX %s: command %s failed\n", ifname, argv[0]);

	deadline = now_ms() + timeout_ms;
	for (;;) {
		long left = deadline - now_ms();
		struct pollfd pfd = { .fd = fd, .events = POLLIN };
		ssize_t n;

		if (left <= 0 || poll(&pfd, 1, (int)left) <= 0)
			break;
		n = recv(fd, buf, sizeof(buf), MSG_DONTWAIT);
		if (n < 14 || buf[12] != (JIX_PROBE_ETHERTYPE >> 8) ||
		    buf[13] != (JIX_PROBE_ETHERTYPE & 0xff))
			continue;
		if (frame_matches(buf, (size_t)n, port)) {
			if (!good++ && deadline > now_ms() + 300)
				deadline = now_ms() + 300;
		} else {
			bad++;
			printf("RX %s: unexpected test frame, len=%zd\n", ifname, n);
		}
	}
	close(fd);
	printf("RX %s frames=%d bad=%d\n", ifname, good, bad);
	return good == 1 && !bad ? 0 : 1;
}

/* ---- ioctl ---- */

static int open_dev(void)
{
	int fd = open(DEV_PATH, O_RDWR);

	if (fd < 0)
		printf("%s: %s\n", DEV_PATH, strerror(errno));
	return fd;
}

static int cmd_ioctl(unsigned int cmd, unsigned int value)
{
	unsigned int arg = value;
	int fd = open_dev();
	long ret;

	if (fd < 0)
		return 2;
	errno = 0;
	ret = ioctl(fd, cmd, &arg);
	printf("ret=%ld errno=%d out=0x%08x\n", ret, ret < 0 ? errno : 0, arg);
	close(fd);
	return 0;
}

static int cmd_get(unsigned int port, int capacity, unsigned int room)
{
	struct igmp_entry_info *recs;
	struct igmp_entry_get_req req;
	int fd = open_dev();
	long ret;

	if (fd < 0)
		return 2;
	recs = calloc(room + 1, sizeof(*recs));
	if (!recs)
		return 2;
	memset(recs, 0xa5, (room + 1) * sizeof(*recs));
	memset(&req, 0, sizeof(req));
	req.port_id = (__u8)port;
	req.entry_num = capacity;
	req.entries = recs;
	ret = ioctl(fd, QUOR_IGMP_IOC_GET_ENTRY, &req);
	/* The record after the room must stay untouched. */
	printf("ret=%ld entry_num=%d guard=%s\n", ret, req.entry_num,
	       recs[room].port == 0xa5 && recs[room].inner_tci == 0xa5a5 ? "ok" : "overwritten");
	free(recs);
	close(fd);
	return 0;
}

static int usage(void)
{
	fprintf(stderr, "usage: jixtest veth NAME PEER | del NAME MAX_MS | "
		"recv IF PORT MS [CMD...] | ioctl CMD [VALUE] | get PORT CAP ROOM\n");
	return 2;
}

int main(int argc, char **argv)
{
	if (argc < 2)
		return usage();
	if (!strcmp(argv[1], "veth") && argc == 4)
		return cmd_veth(argv[2], argv[3]);
	if (!strcmp(argv[1], "del") && argc == 4)
		return cmd_del(argv[2], strtol(argv[3], NULL, 0));
	if (!strcmp(argv[1], "recv") && argc >= 5)
		return cmd_recv(argv[2], (unsigned int)strtoul(argv[3], NULL, 0),
				strtol(argv[4], NULL, 0), argv + 5);
	if (!strcmp(argv[1], "ioctl") && (argc == 3 || argc == 4))
		return cmd_ioctl((unsigned int)strtoul(argv[2], NULL, 0),
				 argc == 4 ? (unsigned int)strtoul(argv[3], NULL, 0) : 0xa5a5a5a5u);
	if (!strcmp(argv[1], "get") && argc == 5)
		return cmd_get((unsigned int)strtoul(argv[2], NULL, 0),
			       (int)strtol(argv[3], NULL, 0),
			       (unsigned int)strtoul(argv[4], NULL, 0));
	return usage();
}
