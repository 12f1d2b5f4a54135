// Every non-sleeping allocation of an operation made to fail in turn
// (the 1st, then the 2nd, ... until a run completes without meeting the
// failure), and every ioctl command given user memory that faults.
// After each failed run: the documented answer, no partial state (the
// proc texts before and after are compared), nothing leaked.
#include <functional>

#include "support/frames.h"
#include "support/hwnat_check.h"
#include "support/module_fixture.h"

extern "C" {
#include "hwnat/hwnat_flow.h"
}

namespace {

using jt::entry;

const char *const kFwd = "kv7730/jix_mc_fwd_entry";
const char *const kProcFiles[] = {
	"kv7730/jix_mc_fwd_entry", "kv7730/jix_mc_debug",
	"kv7730/jix_mc_port_type", "kv7730/jix_mc_hwnat_entry",
	"kv7730/jix_mc_acnt_mapping",
};

int fake_foe(struct sk_buff *) { return 5; }

std::string text(const char *f)
{
	return host_proc_read_all(f, 4096);
}

std::string texts()
{
	std::string s;

	for (const char *f : kProcFiles)
		s += text(f) + "\n====\n";
	return s;
}

int api(u32 id, void *param)
{
	jt::ApiResult r = jt::api(id, param);

	EXPECT_EQ(1, r.hook);
	return r.result;
}

int api_port(u32 id, u8 port)
{
	jt::ApiResult r = jt::api_u8(id, port);

	EXPECT_EQ(1, r.hook);
	return r.result;
}

class Faults : public jt::ModuleTest {
protected:
	void before_start() override { up({ "eth0.1", "eth0.2", "eth0.3", "ux0" }); }

	void SetUp() override
	{
		jt::ModuleTest::SetUp();
		hwnat_skb_to_foe_hook = fake_foe;
	}

	void clear_all()
	{
		ASSERT_EQ(2, api(QUOR_MC_API_CLEAR_ALL, nullptr));
		host_jiffies_advance(10000);	/* flows and drops age out */
	}

	/*
	 * Run @prepare, then @op with its k-th non-sleeping allocation
	 * failing, for k = 1, 2, ... until a run meets no failure; @check
	 * gets the answer and whether the failure was met.  Returns the
	 * number of allocation sites met by the operation.
	 */
	template <class R>
	unsigned long sweep(const std::function<void()> &prepare,
			    const std::function<R()> &op,
			    const std::function<void(R, bool, unsigned long)> &check)
	{
		for (unsigned long k = 1; k < 500; k++) {
			prepare();
			unsigned long a0 = host_alloc_atomic_attempts();
			host_alloc_fail_nth(k);
			R r = op();
			host_alloc_fail_nth(0);
			bool hit = host_alloc_atomic_attempts() - a0 >= k;
			check(r, hit, k);
			EXPECT_EQ(0, host_locks_held()) << "k=" << k;
			if (::testing::Test::HasFailure())
				return k;
			if (!hit)
				return k - 1;
		}
		ADD_FAILURE() << "operation never completed";
		return 0;
	}

	bool listed(const igmp_entry_info &e)
	{
		const igmp_entry_info *want = &e;
		bool found = false;
		igmp_fdb_entry *x;

		spin_lock_bh(&igmp_fdb_lock);
		list_for_each_entry(x, igmp_get_fdb_list(), list)
			if (x->port == want->port && x->vlan == want->vlan &&
			    !memcmp(x->grp_ip.addr, want->grp_ip.addr, 16))
				found = true;
		spin_unlock_bh(&igmp_fdb_lock);
		return found;
	}

	// An add through @add (answering true when it reports success).
	void add_sweep(const std::function<bool(const igmp_entry_info &)> &add)
	{
		igmp_entry_info other = entry(1, "239.1.1.1"), e = entry(0, "239.1.1.1");
		std::string before;
		long live = 0;
		unsigned long sites = sweep<bool>(
			[&] {
				clear_all();
				ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &other));
				before = texts();
				live = host_alloc_live();
			},
			[&] { return add(e); },
			[&](bool ok, bool hit, unsigned long k) {
				if (!hit) {
					EXPECT_TRUE(ok) << "k=" << k;
				}
				if (ok) {
					EXPECT_TRUE(listed(e)) << "k=" << k;
				} else {
					EXPECT_EQ(before, texts()) << "k=" << k;
					EXPECT_EQ(live, host_alloc_live()) << "k=" << k;
				}
			});
		EXPECT_GE(sites, 1u);
		RecordProperty("allocation_sites", (int)sites);
	}
};

