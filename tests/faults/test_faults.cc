// Every non-sleeping allocation of an operation made to fail in turn (the
// 1st, then the 2nd, ... until a run completes without meeting the
// failure).  After each run: the documented answer, all or nothing (the
// proc texts are those of before or those of a run without failure),
// nothing leaked.  User-copy faults of the ioctl are fuzz_ioctl's.
#include <functional>

#include "support/frames.h"
#include "support/hwnat_check.h"
#include "support/module_fixture.h"

namespace {

using jt::entry;
using Texts = std::vector<std::string>;

const char *const kFiles[] = {
	"kv7730/jix_mc_fwd_entry", "kv7730/jix_mc_debug", "kv7730/jix_mc_port_type",
	"kv7730/jix_mc_hwnat_entry", "kv7730/jix_mc_acnt_mapping",
};

Texts texts()
{
	Texts t;
	for (const char *f : kFiles)
		t.push_back(host_proc_read_all(f, 4096));
	return t;
}

long ioctl(unsigned int cmd, void *arg)
{
	return host_chrdev_ioctl(QUOR_IGMP_MAJOR, 0, cmd, (unsigned long)arg);
}

class Faults : public jt::ModuleTest {
protected:
	void before_start() override { up({ "eth0.1", "eth0.2", "eth0.3", "ux0" }); }

	void SetUp() override
	{
		jt::ModuleTest::SetUp();
		hwnat_skb_to_foe_hook = [](sk_buff *) { return 5; };
	}

	void add(u8 port, const char *grp, s16 vlan = -1)
	{
		igmp_entry_info e = entry(port, grp, vlan);
		ASSERT_EQ(2, jt::api(QUOR_MC_API_ENTRY_ADD, &e).result);
	}

	// Everything cleared and aged out, the defaults back, then @entries.
	void fresh(std::initializer_list<std::pair<u8, const char *>> entries, s16 vlan = -1)
	{
		ASSERT_EQ(2, jt::api(QUOR_MC_API_CLEAR_ALL, nullptr).result);
		host_jiffies_advance(10000);
		quor_mc_debug_level = 1;
		PORT_TYPE[1] = 0;
		u32 mode = IGMP_FILTER_MAC_IP_VID;	/* VLANs count */
		u8 on = 1;
		jt::api(QUOR_MC_API_SET_FILTER_MODE, &mode);
		jt::api(QUOR_MC_API_SET_SNOOPING, &on);
		for (auto &e : entries)
			add(e.first, e.second, vlan);
	}

	/*
	 * @prepare, then @op with its k-th non-sleeping allocation failing,
	 * for k = 1, 2, ... until a run meets no failure; @check gets the
	 * answer, whether the failure was met and k.  Answers the number of
	 * allocation sites met.
	 */
	template <class R>
	unsigned long sweep(const std::function<void()> &prepare, const std::function<R()> &op,
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
			if (::testing::Test::HasFailure() || !hit)
				return k - !hit;
		}
		ADD_FAILURE() << "operation never completed";
		return 0;
	}

	// A sweep whose runs succeed (@ok of the answer) with the texts of a
	// run without failure, or fail with the texts and allocations of
	// before; @also is one more outcome allowed.
	unsigned long all_or_nothing(const std::function<void()> &prepare,
				     const std::function<long()> &op,
				     const std::function<bool(long)> &ok,
				     const std::function<Texts(Texts, Texts)> &also = nullptr)
	{
		prepare();
		op();
		Texts after = texts(), before;
		long live = 0;
		return sweep<long>([&] { prepare(); before = texts(); live = host_alloc_live(); },
			op, [&](long r, bool hit, unsigned long k) {
				Texts now = texts();
				if (!ok(r)) {
					EXPECT_TRUE(hit) << "k=" << k;
					EXPECT_EQ(before, now) << "k=" << k;
					EXPECT_EQ(live, host_alloc_live()) << "k=" << k;
				} else if (!also || now != also(before, after)) {
					EXPECT_EQ(after, now) << "k=" << k;
				}
			});
	}
};

