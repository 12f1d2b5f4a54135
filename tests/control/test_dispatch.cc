// The two hook entry points and the thin API operations.
#include "support/module_fixture.h"

using namespace jt;

namespace {

class Dispatch : public ModuleTest {};

int interval(u32 id, s32 *result)
{
	quor_peer_mc mc{};
	mc.in_function_id = id;
	mc.result = 777;
	int ret = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_INTERVAL, &mc);
	*result = mc.result;
	return ret;
}

// Slot 0 runs the data handler, which leaves a frame-less call to the
// kernel; every other slot is empty or out of range.
TEST_F(Dispatch, IntervalSlots)
{
	s32 res;

	EXPECT_EQ(1, interval(0, &res));
	EXPECT_EQ(-1, res);
	quor_mc_debug_level = 0;
	EXPECT_EQ(-1, interval(7, &res));
	EXPECT_EQ(777, res);
	EXPECT_EQ("mc_data->in_function_id is 7, exceed max number: 7\n", log_take());
	for (u32 id = 1; id <= 6; id++) {
		EXPECT_EQ(-1, interval(id, &res));
		EXPECT_EQ(777, res);
		EXPECT_EQ("Function_id is " + std::to_string(id) + ", NULL funtion hook\n",
			  log_take());
	}
}

TEST_F(Dispatch, ApiIndexOutOfRange)
{
	quor_mc_debug_level = 0;
	auto r = api(15, nullptr);
	EXPECT_EQ(-1, r.hook);
	EXPECT_EQ(12345, r.result);
	EXPECT_EQ("mc_data->api_function_id is 15, exceed max number: 15\n", log_take());
	EXPECT_EQ(-1, api(1000, nullptr).hook);
	EXPECT_EQ("mc_data->api_function_id is 1000, exceed max number: 15\n", log_take());
}

TEST_F(Dispatch, TraceAtLevelThreeOnly)
{
	u32 mode;

	api(QUOR_MC_API_GET_FILTER_MODE, &mode);
	EXPECT_EQ("", log_take());
	quor_mc_debug_level = 3;
	api(QUOR_MC_API_GET_FILTER_MODE, &mode);
	EXPECT_EQ("[quor_jix_muliticast_api_hook]Enter, function_id=11\n"
		  "[quor_mc_hook_get_filter_mode]Enter\n", log_take());
}

TEST_F(Dispatch, FailingOperationStillRanTheHook)
{
	auto r = api(QUOR_MC_API_ENTRY_ADD, nullptr);
	EXPECT_EQ(1, r.hook);
	EXPECT_EQ(-1, r.result);
	for (u32 id : { 4u, 5u, 6u, 9u, 10u, 11u, 12u, 13u })
		EXPECT_EQ(-1, api(id, nullptr).result) << id;
}

int rx_a(u8, u8 *, u32) { return 1; }
int rx_b(u8, u8 *, u32) { return 0; }

TEST_F(Dispatch, SetRecvCallbackReplacesAndNullKeepsOld)
{
	quor_mc_rx_cb_t cb = rx_a;

	EXPECT_EQ(2, api(QUOR_MC_API_SET_RECV_CB, &cb).result);
	EXPECT_EQ(rx_a, quor_mc_ctrl_packet_rx_cb_func);
	EXPECT_EQ(-1, api(QUOR_MC_API_SET_RECV_CB, nullptr).result);
	EXPECT_EQ(rx_a, quor_mc_ctrl_packet_rx_cb_func);
	cb = rx_b;
	api(QUOR_MC_API_SET_RECV_CB, &cb);
	EXPECT_EQ(rx_b, quor_mc_ctrl_packet_rx_cb_func);
	cb = nullptr;
	EXPECT_EQ(2, api(QUOR_MC_API_SET_RECV_CB, &cb).result);
	EXPECT_EQ(nullptr, quor_mc_ctrl_packet_rx_cb_func);
}

TEST_F(Dispatch, XmitSendsAFreshBufferOutOfThePort)
{
	net_device *d = netdev("eth0.3");
	u8 frame[60], out[2048];

	for (size_t i = 0; i < sizeof(frame); i++)
		frame[i] = (u8)i;
	EXPECT_EQ(2, api_u8(QUOR_MC_API_XMIT, 2, 1, frame, sizeof(frame)).result);
	ASSERT_EQ(1u, host_netdev_tx_count(d));
	ASSERT_EQ(60, host_netdev_tx_frame(d, 0, out, sizeof(out)));
	EXPECT_EQ(0, memcmp(frame, out, 60));
	EXPECT_EQ(2u, host_netdev_tx_vendor_flags(d, 0) & 2u);
	EXPECT_EQ(1, host_netdev_refcnt(d)); // the port map's own reference
}