bool add_api(const igmp_entry_info &e)
{
	igmp_entry_info c = e;
	return api(QUOR_MC_API_ENTRY_ADD, &c) == 2;
}

bool add_ioctl(const igmp_entry_info &e)
{
	igmp_entry_info c = e;
	long r = host_chrdev_ioctl(QUOR_IGMP_MAJOR, 0, QUOR_IGMP_IOC_ADD_ENTRY,
				   (unsigned long)&c);
	EXPECT_TRUE(r == 0 || r == -1) << r;
	return r == 0;
}

bool add_proc(const igmp_entry_info &)
{
	const char cmd[] = "add ipv4 239.1.1.1 01:00:5e:01:01:01 0 -1 0 0 0 0 0";
	host_log_clear();
	EXPECT_EQ((long)sizeof(cmd) - 1, host_proc_write(kFwd, cmd, sizeof(cmd) - 1));
	return strstr(host_log_text(), "Add entry success!") != nullptr;
}

TEST_F(Faults, EntryAddThroughApiIoctlAndProc)
{
	for (auto add : { add_api, add_ioctl, add_proc })
		add_sweep(add);
}

TEST_F(Faults, ClearByPortKeepsEverythingWhenACopyFails)
{
	std::string before;
	long live = 0;
	quor_igmp_set_filterMode(IGMP_FILTER_MAC_IP_VID);	/* VLANs count */
	unsigned long sites = sweep<int>(
		[&] {
			clear_all();
			for (const char *g : { "239.1.1.1", "239.1.1.2", "239.1.1.3" }) {
				igmp_entry_info e = entry(1, g, 100);
				ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &e));
			}
			igmp_entry_info o = entry(2, "239.1.1.1");
			ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &o));
			before = texts();
			live = host_alloc_live();
		},
		[&] { return api_port(QUOR_MC_API_CLEAR_BY_PORT, 1); },
		[&](int r, bool hit, unsigned long k) {
			if (r == -1) {
				EXPECT_TRUE(hit);
				EXPECT_EQ(before, texts()) << "k=" << k;
				EXPECT_EQ(live, host_alloc_live()) << "k=" << k;
				return;
			}
			EXPECT_EQ(2, r) << "k=" << k;
			EXPECT_FALSE(listed(entry(1, "239.1.1.1", 100))) << "k=" << k;
			EXPECT_TRUE(listed(entry(2, "239.1.1.1"))) << "k=" << k;
		});
	EXPECT_GE(sites, 3u);
}

TEST_F(Faults, GetEntries)
{
	for (const char *g : { "239.1.1.1", "239.1.1.2" }) {
		igmp_entry_info e = entry(1, g);
		ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &e));
	}
	std::vector<igmp_entry_info> room(4);
	igmp_entry_get_req req{}, copy = jt::get_req(1, room.data(), 4);
	long live = host_alloc_live();

	/* Through the API: writes into the caller's room, allocates nothing
	 * it could fail on. */
	sweep<int>([&] { req = copy; }, [&] { return api(QUOR_MC_API_ENTRY_GET, &req); },
		[&](int r, bool, unsigned long) {
			EXPECT_EQ(2, r);
			EXPECT_EQ(2, req.entry_num);
		});
	/* Through the ioctl: the room is a sleeping allocation. */
	req = copy;
	std::string before = texts();
	host_alloc_fail_sleeping(1);
	long r = host_chrdev_ioctl(QUOR_IGMP_MAJOR, 0, QUOR_IGMP_IOC_GET_ENTRY,
				   (unsigned long)&req);
	host_alloc_fail_sleeping(0);
	EXPECT_EQ(-ENOMEM, r);
	EXPECT_EQ(0, memcmp(&copy, &req, sizeof(req)));
	EXPECT_EQ(before, texts());
	EXPECT_EQ(live, host_alloc_live());
	sweep<long>([&] { req = copy; },
		[&] { return host_chrdev_ioctl(QUOR_IGMP_MAJOR, 0,
					       QUOR_IGMP_IOC_GET_ENTRY,
					       (unsigned long)&req); },
		[&](long r, bool, unsigned long) { EXPECT_EQ(2, r); });
}

