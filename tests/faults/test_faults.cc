// Every non-sleeping allocation of an operation made to fail in turn (the
// 1st, then the 2nd, ... until a run completes without meeting the
// failure).  After each run: the documented answer, all or nothing (the
// proc texts are those of before or those of a run without failure),
// nothing leaked.  The data path's failures, the ioctl's user-copy faults
// and its room for get-entries are the fuzzers' (fuzz_frames, fuzz_ioctl).
#include <functional>

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

	void add(u8 port, const char *grp, s16 vlan = -1)
	{
		igmp_entry_info e = entry(port, grp, vlan);
		ASSERT_EQ(2, jt::api(QUOR_MC_API_ENTRY_ADD, &e).result);
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
};

// Each operation swept over the same state (entries of ports 1 and 2,
// filter mode 5, the defaults): a run that fails leaves the texts and
// allocations of before, one that succeeds the texts of a run without
// failure.  An operation answers 1 for success, 0 for failure, or -1 when
// only the texts tell (proc writes answer their count either way).  A
// port type is stored before its port's entries are cleared, and a clear
// that cannot allocate its copies is ignored: the type changes, the
// entries stay (the documented outcome).
TEST_F(Faults, OperationsAreAllOrNothing)
{
	auto write = [](const char *file, const char *text) {
		return [=] {
			EXPECT_EQ((long)strlen(text), host_proc_write(file, text, strlen(text))) << text;
			return -1;
		};
	};
	const struct { const char *what; std::function<int()> op; unsigned long sites; } ops[] = {
		{ "API add", [] { igmp_entry_info e = entry(0, "239.1.1.1");
				  return (int)(jt::api(QUOR_MC_API_ENTRY_ADD, &e).result == 2); }, 1 },
		{ "ioctl add", [] { igmp_entry_info e = entry(0, "239.1.1.1");
				    return (int)!ioctl(QUOR_IGMP_IOC_ADD_ENTRY, &e); }, 1 },
		{ "clear by port",
		  [] { return (int)(jt::api_u8(QUOR_MC_API_CLEAR_BY_PORT, 1).result == 2); }, 3 },
		{ "proc add", write(kFiles[0], "add ipv4 239.1.1.1 01:00:5e:01:01:01 0 -1 0 0 0 0 0"), 1 },
		{ "proc del_by_port", write(kFiles[0], "del_by_port 1"), 3 },
		{ "port type", write(kFiles[2], "eth0.2 2"), 0 },
	};
	for (auto &o : ops) {
		Texts before, after;
		long live = 0;
		auto prepare = [&] {
			ASSERT_EQ(2, jt::api(QUOR_MC_API_CLEAR_ALL, nullptr).result);
			host_jiffies_advance(10000);	/* flows and drops age out */
			quor_mc_debug_level = 1;
			PORT_TYPE[1] = 0;
			u32 mode = IGMP_FILTER_MAC_IP_VID;
			u8 on = 1;
			jt::api(QUOR_MC_API_SET_FILTER_MODE, &mode);
			jt::api(QUOR_MC_API_SET_SNOOPING, &on);
			add(1, "239.1.1.1");
			add(1, "ff0e::1");
			add(1, "239.1.1.2", 100);
			add(2, "239.1.1.1");
			before = texts();
			live = host_alloc_live();
		};
		prepare();
		o.op();
		after = texts();
		unsigned long sites = sweep<int>(prepare, o.op, [&](int r, bool hit, unsigned long k) {
			Texts now = texts(), type_only = before;
			type_only[2] = after[2];
			if (r < 0 ? now == before : !r) {
				EXPECT_TRUE(hit) << o.what << k;
				EXPECT_EQ(before, now) << o.what << k;
				EXPECT_EQ(live, host_alloc_live()) << o.what << k;
			} else if (!(strstr(o.what, "type") && now == type_only)) {
				EXPECT_EQ(after, now) << o.what << k;
			}
		});
		EXPECT_GE(sites, o.sites) << o.what;
	}
}

