// Any bytes and any lengths written to every file under /proc/kv7730/,
// and reads at any offset and count, over a database of up to a few
// hundred entries (so listings run over several pages).
//
// The user buffer of a write is exactly as long as the bytes given; a
// count beyond it is only legal when the file refuses the count without
// reading (-22), so an over-read is caught.  Checks: a write answers the
// count, -22 for a count the file refuses, -14 when the user bytes cannot
// be read, and a refused or faulted write changes no file's text; a read
// at (offset, count) gives exactly those bytes of the whole text, and the
// whole text is the same whatever the size of the reads that fetch it.
#include "fuzz/fuzz_support.h"

#include <cstring>

using frames::Bytes;

namespace {

constexpr unsigned int kMaxOps = 32;

struct File {
	const char *name;
	long max_count;		/* longest write accepted; -1: not writable */
};

const File kFiles[] = {
	{ "kv7730/jix_mc_fwd_entry", 255 },
	{ "kv7730/jix_mc_debug", 31 },
	{ "kv7730/jix_mc_port_type", 63 },
	{ "kv7730/jix_mc_hwnat_entry", -1 },
	{ "kv7730/jix_mc_acnt_mapping", -1 },
};
constexpr unsigned int kFileNum = sizeof(kFiles) / sizeof(kFiles[0]);

const char *const kCommands[] = {
	"add ipv4 239.1.1.1 01:00:5e:01:01:01 1 100 0 8100 0064 8100 0fff",
	"add ipv6 ff0e:0:0:0:0:0:0:1 33:33:00:00:00:01 16 -1 4 88a8 e00a 8100 0001",
	"del ipv4 239.1.1.1 01:00:5e:01:01:01 1 100 0 0 0 0 0",
	"update ipv4 239.1.1.1 01:00:5e:01:01:01 1 100 3 0 0 0 0",
	"del_by_port 1",
	"del_all",
	"filter_mode 5",
	"snooping 0",
	"add ipv4x 1.2.3.4 1:2:3:4:5:6",
	"add",
	"3",
	"0",
	"eth0.2 2",
	"eth0.9 1",
	"ux0 2",
};
constexpr unsigned int kCommandNum = sizeof(kCommands) / sizeof(kCommands[0]);

std::string whole(const char *name)
{
	return host_proc_read_all(name, 4096);
}

struct Texts {
	std::string t[kFileNum];
	bool operator==(const Texts &o) const
	{
		for (unsigned int i = 0; i < kFileNum; i++)
			if (t[i] != o.t[i])
				return false;
		return true;
	}
};

Texts all_texts()
{
	Texts x;

	for (unsigned int i = 0; i < kFileNum; i++)
		x.t[i] = whole(kFiles[i].name);
	return x;
}

void populate(fz::Input &in)
{
	unsigned int n = in.u8();

	n = n < 0xc0 ? n % 8 : (n - 0xc0) * 2;	/* up to 126 entries, 3 pages */
	for (unsigned int i = 0; i < n; i++) {
		igmp_entry_info e{};
		e.port = fz::kNamedPorts[i % fz::kDevNum];
		e.vlan = (s16)(i % 3 ? 100 + i : -1);
		if (i % 5 == 4) {
			frames::Bytes a = frames::addr("ff0e::1");
			memcpy(e.grp_ip.addr, a.data(), 16);
			e.grp_ip.addr[14] = (u8)(i >> 8);
			e.grp_ip.addr[15] = (u8)i;
			e.grp_ip.isipv6 = 1;
		} else {
			e.grp_ip.addr[0] = 239;
			e.grp_ip.addr[1] = 1;
			e.grp_ip.addr[2] = (u8)(i >> 8);
			e.grp_ip.addr[3] = (u8)i;
		}
		e.grp_mac[0] = 0x01;
		e.grp_mac[5] = (u8)i;
		e.vlan_mode = i % 6;
		fz::api(QUOR_MC_API_ENTRY_ADD, &e);
	}
}

Bytes text_from(fz::Input &in)
{
	uint8_t how = in.u8();
	Bytes b;

	if (how < 0x80) {
		const char *c = kCommands[how % kCommandNum];
		b.assign(c, c + strlen(c));
		if (how & 0x40)
			b.push_back('\n');
		unsigned int muts = in.u8() % 4;
		for (unsigned int i = 0; i < muts && !b.empty(); i++)
			b[in.u16() % b.size()] = in.u8();
		if (in.u8() >= 0xe0)
			b.insert(b.end(), in.u8() % 200 + 1, (uint8_t)('0' + in.u8() % 75));
		return b;
	}
	return in.bytes(300);
}

void op_write(fz::Input &in)
{
	const File &f = kFiles[in.u8() % kFileNum];
	Bytes text = text_from(in);
	uint8_t how = in.u8();
	size_t count = text.size();
	bool oversize = false;

	if (how >= 0xe0) {
		/* A count the buffer does not back: must be refused unread. */
		count = (size_t)f.max_count + 1 + in.u16();
		oversize = true;
	}
	/* Exactly the bytes given, so any read past them is caught. */
	char *buf = new char[text.size() ? text.size() : 1];
	if (!text.empty())
		memcpy(buf, text.data(), text.size());
	Texts before = all_texts();
	unsigned long level = quor_mc_debug_level;
	size_t fault_at = text.size();
	if (how >= 0xc0 && how < 0xe0 && !text.empty()) {
		fault_at = in.u16() % text.size();
		host_uaccess_add_fault(buf + fault_at, text.size() - fault_at);
	}

	long r = host_proc_write(f.name, buf, count);

	host_uaccess_clear_faults();
	delete[] buf;
	long want;
	if (f.max_count < 0)
		want = -EIO;
	else if (oversize || (long)count > f.max_count)
		want = -EINVAL;
	else if (fault_at < count)
		want = -EFAULT;
	else
		want = (long)count;
	FZ_CHECK(r == want, "write of %zu bytes to %s: %ld, want %ld", count,
		 f.name, r, want);
	if (r < 0) {
		FZ_CHECK(all_texts() == before && quor_mc_debug_level == level,
			 "refused write to %s changed state", f.name);
	}
	/* Keep the traces from drowning the run. */
	if (quor_mc_debug_level > 1)
		quor_mc_debug_level = level > 1 ? 1 : level;
}

void op_read(fz::Input &in)
{
	const File &f = kFiles[in.u8() % kFileNum];
	std::string text = whole(f.name);
	uint8_t how = in.u8();
	size_t count = how < 0x80 ? in.u16() % 5000 : in.u16();
	off_t off = how & 1 ? (off_t)(in.u16() % (text.size() + 2))
			    : (off_t)in.u32() % 70000;
	std::vector<char> buf(count ? count : 1);

	long r = host_proc_read(f.name, buf.data(), count, off);
	FZ_CHECK(r >= 0, "read of %s at %ld: %ld", f.name, (long)off, r);
	std::string want = (size_t)off < text.size() ? text.substr(off, count) : "";
	FZ_CHECK((size_t)r == want.size() && !memcmp(buf.data(), want.data(), r),
		 "read of %s at %ld count %zu: %ld bytes, want %zu", f.name,
		 (long)off, count, r, want.size());
}

void op_chunks(fz::Input &in)
{
	const File &f = kFiles[in.u8() % kFileNum];
	size_t chunk = in.u16() % 5000 + 1;
	std::string a = whole(f.name);

	/* Each read composes the text up to its window: keep to a few
	 * hundred reads so long listings stay fast. */
	if (a.size() / chunk > 300)
		chunk = a.size() / 300 + 1;
	std::string b = host_proc_read_all(f.name, chunk);

	FZ_CHECK(a == b, "%s read in chunks of %zu: %zu bytes, whole %zu", f.name,
		 chunk, b.size(), a.size());
	if (f.name == kFiles[1].name) {
		char lvl[32];
		snprintf(lvl, sizeof(lvl), "%lu\n", quor_mc_debug_level);
		FZ_CHECK(a == lvl, "debug file says %s", a.c_str());
	}
}

} // namespace

FZ_HARNESS(kMaxOps, { op_write, op_write, op_read, op_chunks }, populate)