TEST_F(Faults, DataHandlerWithMembersLosesAtMostOneCopy)
{
	for (u8 port : { 0, 1, 2 }) {
		igmp_entry_info e = entry(port, "239.1.1.1");
		ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &e));
	}
	frames::Bytes f = frames::ipv4_udp_frame("10.0.0.1", "239.1.1.1", 4000, 5004);
	auto sent = [&] {
		unsigned int n = 0;
		for (net_device *d : devs)
			n += host_netdev_tx_count(d);
		return n;
	};
	unsigned int n0 = 0;
	frames::Skb skb;
	unsigned long sites = sweep<int>(
		[&] {
			host_jiffies_advance(10000);
			n0 = sent();
			skb = frames::skb_from(f);	/* before failures are armed */
			ASSERT_TRUE(skb);
		},
		[&] {
			unsigned char *data = skb->data;
			quor_peer_mc mc{};
			mc.skb = skb.get();
			EXPECT_EQ(1, __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST,
						 QUOR_MC_SUBTYPE_INTERVAL, &mc));
			EXPECT_EQ(data, skb->data);
			skb.reset();
			return mc.result;
		},
		[&](int r, bool hit, unsigned long k) {
			EXPECT_EQ(0, r) << "k=" << k;
			EXPECT_GE(sent() - n0, hit ? 2u : 3u) << "k=" << k;
			EXPECT_LE(sent() - n0, 3u) << "k=" << k;
			EXPECT_EQ("", jt::hwnat_table_fault()) << "k=" << k;
		});
	EXPECT_GE(sites, 3u);
}

TEST_F(Faults, ProcReadsAndWrites)
{
	for (const char *g : { "239.1.1.1", "ff0e::1" }) {
		igmp_entry_info e = entry(1, g);
		ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &e));
	}
	for (const char *f : kProcFiles) {
		std::string want = host_proc_read_all(f, 4096);
		sweep<std::string>([] {}, [&] { return std::string(host_proc_read_all(f, 100)); },
			[&](std::string got, bool, unsigned long k) {
				EXPECT_EQ(want, got) << f << " k=" << k;
			});
	}
	struct W {
		const char *file, *text;
	} writes[] = {
		{ kFwd, "del ipv4 239.1.1.1 01:00:5e:01:01:01 1 -1 0 0 0 0 0" },
		{ kFwd, "update ipv6 ff0e:0:0:0:0:0:0:1 33:33:00:00:00:01 1 -1 3 0 0 0 0" },
		{ kFwd, "del_by_port 1" },
		{ kFwd, "filter_mode 1" },
		{ kFwd, "snooping 0" },
		{ kFwd, "del_all" },
		{ "kv7730/jix_mc_debug", "2" },
		{ "kv7730/jix_mc_port_type", "eth0.2 2" },
	};
	for (const W &w : writes) {
		std::string before, after, fwd_before, type_after;
		/* What the write does when nothing fails. */
		auto prepare = [&] {
			clear_all();
			for (const char *g : { "239.1.1.1", "ff0e::1" }) {
				igmp_entry_info e = entry(1, g);
				ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &e));
			}
			quor_mc_debug_level = 1;
			PORT_TYPE[1] = 0;
			u32 m = 4;
			api(QUOR_MC_API_SET_FILTER_MODE, &m);
			u8 on = 1;
			api(QUOR_MC_API_SET_SNOOPING, &on);
			before = texts();
			fwd_before = text(kFwd);
		};
		prepare();
		ASSERT_EQ((long)strlen(w.text), host_proc_write(w.file, w.text, strlen(w.text)));
		after = texts();
		type_after = text("kv7730/jix_mc_port_type");
		sweep<long>(prepare,
			[&] { return host_proc_write(w.file, w.text, strlen(w.text)); },
			[&](long r, bool, unsigned long k) {
				EXPECT_EQ((long)strlen(w.text), r) << w.text;
				std::string now = texts();
				if (now == before || now == after)
					return;
				/* A port type is stored before its port's entries
				 * are cleared, and a clear that cannot allocate its
				 * copies is ignored: the type changes, the entries
				 * stay (reported, kept as the documented outcome). */
				EXPECT_TRUE(w.file == std::string("kv7730/jix_mc_port_type") &&
					    text(kFwd) == fwd_before &&
					    text(w.file) == type_after)
					<< w.text << " k=" << k << "\n" << now;
			});
	}
}

