// mcctl: talks to the module through /dev/quor_igmp and its debug file.
#include "mcctl.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
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
			out.sw_pkts = sw_pkts;
			out.sw_bytes = sw_bytes;
			return true;
		}
		recs.resize(recs.size() * 4);
	}
}

bool get_ports(int fd, std::optional<unsigned> only, std::vector<PortListing> &ports)
{
	for (unsigned p = 0; p <= kMaxPort; p++) {
		if (only && *only != p)
			continue;
		PortListing l{};
		if (!get_port(fd, p, l))
			return false;
		ports.push_back(l);
	}
	return true;
}

int do_show(int fd, const Command &c)
{
	std::vector<PortListing> ports;

	if (!get_ports(fd, c.port, ports))
		return refused("get entries");
	fputs((c.json ? format_json(ports) : format_table(ports)).c_str(), stdout);
	return EXIT_OK;
}

bool read_file(const std::string &path, std::string &out)
{
	std::ifstream f(path);
	std::stringstream ss;

	if (!f)
		return false;
	ss << f.rdbuf();
	out = ss.str();
	return true;
}

int no_proc(const std::string &path)
{
	return fail(EXIT_NO_DEVICE, path + ": " + strerror(errno) +
			     " (is jix_xpon_multicast loaded?)");
}

int do_flows(const Command &c)
{
	std::string path = c.proc_dir + "/jix_mc_hwnat_entry", text;

	if (!read_file(path, text))
		return no_proc(path);
	fputs(format_flows(parse_flows(text), c.json).c_str(), stdout);
	return EXIT_OK;
}

int do_ports(int fd, const Command &c)
{
	std::string path = c.proc_dir + "/jix_mc_port_type", text;
	std::vector<PortListing> ports;
	std::vector<PortRow> rows;

	if (!read_file(path, text))
		return no_proc(path);
	std::vector<int> types = parse_port_types(text);
	if (!get_ports(fd, std::nullopt, ports))
		return refused("get entries");
	for (auto &l : ports) {
		std::string name = port_name(l.port);
		if (name.empty())
			continue;
		struct stat st;
		bool dev = stat(("/sys/class/net/" + name).c_str(), &st) == 0;
		rows.push_back({ l.port, l.port < 32 ? types[l.port] : -1, dev, l });
	}
	fputs(format_ports(rows, c.json).c_str(), stdout);
	return EXIT_OK;
}

int do_groups(int fd, const Command &c)
{
	std::string path = c.proc_dir + "/jix_mc_acnt_mapping", text;
	std::vector<PortListing> ports;

	if (!read_file(path, text))
		return no_proc(path);
	if (!get_ports(fd, std::nullopt, ports))
		return refused("get entries");
	fputs(format_groups(parse_groups(text, ports), c.json).c_str(), stdout);
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
	std::string debug_file = c.proc_dir + "/jix_mc_debug";
	FILE *f = fopen(debug_file.c_str(), c.value ? "w" : "r");
	if (!f)
		return fail(EXIT_NO_DEVICE, debug_file + ": " + strerror(errno));
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
	std::string fwd_file = c.proc_dir + "/jix_mc_fwd_entry";
	FILE *f = fopen(fwd_file.c_str(), "w");
	if (!f)
		return fail(EXIT_NO_DEVICE, fwd_file + ": " + strerror(errno) +
				     " (is jix_xpon_multicast loaded?)");
	std::string line = proc_del_line(c.entry);
	int rc = EXIT_OK;
	if (fputs(line.c_str(), f) < 0 || fflush(f))
		rc = refused("del");
	if (fclose(f) && rc == EXIT_OK)
		rc = refused("del");
	return rc;
}

// The major of the quor_igmp device as the kernel has it: the class
// device's dev file, else /proc/devices; 0 when the module is not loaded.
unsigned kernel_major()
{
	std::string text;
	unsigned maj = 0, min = 0;

	if (read_file("/sys/class/quor_igmp/quor_igmp/dev", text) &&
	    sscanf(text.c_str(), "%u:%u", &maj, &min) == 2)
		return maj;
	if (!read_file("/proc/devices", text))
		return 0;
	std::istringstream in(text.substr(0, text.find("\nBlock")));
	std::string line;
	char name[64];
	while (std::getline(in, line))
		if (sscanf(line.c_str(), "%u %63s", &maj, name) == 2 &&
		    strcmp(name, QUOR_IGMP_DEV_NAME) == 0)
			return maj;
	return 0;
}

// Without a usable node at the default path (none made, or one made by
// hand for another major), a private node for the kernel's major is made
// in a fresh temporary directory, opened and removed again.
int open_dev(const Command &c)
{
	struct stat st;
	unsigned maj = 0;

	if (c.dev_given)
		return open(c.dev.c_str(), O_RDWR);
	bool node = stat(c.dev.c_str(), &st) == 0 && S_ISCHR(st.st_mode);
	if (node || errno != ENOENT) {
		maj = kernel_major();
		if (node && (!maj || major(st.st_rdev) == maj))
			return open(c.dev.c_str(), O_RDWR);
	}
	if (!maj && !(maj = kernel_major()))
		return errno = ENOENT, -1;
	const char *tmp = getenv("TMPDIR");
	std::string dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/mcctl.XXXXXX";
	if (!mkdtemp(&dir[0]))
		return -1;
	std::string path = dir + "/" QUOR_IGMP_DEV_NAME;
	int fd = -1;
	if (mknod(path.c_str(), S_IFCHR | 0600, makedev(maj, 0)) == 0) {
		fd = open(path.c_str(), O_RDWR);
		int e = errno;
		unlink(path.c_str());
		errno = e;
	}
	int e = errno;
	rmdir(dir.c_str());
	errno = e;
	return fd;
}

int run(const Command &c)
{
	if (c.op == Op::Debug)
		return do_debug(c);
	if (c.op == Op::Del)
		return do_del(c);
	if (c.op == Op::Flows)
		return do_flows(c);
	int fd = open_dev(c);
	if (fd < 0)
		return fail(EXIT_NO_DEVICE, c.dev + ": " + strerror(errno) +
				     " (is jix_xpon_multicast loaded?)");
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
	case Op::Ports:
		rc = do_ports(fd, c);
		break;
	case Op::Groups:
		rc = do_groups(fd, c);
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
		fprintf(stderr, "mcctl: %s\nTry 'mcctl --help'.\n", err.c_str());
		return EXIT_USAGE;
	}
	if (c.op == Op::Help || c.op == Op::Version) {
		fputs((c.op == Op::Help ? usage() : version()).c_str(), stdout);
		return EXIT_OK;
	}
	return run(c);
}