TEST_F(Dispatch, XmitRefusesBadPortMissingDeviceAndOversizedFrame)
{
	net_device *pon = netdev("pon");
	static u8 big[2048];

	EXPECT_EQ(-1, api_u8(QUOR_MC_API_XMIT, 34, 0, big, 60).result);
	EXPECT_EQ(-1, api_u8(QUOR_MC_API_XMIT, 0, 0, big, 60).result); // no eth0.1
	// 2 KiB buffer minus 64 bytes of headroom.
	EXPECT_EQ(-1, api_u8(QUOR_MC_API_XMIT, 32, 0, big, 2048 - 64 + 1).result);
	EXPECT_EQ(0u, host_netdev_tx_count(pon));
	EXPECT_EQ(2, api_u8(QUOR_MC_API_XMIT, 32, 0, big, 2048 - 64).result);
	EXPECT_EQ(1u, host_netdev_tx_count(pon));
	host_alloc_fail_nth(1);
	EXPECT_EQ(-1, api_u8(QUOR_MC_API_XMIT, 32, 0, big, 60).result);
	EXPECT_EQ(1u, host_netdev_tx_count(pon));
}

TEST_F(Dispatch, FilterModeAndSnoopingSetAndGet)
{
	u32 mode = 6;

	EXPECT_EQ(2, api(QUOR_MC_API_SET_FILTER_MODE, &mode).result);
	EXPECT_EQ("[quor_igmp_set_filterMode]quor_igmp filter mode should be 0~5\n",
		  log_take());
	mode = 99;
	api(QUOR_MC_API_GET_FILTER_MODE, &mode);
	EXPECT_EQ(4u, mode);
	mode = 1;
	api(QUOR_MC_API_SET_FILTER_MODE, &mode);
	mode = 99;
	api(QUOR_MC_API_GET_FILTER_MODE, &mode);
	EXPECT_EQ(1u, mode);

	u8 v = 0xAA;

	EXPECT_EQ(2, api(QUOR_MC_API_GET_SNOOPING, &v).result);
	EXPECT_EQ(1, v);
	v = 0;
	EXPECT_EQ(2, api(QUOR_MC_API_SET_SNOOPING, &v).result);
	v = 0xAA;
	api(QUOR_MC_API_GET_SNOOPING, &v);
	EXPECT_EQ(0, v);
}

TEST_F(Dispatch, ClearByPortOnEmptyDatabaseDoesNothing)
{
	EXPECT_EQ(2, api_u8(QUOR_MC_API_CLEAR_BY_PORT, 3).result);
	EXPECT_EQ(2, api(QUOR_MC_API_CLEAR_ALL, nullptr).result);
	EXPECT_TRUE(fake::calls.empty());
}

ApiResult set_type(const char *name, u32 type)
{
	quor_peer_mc mc{};
	mc.api_function_id = QUOR_MC_API_SET_PORT_TYPE;
	mc.param.val = type;
	mc.param2 = (void *)name;
	int ret = __QUOR_HOOK(QUOR_HOOK_TYPE_MULTICAST, QUOR_MC_SUBTYPE_API, &mc);
	return { ret, mc.result };
}

TEST_F(Dispatch, PortTypeFromInterfaceName)
{
	EXPECT_EQ(-1, set_type("eth0.2", 0).result);
	EXPECT_EQ(-1, set_type("eth0.2", 3).result);
	EXPECT_EQ(0u, PORT_TYPE[1]);
	EXPECT_EQ(2, set_type("eth0.2", 2).result);
	EXPECT_EQ(2u, PORT_TYPE[1]);
	EXPECT_EQ(2, set_type("ethX.8", 1).result); // character 3 is not looked at
	EXPECT_EQ(1u, PORT_TYPE[7]);
	EXPECT_EQ(2, set_type("ux0", 1).result); // any other name: slot 0
	EXPECT_EQ(1u, PORT_TYPE[0]);
	EXPECT_EQ(2, set_type("eth", 2).result); // too short to be eth?.N
	EXPECT_EQ(2u, PORT_TYPE[0]);
	// "eth0.0" names index 255, outside the table: refused.
	EXPECT_EQ(-1, set_type("eth0.0", 1).result);
	EXPECT_EQ(-1, set_type("eth0.", 1).result);
	EXPECT_EQ(-1, set_type(nullptr, 1).result);
}

TEST_F(Dispatch, PortTypeChangeClearsThatPortsEntries)
{
	auto a = entry(1, "239.1.1.1"), b = entry(2, "239.1.1.1");

	quor_igmp_add_entry(&a);
	quor_igmp_add_entry(&b);
	quor_mc_debug_level = 3;
	set_type("eth0.2", 2);
	EXPECT_NE(std::string::npos,
		  log_take().find("[quor_igmp_set_port_type]portName:eth0.2 portType:2\n"));
	auto v = fdb_entries();
	ASSERT_EQ(1u, v.size());
	EXPECT_EQ(2, v[0].port);
	// Setting the value already stored clears nothing.
	quor_igmp_add_entry(&a);
	set_type("eth0.2", 2);
	EXPECT_EQ(2u, fdb_entries().size());
}

} // namespace