// Start with its k-th allocation failing: it either starts completely or
// fails leaving nothing behind.
TEST_F(Faults, ModuleStart)
{
	stop();
	for (unsigned long k = 1; k < 100; k++) {
		long live = host_alloc_live();
		unsigned long a0 = host_alloc_atomic_attempts();
		host_alloc_fail_nth(k);
		int r = init_module();
		host_alloc_fail_nth(0);
		bool hit = host_alloc_atomic_attempts() - a0 >= k;
		if (r == 0) {
			EXPECT_EQ(5, host_proc_count());
			EXPECT_EQ(2, host_quor_registered_count());
			cleanup_module();
		}
		EXPECT_EQ(0, host_proc_count()) << k;
		EXPECT_EQ(0, host_quor_registered_count()) << k;
		EXPECT_EQ(0, host_counters_taken()) << k;
		EXPECT_FALSE(host_chrdev_registered(QUOR_IGMP_MAJOR)) << k;
		EXPECT_EQ(live, host_alloc_live()) << k;
		for (net_device *d : devs)
			EXPECT_EQ(0, host_netdev_refcnt(d)) << d->name << " k=" << k;
		if (!hit)
			break;
	}
	/* Sleeping allocations, the hook framework, the device and proc. */
	host_alloc_fail_sleeping(1);
	int r = init_module();
	host_alloc_fail_sleeping(0);
	if (!r)
		cleanup_module();
	host_quor_fail_next_register(-ENOMEM);
	EXPECT_EQ(-ENOMEM, init_module());
	EXPECT_EQ(0, host_quor_registered_count());
	EXPECT_EQ(0, host_proc_count());
	EXPECT_EQ(0, host_counters_taken());
	EXPECT_EQ(nullptr, xpon_igmp_learn_flow_hook);
	EXPECT_FALSE(host_chrdev_registered(QUOR_IGMP_MAJOR));
	for (net_device *d : devs)
		EXPECT_EQ(0, host_netdev_refcnt(d)) << d->name;
	/* A taken major falls back to a dynamic one (one line says which)
	 * and the node follows it; a missing class leaves the device. */
	struct { int fails, node_err; unsigned want, got; const char *log; } majors[] = {
		{ 1, 0, 253, 254, "quor_igmp: major 253 is taken, using major 254\n" },
		{ 0, -ENOMEM, 0, 254, "quor_igmp: dynamic major 254\n" },
		{ 0, 0, 253, 253, "" },
	};
	for (auto &m : majors) {
		host_log_clear();
		host_chrdev_fail_next(-EBUSY, m.fails);
		host_chrdev_node_fail_next(m.node_err);
		quor_igmp_major = m.want;
		ASSERT_EQ(0, init_module());
		EXPECT_NE(std::string::npos, std::string(host_log_text()).find(m.log)) << m.want;
		EXPECT_TRUE(host_chrdev_registered(m.got));
		EXPECT_EQ(m.node_err ? 0 : m.got, host_chrdev_node_major("quor_igmp"));
		cleanup_module();
		EXPECT_FALSE(host_chrdev_registered(m.got));
		EXPECT_EQ(0u, host_chrdev_node_major("quor_igmp"));
	}
	/* A device that cannot be registered at all is logged as an error
	 * and the module works without it; stop leaves another driver's
	 * device alone. */
	static const struct file_operations other_fops{};
	ASSERT_EQ(0, __register_chrdev(1, 0, QUOR_IGMP_MINORS, "other", &other_fops));
	host_log_clear();
	host_chrdev_fail_next(-EBUSY, 2);
	ASSERT_EQ(0, init_module());
	EXPECT_NE(std::string::npos,
		  std::string(host_log_text()).find(": quor_igmp_cdev_init failed\n"));
	EXPECT_EQ(1u, host_log_count_level(3));
	EXPECT_FALSE(host_chrdev_registered(QUOR_IGMP_MAJOR));
	igmp_entry_info e = entry(1, "239.1.1.1");
	EXPECT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &e));
	cleanup_module();
	EXPECT_TRUE(host_chrdev_registered(1));
	__unregister_chrdev(1, 0, QUOR_IGMP_MINORS, "other");
	/* A file start could not create is not removed at stop (the
	 * kernel warns about removing a missing proc entry). */
	host_proc_fail_next_create();
	ASSERT_EQ(0, init_module());
	EXPECT_EQ(std::string::npos, text("kv7730/jix_mc_acnt_mapping").find("239.1.1.1"));
	EXPECT_EQ(4, host_proc_count());
	EXPECT_FALSE(host_proc_exists("kv7730/jix_mc_hwnat_entry"));
	EXPECT_TRUE(host_proc_exists("kv7730/jix_mc_port_type"));
	cleanup_module();
	EXPECT_EQ(0u, host_warn_count());
	EXPECT_EQ(0, host_proc_count());
	ASSERT_EQ(0, init_module());	/* for TearDown */
	loaded = true;
}

