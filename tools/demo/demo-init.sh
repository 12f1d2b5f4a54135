#!/bin/busybox sh
# SPDX-License-Identifier: GPL-2.0
#
# /init of the demonstration guest (make run): the module forwarding one
# multicast stream from the uplink to three LAN ports, each with its own
# VLAN treatment, and not to a fourth port that has no membership.
# Everything for the reader lies between the DEMO lines; the host prints
# just that.

/bin/busybox mkdir -p /proc /sys /dev /tmp
/bin/busybox --install -s
export PATH=/bin:/sbin:/usr/bin:/usr/sbin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
exec 0</dev/console 1>/dev/console 2>&1

M=/lib/jix
KV=/proc/kv7730
G=239.1.1.1
GM=01:00:5e:01:01:01
FRAMES=100

end() { echo "JIXDEMO $1"; sync; poweroff -f; }
( sleep 120; end "FAIL: the demonstration did not finish" ) &
run() { "$@" || end "FAIL: $*"; }

dmesg -n 1
run insmod $M/veth.ko
# A veth's peer is born veth0 and renamed at once.
for l in pon:pon-p eth0.1:e01-p eth0.2:e02-p eth0.3:e03-p eth0.4:e04-p; do
	run ip link add "${l%%:*}" type veth
	run ip link set veth0 name "${l#*:}"
	run ip link set "${l%%:*}" up
	run ip link set "${l#*:}" up
done
run insmod $M/quor_platform.ko
run insmod $M/jix_xpon_multicast.ko

echo "DEMO BEGIN"
echo "# $(uname -m), Linux $(uname -r), $(nproc) processors"
echo "# modules: $(cut -d' ' -f1 /proc/modules | grep -e jix -e quor | tr '\n' ' ')"
echo "# group $G on VLAN 100: eth0.1 transparent, eth0.2 strip, eth0.3 add VLAN 300, eth0.4 not a member"
echo "\$ mcctl add $G $GM 0 100 0"
run mcctl add $G $GM 0 100 0
echo "\$ mcctl add $G $GM 1 100 3"
run mcctl add $G $GM 1 100 3
echo "\$ mcctl add $G $GM 2 100 4 8100 012c 8100 0fff"
run mcctl add $G $GM 2 100 4 8100 012c 8100 0fff
echo "# $FRAMES UDP frames to $G, tagged 8100:100 (VLAN 100), sent into pon"
run jixtest stream pon-p $FRAMES $G 8100:100 e01-p e02-p e03-p e04-p > /tmp/rx
awk '
	$1 == "TX" { sub("frames=", "", $3); printf "sent into pon: %s frames\n", $3 }
	$1 == "RX" {
		port = $2; sub("-p$", "", port); sub("^e0", "eth0.", port)
		n = $3; sub("frames=", "", n)
		t = $4; sub("tags=", "", t)
		printf "%-7s received %3d frames, first frame tags: %s\n", port, n, n ? t : "-"
	}' /tmp/rx
echo
echo "\$ mcctl show"
mcctl show
for f in jix_mc_fwd_entry jix_mc_acnt_mapping jix_mc_hwnat_entry jix_mc_debug; do
	echo
	echo "\$ cat $KV/$f"
	cat $KV/$f
done
echo "DEMO END"
run rmmod jix_xpon_multicast
run rmmod quor_platform
end OK
