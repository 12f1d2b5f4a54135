#!/bin/busybox sh
# SPDX-License-Identifier: GPL-2.0
#
# /init of the benchmark guest (make bench-qemu): a bridge br0 with the
# ports in0 (ingress) and eth0.1..eth0.5, MDB entries for 239.1.1.1 on
# eth0.1..eth0.4, the multicast module with the same four LAN ports, and
# jix_bridge_bench.ko timing the same frames through both.  The host
# prints what lies between the BENCH lines and trusts the last line:
#   JIXBENCH OK    or    JIXBENCH FAIL: <what>

/bin/busybox mkdir -p /proc /sys /dev /tmp /sbin /usr/bin /usr/sbin
/bin/busybox --install -s
export PATH=/bin:/sbin:/usr/bin:/usr/sbin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
exec 0</dev/console 1>/dev/console 2>&1

M=/lib/jix
G=239.1.1.1
BENCH_ARGS=
[ ! -f /etc/jixbench.conf ] || . /etc/jixbench.conf

end() { echo "JIXBENCH $1"; sync; poweroff -f; }
( sleep 1500; end "FAIL: the benchmark did not finish" ) &
run() { "$@" || end "FAIL: $*"; }

dmesg -n 1
# The bridge with its own querier, so that its MDB decides where group
# traffic goes (without a querier it floods); the querier's startup query
# goes out at once, the next only after an hour, outside the timed runs.
for k in dummy llc stp bridge; do run insmod $M/$k.ko; done
# No IPv6 on the new devices: its neighbour discovery and MLD reports
# would leave on the ports during the timed runs.
echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6
run ip link add br0 type bridge
B=/sys/class/net/br0/bridge
for d in in0 eth0.1 eth0.2 eth0.3 eth0.4 eth0.5; do
	run ip link add $d type dummy
	run ip link set $d master br0
	run ip link set $d up
done
run ip link set br0 up
echo 1 > $B/multicast_snooping
echo 1 > $B/multicast_startup_query_count
echo 360000 > $B/multicast_query_interval
echo 100 > $B/multicast_query_response_interval
echo 1 > $B/multicast_querier
run mdbadd br0 $G eth0.1 eth0.2 eth0.3 eth0.4
# Another querier's response time (1 s) must pass before the MDB counts.
sleep 2

run insmod $M/quor_platform.ko
run insmod $M/jix_xpon_multicast.ko

echo "BENCH BEGIN"
echo "# $(uname -m), Linux $(uname -r), $(nproc) processors, $(grep -c . /proc/modules) modules loaded"
rc=0
insmod $M/jix_bridge_bench.ko $BENCH_ARGS || rc=$?
dmesg | grep -o 'jix_bridge_bench: .*'
echo "BENCH END"
[ $rc = 0 ] || end "FAIL: insmod jix_bridge_bench.ko $BENCH_ARGS"
end OK
