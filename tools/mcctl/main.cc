// mcctl: talks to the module through /dev/quor_igmp and its debug file.
#include "mcctl.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace mcctl;

namespace {

const unsigned kMaxPort = 33;

int fail(int code, const std::string &msg)
{
	fprintf(stderr, "mcctl: %s\n", msg.c_str());
	return code;
}

int refused(const char *what)
{
	return fail(EXIT_REFUSED, std::string(what) + " refused by the module" +
			     (errno ? std::string(" (") + strerror(errno) + ")" : ""));
}

// Entries of one port.  Each call reads and resets the port's software
// counters, so when the capacity must grow the software part of the first
// answer is kept and the entries' part taken from the last one.
bool get_port(int fd, unsigned port, PortListing &out)
{
	std::vector<igmp_entry_info> recs(64);
	uint32_t sw_pkts = 0;
	uint64_t sw_bytes = 0;

	for (bool first = true;; first = false) {
		igmp_entry_get_req req{};
		req.port_id = (uint8_t)port;
		req.entry_num = (int32_t)recs.size();
		req.entries = recs.data();
		long n = ioctl(fd, QUOR_IGMP_IOC_GET_ENTRY, &req);
		if (n < 0)
			return false;
		uint32_t pkts = 0;
		uint64_t bytes = 0;
		for (long i = 0; i < n; i++) {
			pkts += recs[i].pkt_acnt;
			bytes += recs[i].byte_acnt;
		}
		if (first) {
			sw_pkts = req.total_pkts - pkts;
			sw_bytes = req.total_bytes - bytes;
		}
		if ((size_t)n < recs.size()) {
			out.port = port;
			out.entries.assign(recs.begin(), recs.begin() + n);
			out.total_pkts = pkts + sw_pkts;
			out.total_bytes = bytes + sw_bytes;
			return true;
		}
		recs.resize(recs.size() * 4);
	}
}

int do_show(int fd, const Command &c)
{
	std::vector<PortListing> ports;

	for (unsigned p = 0; p <= kMaxPort; p++) {
		if (c.port && *c.port != p)
			continue;
		PortListing l{};
		if (!get_port(fd, p, l))
			return refused("get entries");
		ports.push_back(l);
	}
	fputs((c.json ? format_json(ports) : format_table(ports)).c_str(), stdout);
	return EXIT_OK;
}

int do_clear(int fd, const Command &c)
{
	if (c.port) {
		uint8_t p = (uint8_t)*c.port;
		return ioctl(fd, QUOR_IGMP_IOC_CLEAR_BY_PORT, &p) < 0 ? refused("clear") : EXIT_OK;
	}
	return ioctl(fd, QUOR_IGMP_IOC_CLEAR_ALL, 0) < 0 ? refused("clear") : EXIT_OK;
}

int do_filter(int fd, const Command &c)
{
	uint32_t mode = c.value.value_or(0);

	if (c.value)
		return ioctl(fd, QUOR_IGMP_IOC_SET_FILTER_MODE, &mode) < 0 ? refused("filter-mode") : EXIT_OK;
	if (ioctl(fd, QUOR_IGMP_IOC_GET_FILTER_MODE, &mode) < 0)
		return refused("filter-mode");
	printf("%u\n", mode);
	return EXIT_OK;
}

int do_snooping(int fd, const Command &c)
{
	uint8_t on = (uint8_t)c.value.value_or(0);

	if (c.value)
		return ioctl(fd, QUOR_IGMP_IOC_SET_SNOOPING, &on) < 0 ? refused("snooping") : EXIT_OK;
	if (ioctl(fd, QUOR_IGMP_IOC_GET_SNOOPING, &on) < 0)
		return refused("snooping");
	printf("%s\n", on ? "on" : "off");
	return EXIT_OK;
}

int do_debug(const Command &c)
{
	FILE *f = fopen(c.debug_file.c_str(), c.value ? "w" : "r");
	if (!f)
		return fail(EXIT_NO_DEVICE, c.debug_file + ": " + strerror(errno));
	int rc = EXIT_OK;
	if (c.value) {
		if (fprintf(f, "%u\n", *c.value) < 0 || fflush(f))
			rc = refused("debug");
	} else {
		char buf[64] = "";
		if (!fgets(buf, sizeof(buf), f))
			rc = refused("debug");
		fputs(buf, stdout);
	}
	fclose(f);
	return rc;
}

int do_del(const Command &c)
{
	FILE *f = fopen(c.fwd_file.c_str(), "w");
	if (!f)
		return fail(EXIT_NO_DEVICE, c.fwd_file + ": " + strerror(errno) +
				     " (is jix_xpon_multicast loaded?)");
	std::string line = proc_del_line(c.entry);
	int rc = EXIT_OK;
	if (fputs(line.c_str(), f) < 0 || fflush(f))
		rc = refused("del");
	if (fclose(f) && rc == EXIT_OK)
		rc = refused("del");
	return rc;
}

int run(const Command &c)
{
	if (c.op == Op::Debug)
		return do_debug(c);
	if (c.op == Op::Del)
		return do_del(c);
	int fd = open(c.dev.c_str(), O_RDWR);
	if (fd < 0)
		return fail(EXIT_NO_DEVICE, c.dev + ": " + strerror(errno) +
				     " (is jix_xpon_multicast loaded, and a node for major 253 made?)");
	int rc = EXIT_OK;
	errno = 0;
	switch (c.op) {
	case Op::Add:
	case Op::Del:
	case Op::Update: {
		unsigned cmd = c.op == Op::Add ? QUOR_IGMP_IOC_ADD_ENTRY :
			       c.op == Op::Del ? QUOR_IGMP_IOC_DEL_ENTRY : QUOR_IGMP_IOC_UPDATE_ENTRY;
		igmp_entry_info e = c.entry;
		if (ioctl(fd, cmd, &e) < 0)
			rc = refused(c.op == Op::Add ? "add" : c.op == Op::Del ? "del" : "update");
		break;
	}
	case Op::Show:
		rc = do_show(fd, c);
		break;
	case Op::Clear:
		rc = do_clear(fd, c);
		break;
	case Op::FilterMode:
		rc = do_filter(fd, c);
		break;
	case Op::Snooping:
		rc = do_snooping(fd, c);
		break;
	default:
		break;
	}
	close(fd);
	return rc;
}

} // namespace

int main(int argc, char **argv)
{
	std::vector<std::string> args(argv + 1, argv + argc);
	Command c;
	std::string err;

	if (!parse(args, c, err)) {
		fprintf(stderr, "mcctl: %s\n%s", err.c_str(), usage().c_str());
		return EXIT_USAGE;
	}
	if (c.op == Op::Help) {
		fputs(usage().c_str(), stdout);
		return EXIT_OK;
	}
	return run(c);
}