TEST_F(Faults, EntryAddThroughApiIoctlAndProc)
{
	const char cmd[] = "add ipv4 239.1.1.1 01:00:5e:01:01:01 0 -1 0 0 0 0 0";
	std::function<long()> adds[] = {
		[] { igmp_entry_info e = entry(0, "239.1.1.1");
		     return jt::api(QUOR_MC_API_ENTRY_ADD, &e).result == 2; },
		[] { igmp_entry_info e = entry(0, "239.1.1.1");
		     return ioctl(QUOR_IGMP_IOC_ADD_ENTRY, &e) == 0; },
		[&] { host_log_clear();
		      EXPECT_EQ((long)sizeof(cmd) - 1, host_proc_write(kFiles[0], cmd, sizeof(cmd) - 1));
		      return strstr(host_log_text(), "Add entry success!") != nullptr; },
	};
	for (auto &add : adds)
		EXPECT_GE(all_or_nothing([&] { fresh({ { 1, "239.1.1.1" } }); }, add,
					 [](long ok) { return ok; }), 1u);
}

TEST_F(Faults, ClearByPortKeepsEverythingWhenACopyFails)
{
	auto prepare = [&] {
		fresh({ { 1, "239.1.1.1" }, { 1, "239.1.1.2" }, { 1, "239.1.1.3" } }, 100);
		add(2, "239.1.1.1");
	};
	EXPECT_GE(all_or_nothing(prepare, [] { return jt::api_u8(QUOR_MC_API_CLEAR_BY_PORT, 1).result; },
				 [](long r) { return r == 2; }), 3u);
	EXPECT_EQ(1u, jt::fdb_entries().size());
}

TEST_F(Faults, GetEntries)
{
	add(1, "239.1.1.1");
	add(1, "239.1.1.2");
	std::vector<igmp_entry_info> room(4);
	igmp_entry_get_req req{}, copy = jt::get_req(1, room.data(), 4);
	Texts before = texts();
	long live = host_alloc_live();

	/* Through the API: into the caller's room, nothing it could fail on. */
	sweep<int>([&] { req = copy; }, [&] { return jt::api(QUOR_MC_API_ENTRY_GET, &req).result; },
		   [&](int r, bool, unsigned long) { EXPECT_EQ(2, r); EXPECT_EQ(2, req.entry_num); });
	/* Through the ioctl: the room is a sleeping allocation. */
	req = copy;
	host_alloc_fail_sleeping(1);
	EXPECT_EQ(-ENOMEM, ioctl(QUOR_IGMP_IOC_GET_ENTRY, &req));
	host_alloc_fail_sleeping(0);
	EXPECT_EQ(0, memcmp(&copy, &req, sizeof(req)));
	EXPECT_EQ(before, texts());
	EXPECT_EQ(live, host_alloc_live());
	sweep<long>([&] { req = copy; }, [&] { return ioctl(QUOR_IGMP_IOC_GET_ENTRY, &req); },
		    [&](long r, bool, unsigned long) { EXPECT_EQ(2, r); });
}

TEST_F(Faults, DataHandlerWithMembersLosesAtMostOneCopy)
{
	for (u8 port : { 0, 1, 2 })
		add(port, "239.1.1.1");
	frames::Bytes f = frames::ipv4_udp_frame("10.0.0.1", "239.1.1.1", 4000, 5004);
	auto sent = [&] {
		unsigned int n = 0;
		for (net_device *d : devs)
			n += host_netdev_tx_count(d);
		return n;
	};
	unsigned int n0 = 0;
	frames::Skb skb;
	EXPECT_GE(sweep<int>(
		[&] {
			host_jiffies_advance(10000);
			n0 = sent();
			skb = frames::skb_from(f);	/* before failures are armed */
		},
		[&] {
			unsigned char *data = skb->data;
			quor_peer_mc mc{};
			mc.skb = skb.get();
			EXPECT_EQ(1, __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_INTERVAL, &mc));
			EXPECT_EQ(data, skb->data);
			skb.reset();
			return mc.result;
		},
		[&](int r, bool hit, unsigned long k) {
			EXPECT_EQ(0, r) << "k=" << k;
			EXPECT_GE(sent() - n0, hit ? 2u : 3u) << "k=" << k;
			EXPECT_LE(sent() - n0, 3u) << "k=" << k;
			EXPECT_EQ("", jt::hwnat_table_fault()) << "k=" << k;
		}), 3u);
}