// Every ioctl command with a record that faults whole or in its last
// byte, and with an answer that cannot be written.
TEST_F(Faults, IoctlUserCopyFaults)
{
	igmp_entry_info e = entry(1, "239.1.1.1");
	ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &e));
	std::vector<uint8_t> page(4096);
	std::vector<igmp_entry_info> room(4);
	struct Case {
		unsigned int cmd;
		size_t in, out;	/* bytes copied in and out */
	} cases[] = {
		{ 1, 80, 0 }, { 2, 80, 0 }, { 3, 80, 0 }, { 4, 1, 0 }, { 5, 0, 0 },
		{ 6, 32, 32 }, { 7, 4, 0 }, { 8, 0, 4 }, { 9, 1, 0 }, { 10, 0, 1 },
	};
	for (const Case &c : cases) {
		for (int how = 0; how < 3; how++) {
			/* 0: the whole record faults; 1: its last byte; 2: NULL */
			size_t n = std::max(c.in, c.out);
			if (how == 1 && !n)
				continue;
			std::fill(page.begin(), page.end(), 0);
			igmp_entry_info rec = entry(2, "239.9.9.9");
			if (c.cmd <= 3)
				memcpy(page.data(), &rec, sizeof(rec));
			if (c.cmd == 6) {
				igmp_entry_get_req req = jt::get_req(1, room.data(), 4);
				memcpy(page.data(), &req, sizeof(req));
			}
			if (c.cmd == 4)
				page[0] = 1;
			if (c.cmd == 7)
				page[0] = 1;
			std::vector<uint8_t> page0 = page;
			std::string before = texts();
			if (how == 0)
				host_uaccess_add_fault(page.data(), page.size());
			if (how == 1)
				host_uaccess_add_fault(page.data() + n - 1, 1);
			unsigned long arg = how == 2 ? 0 : (unsigned long)page.data();
			long r = host_chrdev_ioctl(QUOR_IGMP_MAJOR, 0, c.cmd, arg);
			host_uaccess_clear_faults();
			if (c.cmd == 5) {
				/* No argument: it clears whatever the pointer. */
				EXPECT_EQ(0, r);
				ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &e));
				continue;
			}
			EXPECT_EQ(-EFAULT, r) << "cmd " << c.cmd << " how " << how;
			EXPECT_EQ(before, texts()) << "cmd " << c.cmd << " how " << how;
			/* An answer that faults part way may be partly written,
			 * as in the kernel; a record that cannot be read is
			 * never written. */
			if (how != 2 && c.out == 0) {
				EXPECT_EQ(page0, page) << "cmd " << c.cmd << " how " << how;
			}
		}
	}
	igmp_entry_info e2 = entry(1, "239.1.1.2");
	ASSERT_EQ(2, api(QUOR_MC_API_ENTRY_ADD, &e2));
	/* Get-entries whose answer array cannot be written, whole or from
	 * its second record on. */
	for (size_t skip : { 0, 1 }) {
		igmp_entry_get_req req = jt::get_req(1, room.data(), 4), copy = req;
		std::string before = texts();
		host_uaccess_add_fault(&room[skip], sizeof(igmp_entry_info) * (4 - skip));
		long r = host_chrdev_ioctl(QUOR_IGMP_MAJOR, 0, QUOR_IGMP_IOC_GET_ENTRY,
					   (unsigned long)&req);
		host_uaccess_clear_faults();
		EXPECT_EQ(-EFAULT, r) << skip;
		EXPECT_EQ(0, memcmp(&copy, &req, sizeof(req))) << skip;
		EXPECT_EQ(before, texts()) << skip;
	}
	/* Unknown commands touch nothing, whatever the pointer. */
	for (unsigned int cmd : { 0u, 11u, 0x5401u, ~0u })
		EXPECT_EQ(-1, host_chrdev_ioctl(QUOR_IGMP_MAJOR, 0, cmd, 0));
}

} // namespace
