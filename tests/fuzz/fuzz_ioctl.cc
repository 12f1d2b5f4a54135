// Any ioctl command with any record through the character device, with
// user pointers that fault: NULL and low addresses, records that run into
// unreadable or unwritable user memory part way, and get-entries arrays
// shorter than the capacity the caller claims.
//
// Checks: unknown commands answer -1; a record that cannot be read
// answers -EFAULT and changes nothing (the forwarding-entry text, filter
// mode and snooping are compared); an answer that cannot be written
// answers -EFAULT; the filter mode and snooping read back as stored;
// get-entries never writes more records than asked for, gives back the
// caller's array pointer and answers only records of the asked port.
#include "fuzz/fuzz_support.h"

#include <cstring>

namespace {

constexpr unsigned int kMaxOps = 32;
constexpr size_t kUserSize = 4096;

// A page of user memory and a guard page behind it that is never the
// user's; the input decides where the unreadable part begins.
struct UserPage {
	uint8_t *p = new uint8_t[2 * kUserSize]();
	~UserPage() { delete[] p; }
};

std::string state()
{
	return std::string(host_proc_read_all("kv7730/jix_mc_fwd_entry", 4096)) +
	       "|" + std::to_string(igmp_filter_mode) + "|" +
	       std::to_string(igmp_snooping_enable);
}

// Bytes a command copies in and out.
size_t size_in(unsigned int cmd)
{
	switch (cmd) {
	case 1: case 2: case 3: return sizeof(igmp_entry_info);
	case 4: case 9: return 1;
	case 6: return sizeof(igmp_entry_get_req);
	case 7: return 4;
	default: return 0;
	}
}

size_t size_out(unsigned int cmd)
{
	switch (cmd) {
	case 6: return sizeof(igmp_entry_get_req);
	case 8: return 4;
	case 10: return 1;
	default: return 0;
	}
}

bool range_faults(uintptr_t a, size_t n, uintptr_t fault_lo, uintptr_t fault_hi)
{
	if (!n)
		return false;
	if (a < 4096)
		return true;
	return a < fault_hi && fault_lo < a + n;
}

void op_ioctl(fz::Input &in)
{
	UserPage page, arr;
	uint8_t c = in.u8();
	unsigned int cmd = c < 0xf0 ? c % 12 : in.u32();

	/* Where the record lies, and where unreadable memory starts. */
	uint8_t where = in.u8();
	uintptr_t arg;
	size_t off = 0;
	if (where >= 0xf8) {
		arg = where & 1 ? 0 : in.u16() % 4096;	/* NULL or low */
	} else {
		off = where < 0x80 ? 0 : kUserSize - 1 - in.u16() % 128;
		arg = (uintptr_t)(page.p + off);
	}
	uintptr_t fault_lo = (uintptr_t)page.p + kUserSize, fault_hi = fault_lo;
	if (in.u8() >= 0xc0)
		fault_lo = (uintptr_t)page.p + in.u16() % kUserSize;

	/* The record itself. */
	size_t room = arg >= (uintptr_t)page.p ? kUserSize - off : 0;
	igmp_entry_get_req req{};
	uintptr_t entries = 0;
	int cap = 0;
	if (cmd == 1 || cmd == 2 || cmd == 3) {
		igmp_entry_info e = fz::entry_from(in);
		memcpy(page.p + off, &e, std::min(room, sizeof(e)));
	} else if (cmd == 6) {
		static const s32 claims[] = { -1, 0, 1, 2, 5, 64, 0x7fffffff, -0x7fffffff };
		req.port_id = fz::kNamedPorts[in.u8() % fz::kDevNum];
		uint8_t cl = in.u8();
		req.entry_num = cl < 0xf0 ? claims[cl % 8] : (s32)in.u32();
		req.total_pkts = in.u32();
		req.total_bytes = in.u64();
		/* The array really holds @cap records; behind it nothing is
		 * the caller's. */
		cap = in.u8() % 8;
		uint8_t ep = in.u8();
		entries = ep < 0xf0 ? (uintptr_t)arr.p : ep % 4096;
		req.entries = (igmp_entry_info *)entries;
		memcpy(page.p + off, &req, std::min(room, sizeof(req)));
	} else {
		in.fill(page.p + off, std::min<size_t>(room, 8));
	}
	std::vector<uint8_t> arr_before(arr.p, arr.p + kUserSize);
	std::vector<uint8_t> page_before(page.p, page.p + kUserSize);
	std::string before = state();
	u32 mode_before = igmp_filter_mode;

	/* The guard page behind each buffer is never the user's. */
	host_uaccess_add_fault((void *)fault_lo, fault_hi - fault_lo + kUserSize);
	host_uaccess_add_fault(arr.p + cap * sizeof(igmp_entry_info),
			       2 * kUserSize - cap * sizeof(igmp_entry_info));

	long r = host_chrdev_ioctl(QUOR_IGMP_MAJOR, in.u8(), cmd, arg);

	host_uaccess_clear_faults();
	bool in_faults = range_faults(arg, size_in(cmd), fault_lo, fault_hi);
	bool out_faults = range_faults(arg, size_out(cmd), fault_lo, fault_hi);
	if (cmd == 0 || cmd > 10) {
		FZ_CHECK(r == -1, "command %u: %ld", cmd, r);
		FZ_CHECK(state() == before, "command %u changed state", cmd);
		return;
	}
	if (in_faults) {
		FZ_CHECK(r == -EFAULT, "command %u, record unreadable: %ld", cmd, r);
		FZ_CHECK(state() == before, "command %u with a bad record changed state",
			 cmd);
		FZ_CHECK(!memcmp(arr.p, arr_before.data(), kUserSize),
			 "command %u wrote entries", cmd);
		return;
	}
	switch (cmd) {
	case 5:
	case 7:
		FZ_CHECK(r == 0, "command %u: %ld", cmd, r);
		if (cmd == 7) {
			u32 m;
			memcpy(&m, page.p + off, 4);
			FZ_CHECK(igmp_filter_mode == (m <= IGMP_FILTER_MAX ? m : mode_before),
				 "mode %u after setting %u", igmp_filter_mode, m);
		}
		break;
	case 8:
	case 10:
		if (out_faults) {
			FZ_CHECK(r == -EFAULT, "command %u, answer unwritable: %ld", cmd, r);
			break;
		}
		if (cmd == 8) {
			u32 m;
			memcpy(&m, page.p + off, 4);
			FZ_CHECK(r == (long)igmp_filter_mode && m == igmp_filter_mode,
				 "filter mode %ld/%u, is %u", r, m, igmp_filter_mode);
		} else {
			FZ_CHECK(r == 0 && page.p[off] == (u8)igmp_snooping_enable,
				 "snooping %ld/%u", r, page.p[off]);
		}
		break;
	case 6: {
		FZ_CHECK(r == -EFAULT || r >= 0, "get: %ld", r);
		FZ_CHECK(state() == before, "get changed the database");
		if (r == -EFAULT)
			break;
		igmp_entry_get_req out;
		memcpy(&out, page.p + off, sizeof(out));
		FZ_CHECK(req.entry_num >= 0 ? r <= req.entry_num : r == 0,
			 "%ld records for a capacity of %d", r, req.entry_num);
		FZ_CHECK(out.entry_num == r && (uintptr_t)out.entries == entries &&
			 out.port_id == req.port_id,
			 "request given back as num %d entries %p", out.entry_num,
			 (void *)out.entries);
		FZ_CHECK(r <= cap || entries != (uintptr_t)arr.p,
			 "%ld records written into room for %d", r, cap);
		for (long i = 0; i < r; i++) {
			igmp_entry_info e;
			memcpy(&e, arr.p + i * sizeof(e), sizeof(e));
			FZ_CHECK(e.port == req.port_id, "record of port %u for port %u",
				 e.port, req.port_id);
		}
		break;
	}
	default:
		/* 1 to 4 and 9: the database operation's own answer. */
		FZ_CHECK(r == 0 || r == -1, "command %u: %ld", cmd, r);
		break;
	}
}

} // namespace

FZ_HARNESS(kMaxOps, { op_ioctl })