TEST_F(Faults, ProcReadsAndWrites)
{
	add(1, "239.1.1.1");
	add(1, "ff0e::1");
	for (const char *f : kFiles) {
		std::string want = host_proc_read_all(f, 4096);
		sweep<std::string>([] {}, [&] { return std::string(host_proc_read_all(f, 100)); },
			[&](std::string got, bool, unsigned long k) { EXPECT_EQ(want, got) << f << k; });
	}
	/* A port type is stored before its port's entries are cleared, and a
	 * clear that cannot allocate its copies is ignored: the type changes,
	 * the entries stay (the documented outcome). */
	auto type_only = [](Texts before, Texts after) { before[2] = after[2]; return before; };
	const std::pair<const char *, const char *> writes[] = {
		{ kFiles[0], "del ipv4 239.1.1.1 01:00:5e:01:01:01 1 -1 0 0 0 0 0" },
		{ kFiles[0], "update ipv6 ff0e:0:0:0:0:0:0:1 33:33:00:00:00:01 1 -1 3 0 0 0 0" },
		{ kFiles[0], "del_by_port 1" },
		{ kFiles[0], "filter_mode 1" },
		{ kFiles[0], "snooping 0" },
		{ kFiles[0], "del_all" },
		{ kFiles[1], "2" },
		{ kFiles[2], "eth0.2 2" },
	};
	for (auto &w : writes) {
		long len = strlen(w.second);
		Texts before;
		all_or_nothing([&] { fresh({ { 1, "239.1.1.1" }, { 1, "ff0e::1" } });
				     before = texts(); },
			[&] { return host_proc_write(w.first, w.second, len); },
			[&](long r) { EXPECT_EQ(len, r) << w.second; return texts() != before; },
			w.first == kFiles[2] ? std::function<Texts(Texts, Texts)>(type_only) : nullptr);
	}
}

// Start with its k-th allocation failing, or a sleeping one, or the hook
// framework refusing: it starts completely or fails leaving nothing behind.
TEST_F(Faults, ModuleStart)
{
	auto nothing_left = [&](unsigned long k) {
		EXPECT_EQ(0, host_proc_count()) << k;
		EXPECT_EQ(0, host_quor_registered_count()) << k;
		EXPECT_EQ(0, host_counters_taken()) << k;
		EXPECT_EQ(nullptr, xpon_igmp_learn_flow_hook) << k;
		EXPECT_FALSE(host_chrdev_registered(QUOR_IGMP_MAJOR)) << k;
		for (net_device *d : devs)
			EXPECT_EQ(0, host_netdev_refcnt(d)) << d->name << " k=" << k;
	};
	stop();
	long live = host_alloc_live();
	for (unsigned long k = 1; k < 100; k++) {
		unsigned long a0 = host_alloc_atomic_attempts();
		host_alloc_fail_nth(k);
		int r = init_module();
		host_alloc_fail_nth(0);
		EXPECT_EQ(r ? 0 : 5, host_proc_count()) << k;
		if (!r)
			cleanup_module();
		nothing_left(k);
		EXPECT_EQ(live, host_alloc_live()) << k;
		if (host_alloc_atomic_attempts() - a0 < k)
			break;
	}
	host_alloc_fail_sleeping(1);
	if (!init_module())
		cleanup_module();
	host_alloc_fail_sleeping(0);
	nothing_left(0);
	host_quor_fail_next_register(-ENOMEM);
	EXPECT_EQ(-ENOMEM, init_module());
	nothing_left(0);
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
	/* A device that cannot be registered at all is logged as an error and
	 * the module works without it; stop leaves another driver's device. */
	static const struct file_operations other_fops{};
	ASSERT_EQ(0, __register_chrdev(1, 0, QUOR_IGMP_MINORS, "other", &other_fops));
	host_log_clear();
	host_chrdev_fail_next(-EBUSY, 2);
	ASSERT_EQ(0, init_module());
	EXPECT_NE(std::string::npos,
		  std::string(host_log_text()).find(": quor_igmp_cdev_init failed\n"));
	EXPECT_EQ(1u, host_log_count_level(3));
	EXPECT_FALSE(host_chrdev_registered(QUOR_IGMP_MAJOR));
	add(1, "239.1.1.1");
	cleanup_module();
	EXPECT_TRUE(host_chrdev_registered(1));
	__unregister_chrdev(1, 0, QUOR_IGMP_MINORS, "other");
	/* A file start could not create is not removed at stop (the kernel
	 * warns about removing a missing proc entry). */
	host_proc_fail_next_create();
	ASSERT_EQ(0, init_module());
	EXPECT_EQ(4, host_proc_count());
	EXPECT_FALSE(host_proc_exists("kv7730/jix_mc_hwnat_entry"));
	cleanup_module();
	EXPECT_EQ(0u, host_warn_count());
	ASSERT_EQ(0, init_module());	/* for TearDown */
	loaded = true;
}

} // namespace