// Start with its k-th allocation failing: it starts completely or fails
// leaving nothing behind.  Then with one resource refused: the answer, the
// log line, the proc files and device made; what it made goes at stop,
// and another driver's device stays.
TEST_F(Faults, ModuleStart)
{
	stop();
	long live = host_alloc_live();
	auto nothing_left = [&](unsigned long k) {
		EXPECT_EQ(0, host_proc_count() + host_quor_registered_count() + host_counters_taken());
		EXPECT_FALSE(host_chrdev_registered(QUOR_IGMP_MAJOR) || xpon_igmp_learn_flow_hook);
		EXPECT_EQ(0u, host_chrdev_node_major("quor_igmp")) << k;
		EXPECT_EQ(live, host_alloc_live()) << k;
		for (net_device *d : devs)
			EXPECT_EQ(0, host_netdev_refcnt(d)) << d->name << " k=" << k;
	};
	for (unsigned long k = 1; k < 100; k++) {
		unsigned long a0 = host_alloc_atomic_attempts();
		host_alloc_fail_nth(k);
		int r = init_module();
		host_alloc_fail_nth(0);
		EXPECT_EQ(r ? 0 : 5, host_proc_count()) << k;
		if (!r)
			cleanup_module();
		nothing_left(k);
		if (host_alloc_atomic_attempts() - a0 < k)
			break;
	}
	struct {	/* majors: asked, registered, of the node; error lines */
		void (*refuse)();
		unsigned int want;
		int ret, procs;
		unsigned int major, node;
		const char *log;
		unsigned long errors;
	} starts[] = {
		{ [] { host_quor_fail_next_register(-ENOMEM); }, 253, -ENOMEM, 0, 0, 0, "", 1 },
		{ [] { host_chrdev_fail_next(-EBUSY, 1); }, 253, 0, 5, 254, 254,
		  "quor_igmp: major 253 is taken, using major 254\n", 0 },
		{ [] { host_chrdev_node_fail_next(-ENOMEM); }, 0, 0, 5, 254, 0,
		  "quor_igmp: dynamic major 254\n", 0 },
		{ [] { host_chrdev_fail_next(-EBUSY, 2); }, 253, 0, 5, 0, 0,
		  ": quor_igmp_cdev_init failed\n", 1 },
		{ host_proc_fail_next_create, 253, 0, 4, 253, 253, "", 0 },
	};
	static const struct file_operations other_fops{};
	ASSERT_EQ(0, __register_chrdev(1, 0, QUOR_IGMP_MINORS, "other", &other_fops));
	for (auto &s : starts) {
		host_log_clear();
		s.refuse();
		quor_igmp_major = s.want;
		ASSERT_EQ(s.ret, init_module()) << s.log;
		EXPECT_NE(std::string::npos, std::string(host_log_text()).find(s.log)) << s.log;
		EXPECT_EQ(s.errors, host_log_count_level(3)) << s.log;
		EXPECT_EQ(s.procs, host_proc_count()) << s.log;
		EXPECT_TRUE(s.major ? host_chrdev_registered(s.major) : !host_chrdev_registered(253));
		EXPECT_EQ(s.node, host_chrdev_node_major("quor_igmp")) << s.log;
		if (!s.ret) {	/* the API works without the device */
			add(1, "239.1.1.1");
			cleanup_module();
		}
		nothing_left(s.want);
		EXPECT_FALSE(host_chrdev_registered(254));
		EXPECT_TRUE(host_chrdev_registered(1));
	}
	__unregister_chrdev(1, 0, QUOR_IGMP_MINORS, "other");
	quor_igmp_major = QUOR_IGMP_MAJOR;
	ASSERT_EQ(0, init_module());	/* for TearDown */
	loaded = true;
}

} // namespace
