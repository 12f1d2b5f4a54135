#!/bin/busybox sh
# SPDX-License-Identifier: GPL-2.0
#
# /init of the QEMU test guest.  Loads veth, quor_platform.ko and
# jix_xpon_multicast.ko, drives the module through its proc files, the
# ioctl device (mcctl, jixtest) and the control API hook (jix_mc_probe.ko),
# unloads everything, and prints one summary line for the host:
#   JIXTEST PASS <checks>      or      JIXTEST FAIL <what failed>; ...
# then powers off.  The host trusts nothing else.

/bin/busybox mkdir -p /proc /sys /dev /tmp /sbin /usr/bin /usr/sbin
/bin/busybox --install -s
export PATH=/bin:/sbin:/usr/bin:/usr/sbin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
exec 0</dev/console 1>/dev/console 2>&1
# STORM_S (seconds of the concurrency test) and WATCHDOG_S, from run.sh.
STORM_S=15
WATCHDOG_S=420
[ ! -f /etc/jixtest.conf ] || . /etc/jixtest.conf
# kmemleak (debug kernels booted with kmemleak=on) lives in debugfs.
mkdir -p /sys/kernel/debug
mount -t debugfs debugfs /sys/kernel/debug 2>/dev/null
LEAKS=/sys/kernel/debug/kmemleak
[ -w $LEAKS ] || LEAKS=

M=/lib/jix
PROBE=$M/jix_mc_probe.ko
KV=/proc/kv7730
FWD=$KV/jix_mc_fwd_entry
DBG=$KV/jix_mc_debug
PTYPE=$KV/jix_mc_port_type
ACNT=$KV/jix_mc_acnt_mapping
# interface, veth peer, port id
LINKS="pon:pon-p:32 eth0.1:e01-p:0 eth0.2:e02-p:1 eth0.3:e03-p:2 eth0.4:e04-p:3 ux0:ux0-p:16"

TAB=$(printf '\t')
NPASS=0
FAILS=
KNOWN=

finish() {
	klog_flush
	echo "guest time: $(cut -d' ' -f1 /proc/uptime) s"
	[ -z "$KNOWN" ] || echo "JIXTEST KNOWN$KNOWN"
	if [ -z "$FAILS" ]; then
		echo "JIXTEST PASS $NPASS"
	else
		echo "JIXTEST FAIL$FAILS"
	fi
	sync
	poweroff -f
}

# A stuck step (a device reference that is never released, an rmmod that
# waits for ever) ends the run with a clear line rather than the host's
# timeout.
( sleep $WATCHDOG_S; echo "JIXTEST FAIL guest watchdog: a step did not return"; poweroff -f ) &

ok() { NPASS=$((NPASS + 1)); echo "ok $NPASS - $1"; }
fail() { echo "FAILED - $1"; FAILS="$FAILS; $1"; }
check() { d=$1; shift; if "$@"; then ok "$d"; else fail "$d"; fi; }
die() { fail "$1"; finish; }
# known_fault DESC WHY CMD...: a check that fails for a known, reported
# reason.  It is listed, not counted; once it passes it fails the run, so
# the mark is removed with the fault.
known_fault() {
	d=$1; why=$2; shift 2
	if "$@"; then
		fail "$d passes now: remove its known-fault mark"
	else
		echo "KNOWN - $d: $why"
		KNOWN="$KNOWN; $d"
	fi
}

# The kernel log so far goes to /tmp/klog, so later greps see only what
# follows and the final audit still sees everything.
klog_flush() { dmesg -c >> /tmp/klog 2>/dev/null; }
klog_has() { dmesg | grep -qF -- "$1"; }
klog_lacks() { ! dmesg | grep -qF -- "$1"; }

# same_text DESC FILE: FILE must read exactly as /tmp/exp.
same_text() {
	cat "$2" > /tmp/got 2>/dev/null
	if cmp -s /tmp/exp /tmp/got; then
		ok "$1"
	else
		fail "$1"
		diff /tmp/exp /tmp/got | head -n 20
	fi
}

# same_output DESC CMD...: the command's standard output must be /tmp/exp.
same_output() {
	d=$1; shift
	"$@" > /tmp/out 2>/dev/null
	same_text "$d" /tmp/out
}

# exits_with DESC CODE CMD...
exits_with() {
	d=$1; want=$2; shift 2
	"$@" > /dev/null 2>&1
	got=$?
	if [ "$got" = "$want" ]; then ok "$d"; else fail "$d (exit $got, want $want)"; fi
}

# output_is DESC TEXT CMD...: one-line output compare.
output_is() {
	d=$1; want=$2; shift 2
	got=$("$@" 2>&1)
	if [ "$got" = "$want" ]; then ok "$d"; else fail "$d (got '$got', want '$want')"; fi
}

# probe_run CMD...: run a command that loads jix_mc_probe.ko; its log
# lines land in $PROBE_OUT and the probe is unloaded again.
probe_run() {
	klog_flush
	"$@" > /tmp/probe_cmd 2>&1
	rc=$?
	PROBE_OUT=$(dmesg | grep -o 'jix_mc_probe: .*')
	rmmod jix_mc_probe 2>/dev/null
	return $rc
}
probe_said() {
	case "$PROBE_OUT" in
	*"$2"*) ok "$1" ;;
	*) fail "$1 (probe said '$PROBE_OUT')"; cat /tmp/probe_cmd ;;
	esac
}

# xmit_seen PORT PEER: op 1 on PORT sends exactly the test frame to PEER.
xmit_seen() {
	probe_run jixtest recv "$2" "$1" 3000 insmod $PROBE xmit_port="$1"
	r=$?
	probe_said "API transmit on port $1 answers 2" \
		"xmit port=$1 len=60 result=2 hook=1"
	if [ $r = 0 ]; then
		ok "port $1 frame arrives once, intact, on $2"
	else
		fail "port $1 frame on $2: $(tail -n 1 /tmp/probe_cmd)"
	fi
}

# not_listed PORT GROUP: mcctl lists no entry of GROUP on PORT.
not_listed() {
	out=$(mcctl show --port "$1" --json) || return 1
	case $out in *"\"group\":\"$2\""*) return 1 ;; esac
}

# deleted_at_once LINK WHEN: deleting LINK (and its peer) must not wait
# for references.  A leaked one blocks the kernel's device teardown, and
# every later link change or rmmod veth with it: stop right there.
deleted_at_once() {
	if jixtest del "$1" 2000; then
		ok "$1 is deleted at once $2"
	else
		die "$1 is not deleted at once $2: a device reference is held"
	fi
}

# ---- expected texts ----

fwd_head() {
	printf 'IGMP Snooping: %s\nFilter Mode: %s\n' "$1" "$2"
	printf 'flow_idx port\tvlan\tgrp_mac\t\t\tv_mode\to_tpid\to_tci\ti_tpid\ti_tci\tgrp_ip/src_ip\n'
}
fwd_tail() {
	printf '\nHelp info:\n'
	printf 'filter_mode: 0-IP&VID, 1-MAC, 2-IP&SRC_IP, 3-MAC&VID, 4-MAC&IP, 5-MAC&IP&VID\n'
	printf 'vlan_mode: 0-transparent, 1-replace, 2-replace&remark, 3-strip, 4-add, 5-add&remark\n'
}
# fwd_line PORT VLAN MAC MODE OTPID OTCI ITPID ITCI GROUP/SOURCE
fwd_line() {
	printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n' -1 "$@"
}
V6ZERO=0000:0000:0000:0000:0000:0000:0000:0000

port_type_text() {	# [PORT TYPE]
	printf 'port type (0:default mode type, 1:hybrid sfu, 2:hybrid hgu)\n'
	i=0
	while [ $i -lt 32 ]; do
		t=0
		[ "$i" = "$1" ] && t=$2
		printf 'port:%d type:%d; \n' $i $t
		i=$((i + 1))
	done
}

acnt_text() {	# [GROUP of slot 0 [GROUP of slot 1 ...]]
	printf 'valid\tgrp_addr\t\tacnt_id\n'
	i=0
	while [ $i -lt 32 ]; do
		if [ $# -gt 0 ]; then
			printf '0\t[%s]\t\t%d\n' "$1" $i
			shift
		else
			printf '1\t[0.0.0.0]\t\t%d\n' $i
		fi
		i=$((i + 1))
	done
}

# json_show "PORT=ENTRIES" ...: what `mcctl show --json` prints with zero
# counters, ENTRIES being the port's entry objects.
json_show() {
	printf '{"ports":['
	p=0
	while [ $p -le 33 ]; do
		ents=
		for a in "$@"; do
			[ "${a%%=*}" = "$p" ] && ents=${a#*=}
		done
		[ $p -gt 0 ] && printf ','
		printf '{"port":%d,"total_pkts":0,"total_bytes":0,"entries":[%s]}' $p "$ents"
		p=$((p + 1))
	done
	printf ']}\n'
}
# json_entry GROUP MAC VLAN MODE OTPID OTCI ITPID ITCI (decimal tags)
json_entry() {
	printf '{"group":"%s","mac":"%s","vlan":%s,"vlan_mode":%s,"outer_tpid":%s,"outer_tci":%s,"inner_tpid":%s,"inner_tci":%s,"packets":0,"bytes":0}' "$@"
}

# kmemleak_verdict: scan twice, a few seconds apart (an object is reported
# once it has been unreferenced for 5 s), and fail on a leak whose
# backtrace names one of our modules, or holds a frame that no longer
# resolves (code of a module unloaded since: only ours are, at this point).
# The frame addresses show as (____ptrval____) while the guest has no
# randomness for hashing them.
# Other leaks are listed by their first line only, but for the first.
kmemleak_verdict() {
	[ -n "$LEAKS" ] || return 0
	echo scan > $LEAKS
	sleep 6
	echo scan > $LEAKS
	cat $LEAKS > /tmp/leaks
	awk '
	function flush() {
		if (obj == "")
			return
		if (ours) {
			print rec; n++
		} else if (!others++) {
			gsub(/kmemleak: leak\| /, "other leak| ", rec); print rec
		} else {
			print "other leak: " obj
		}
		obj = ""; rec = ""; ours = 0
	}
	/^unreferenced object/ { flush(); obj = $0 }
	{ if (obj != "") rec = rec "kmemleak: leak| " $0 "\n" }
	/\[(jix_xpon_multicast|quor_platform|jix_mc_probe|jix_hw_probe)\]/ { ours = 1 }
	/\[<[^>]*>\] 0x[0-9a-f]+$/ { ours = 1 }
	END { flush(); exit n > 0 }' /tmp/leaks > /tmp/leaks.ours
	r=$?
	cat /tmp/leaks.ours
	echo "kmemleak: $(grep -c '^unreferenced object' /tmp/leaks) unreferenced objects in all"
	return $r
}

# =====================================================================
echo "jixtest: guest up after $(cut -d' ' -f1 /proc/uptime) s on $(uname -m), $(nproc) cpus"
if [ -n "$LEAKS" ]; then
	# What the boot left unreferenced is not ours: forget it.
	echo scan > $LEAKS
	echo clear > $LEAKS
fi

insmod $M/veth.ko || die "insmod veth"
for l in $LINKS; do
	n=${l%%:*}
	p=${l#*:}
	p=${p%%:*}
	jixtest veth "$n" "$p" || die "veth pair $n/$p"
done
# The module binds the existing devices at start and sees them again when
# its notifier is registered: one reference each, checked at the end.
insmod $M/quor_platform.ko || die "insmod quor_platform"
# Debian's kernel hands 253 to one of its own drivers: the module then
# takes a dynamic major, and its class device makes the node either way.
holder=$(sed -n '/^Character/,/^$/p' /proc/devices | awk '$1 == 253 { print $2 }')
insmod $M/jix_xpon_multicast.ko || die "insmod jix_xpon_multicast"
check "/dev/quor_igmp appears by itself" [ -c /dev/quor_igmp ]
MAJ=$(cut -d: -f1 /sys/class/quor_igmp/quor_igmp/dev)
node_major() { ls -l /dev/quor_igmp | awk '{ print $5 }' | tr -d ,; }
check "the node has the class device's major $MAJ" [ "$(node_major)" = "$MAJ" ]
if [ -n "$holder" ]; then
	check "253 taken by $holder: the log names major $MAJ" \
		klog_has "quor_igmp: major 253 is taken, using major $MAJ"
else
	check "253 free: the module has it" [ "$MAJ" = 253 ]
fi
grep -q "^ *$MAJ quor_igmp\$" /proc/devices
check "/proc/devices lists quor_igmp at $MAJ" [ $? = 0 ]
klog_flush

# ---- start-up state of the proc files ----
for f in jix_mc_hwnat_entry jix_mc_acnt_mapping jix_mc_fwd_entry jix_mc_debug jix_mc_port_type; do
	check "/proc/kv7730/$f exists" [ -f $KV/$f ]
done
printf '1\n' > /tmp/exp
same_text "debug level reads 1 after start" $DBG
{ fwd_head on 4; fwd_tail; } > /tmp/exp
same_text "forwarding table starts empty, snooping on, filter mode 4" $FWD
port_type_text > /tmp/exp
same_text "port types start at 0 for ports 0..31" $PTYPE
acnt_text > /tmp/exp
same_text "32 accounting slots free with counters 0..31" $ACNT

# ---- ioctl commands through mcctl and raw ----
output_is "filter mode reads 4 (command 8)" 4 mcctl filter-mode
output_is "snooping reads on (command 10)" on mcctl snooping
json_show > /tmp/exp
same_output "show lists no entries on any port (command 6)" mcctl show --json
output_is "command 8 answers the mode as result and argument" \
	"ret=4 errno=0 out=0x00000004" jixtest ioctl 8
output_is "command 10 writes exactly one byte" \
	"ret=0 errno=0 out=0xa5a5a501" jixtest ioctl 10
output_is "command 0 is refused" "ret=-1 errno=1 out=0xa5a5a5a5" jixtest ioctl 0
output_is "command 11 is refused" "ret=-1 errno=1 out=0xa5a5a5a5" jixtest ioctl 11
exits_with "usage error exits 2" 2 mcctl add 239.1.1.1
exits_with "unknown command exits 2" 2 mcctl frobnicate
exits_with "missing device exits 3" 3 mcctl --dev /dev/nonexistent show
# Without the node, or with a stale one made by hand for another major,
# mcctl finds the device through its class.
rm /dev/quor_igmp
output_is "mcctl finds the device without a node" 4 mcctl filter-mode
mknod /dev/quor_igmp c 1 3
output_is "mcctl passes over a node of another major" 4 mcctl filter-mode
rm /dev/quor_igmp
mknod /dev/quor_igmp c "$MAJ" 0

# ---- entries through the proc file, mcctl and the API hook ----
echo "add ipv4 239.1.1.1 01:00:5e:01:01:01 0 -1 0 0 0 0 0" > $FWD
check "proc add is accepted" [ $? = 0 ]
exits_with "mcctl add exits 0 (command 1)" 0 \
	mcctl add 239.2.2.2 01:00:5e:02:02:02 1 100 1 8100 0064
probe_run insmod $PROBE add_grp=239.3.3.3 add_port=16
probe_said "API add answers 2" "add 239.3.3.3 port=16 result=2 hook=1"
echo "add ipv6 ff0e:0:0:0:0:0:0:101 33:33:00:00:01:01 2 -1 0 0 0 0 0" > $FWD
probe_run insmod $PROBE add_grp=ff05::2 add_port=3 add_vlan=20 add_mode=3
probe_said "API add of an IPv6 group answers 2" "add ff05::2 port=3 result=2 hook=1"

{
	fwd_head on 4
	fwd_line 0 -1 01:00:5E:01:01:01 0 0x0000 0x0000 0x0000 0x0000 239.1.1.1/0.0.0.0
	fwd_line 1 100 01:00:5E:02:02:02 1 0x8100 0x0064 0x0000 0x0000 239.2.2.2/0.0.0.0
	fwd_line 16 -1 01:00:5E:03:03:03 0 0x0000 0x0000 0x0000 0x0000 239.3.3.3/0.0.0.0
	fwd_line 2 -1 33:33:00:00:01:01 0 0x0000 0x0000 0x0000 0x0000 \
		FF0E:0000:0000:0000:0000:0000:0000:0101/$V6ZERO
	fwd_line 3 20 33:33:00:00:00:02 3 0x0000 0x0000 0x0000 0x0000 \
		FF05:0000:0000:0000:0000:0000:0000:0002/$V6ZERO
	fwd_tail
} > /tmp/exp
same_text "entries from all three paths in the proc text, in order" $FWD
E0=$(json_entry 239.1.1.1 01:00:5e:01:01:01 -1 0 0 0 0 0)
E1=$(json_entry 239.2.2.2 01:00:5e:02:02:02 100 1 33024 100 0 0)
E2=$(json_entry ff0e::101 33:33:00:00:01:01 -1 0 0 0 0 0)
E3=$(json_entry ff05::2 33:33:00:00:00:02 20 3 0 0 0 0)
E16=$(json_entry 239.3.3.3 01:00:5e:03:03:03 -1 0 0 0 0 0)
json_show "0=$E0" "1=$E1" "2=$E2" "3=$E3" "16=$E16" > /tmp/exp
same_output "entries from all three paths in mcctl show --json" mcctl show --json
# IPv6 groups show their first four bytes.
acnt_text 239.1.1.1 239.2.2.2 239.3.3.3 255.14.0.0 255.5.0.0 > /tmp/exp
same_text "each group added is bound to the next accounting slot" $ACNT

output_is "get-entries with negative capacity writes nothing" \
	"ret=0 entry_num=0 guard=ok" jixtest get 2 -1 1
output_is "get-entries with a huge capacity writes only the port's entries" \
	"ret=1 entry_num=1 guard=ok" jixtest get 2 0x7fffffff 1
output_is "get-entries of a port without entries" \
	"ret=0 entry_num=0 guard=ok" jixtest get 5 4 4

# update, delete, clear
exits_with "update of an existing entry exits 0 (command 3)" 0 \
	mcctl update 239.2.2.2 01:00:5e:02:02:02 1 200 2 88a8 00c8
exits_with "update of a missing entry exits 4" 4 \
	mcctl update 239.9.9.9 01:00:5e:09:09:09 1
exits_with "delete exits 0" 0 mcctl del 239.1.1.1 01:00:5e:01:01:01 0
check "mcctl del removes the entry" not_listed 0 239.1.1.1
exits_with "delete of a missing entry exits 0" 0 mcctl del 239.1.1.1 01:00:5e:01:01:01 0
exits_with "the entry added again" 0 mcctl add 239.1.1.1 01:00:5e:01:01:01 0
echo "del ipv4 239.1.1.1 01:00:5e:01:01:01 0 -1 0 0 0 0 0" > $FWD
check "proc del removes the entry" not_listed 0 239.1.1.1
exits_with "clear of one port exits 0 (command 4)" 0 mcctl clear --port 16
E1=$(json_entry 239.2.2.2 01:00:5e:02:02:02 200 2 34984 200 0 0)
json_show "1=$E1" "2=$E2" "3=$E3" > /tmp/exp
same_output "update changed, delete and clear-by-port removed" mcctl show --json

# filter mode (commands 7 and 8)
output_is "filter mode 6 is refused but answers 0" \
	"ret=0 errno=0 out=0x00000006" jixtest ioctl 7 6
output_is "filter mode stays 4" 4 mcctl filter-mode
exits_with "setting the current filter mode exits 0" 0 mcctl filter-mode 4
same_output "setting the current filter mode keeps the entries" mcctl show --json
exits_with "setting filter mode 5 exits 0" 0 mcctl filter-mode 5
output_is "filter mode reads 5" 5 mcctl filter-mode
{ fwd_head on 5; fwd_tail; } > /tmp/exp
same_text "changing the filter mode emptied the table" $FWD
mcctl filter-mode 4

# snooping (commands 9 and 10)
mcctl add 239.4.4.4 01:00:5e:04:04:04 0
exits_with "snooping off exits 0 (command 9)" 0 mcctl snooping off
output_is "snooping reads off" off mcctl snooping
output_is "command 10 reads the switch off" \
	"ret=0 errno=0 out=0xa5a5a500" jixtest ioctl 10
{ fwd_head off 4; fwd_tail; } > /tmp/exp
same_text "snooping off emptied the table and shows off" $FWD
mcctl snooping on
mcctl add 239.4.4.4 01:00:5e:04:04:04 0
exits_with "clear all exits 0 (command 5)" 0 mcctl clear
json_show > /tmp/exp
same_output "clear all left no entry" mcctl show --json

# ---- entries by name, listed as JSON and parsed ----
json_has() {	# DESC CMD -- KEY=VALUE...: the command's JSON has such an object
	d=$1; c=$2; shift 2
	n=$($c 2>&1 | jixtest json "$@")
	case $n in 0) fail "$d (none in: $($c 2>&1 | head -c 300))" ;; [1-9]*) ok "$d" ;; *) fail "$d: $n" ;; esac
}
exits_with "add by name, bridge mdb style" 0 \
	mcctl add 239.20.20.20 port eth0.3 vlan 100 mode add outer 8100:300
exits_with "add by name with grp, priority and an inner tag" 0 \
	mcctl add grp ff3e::20 port ux0 vid 7 mode replace-remark outer 88a8:30:p5 inner 8100:0x0fff
exits_with "a bad port name exits 2" 2 mcctl add 239.20.20.20 port eth0.9
output_is "the error names the word" \
	"mcctl: bad VLAN mode 'swap': expected transparent, replace, replace-remark, strip, add, add-remark or 0..5" \
	sh -c "mcctl add 239.20.20.20 port eth0.3 mode swap 2>&1 | head -n 1"
json_has "the named entry lists on eth0.3 with its MAC, mode and tag" \
	"mcctl show --port eth0.3 --json" group=239.20.20.20 \
	mac=01:00:5e:14:14:14 vlan=100 vlan_mode=4 outer_tpid=33024 outer_tci=300
json_has "the IPv6 entry lists on ux0 with both tags" "mcctl show --port ux0 --json" \
	group=ff3e::20 mac=33:33:00:00:00:20 vlan=7 vlan_mode=2 outer_tpid=34984 \
	outer_tci=40990 inner_tpid=33024 inner_tci=4095
json_has "ports: eth0.3 has its device and one entry" "mcctl ports --json" \
	port=2 name=eth0.3 type=0 device=true entries=1
json_has "ports: eth0.8 has no device" "mcctl ports --json" name=eth0.8 device=false entries=0
json_has "groups: the group holds a counter" "mcctl groups --json" group=239.20.20.20 entries=1
exits_with "delete by name" 0 mcctl del 239.20.20.20 port eth0.3 vlan 100 mode add outer 8100:300
exits_with "delete of the IPv6 entry by name" 0 mcctl del ff3e::20 port ux0 vlan 7
json_show > /tmp/exp
same_output "deleting by name left no entry" mcctl show --json

# ---- debug level gates the log ----
klog_flush
mcctl filter-mode > /dev/null
check "level 1: no ioctl trace" klog_lacks "[quor_igmp_ioctl]cmd = "
echo 3 > $DBG
printf '3\n' > /tmp/exp
same_text "debug level reads 3" $DBG
klog_flush
mcctl filter-mode > /dev/null
check "level 3: the ioctl trace names the command" klog_has "[quor_igmp_ioctl]cmd = 8"
echo 0 > $DBG
klog_flush
mcctl filter-mode > /dev/null
mcctl update 239.9.9.9 01:00:5e:09:09:09 1 > /dev/null 2>&1
probe_run insmod $PROBE xmit_port=34
probe_said "API transmit on port 34 is refused" "xmit port=34 len=60 result=-1 hook=1"
check "level 0: no trace" klog_lacks "[quor_"
klog_flush
echo abc > $DBG
check "debug write of text logs the usage" klog_has "usage: <debuglevel>"
printf '0\n' > /tmp/exp
same_text "debug write of text keeps the level" $DBG
printf '%032d' 7 > $DBG 2>/dev/null
check "debug write of 32 bytes fails" [ $? != 0 ]
same_text "debug write of 32 bytes keeps the level" $DBG
echo 1 > $DBG

# ---- port types ----
mcctl add 239.6.6.6 01:00:5e:06:06:06 0
mcctl add 239.6.6.6 01:00:5e:06:06:06 1
klog_flush
echo "eth0.2 2" > $PTYPE
check "port-type write is echoed" klog_has "portName:eth0.2 portType:2"
port_type_text 1 2 > /tmp/exp
same_text "eth0.2 type 2 makes port 1 a hybrid HGU port" $PTYPE
json_show "0=$(json_entry 239.6.6.6 01:00:5e:06:06:06 -1 0 0 0 0 0)" > /tmp/exp
same_output "a changed port type clears that port's entries only" mcctl show --json
klog_flush
echo "eth0.2 0" > $PTYPE
check "port-type write of type 0 is echoed" klog_has "portName:eth0.2 portType:0"
port_type_text 1 2 > /tmp/exp
same_text "port type 0 is refused" $PTYPE
echo "eth0.2" > $PTYPE
check "port-type write without a type logs the usage" klog_has "usage: <portName portType>"
mcctl clear

# ---- API transmit (operation 1) ----
xmit_seen 0 e01-p
xmit_seen 3 e04-p
xmit_seen 16 ux0-p
xmit_seen 32 pon-p
probe_run insmod $PROBE xmit_port=5
probe_said "API transmit on a port without device is refused" \
	"xmit port=5 len=60 result=-1 hook=1"
probe_run insmod $PROBE xmit_port=0 xmit_len=1984
probe_said "API transmit of 1984 bytes is taken" "xmit port=0 len=1984 result=2 hook=1"
probe_run insmod $PROBE xmit_port=0 xmit_len=1985
probe_said "API transmit of 1985 bytes is refused" "xmit port=0 len=1985 result=-1 hook=1"

# ---- a multicast stream through the module ----
# Frames sent into pon's peer reach the member ports' peers, each with its
# port's VLAN treatment, and nothing else; what the module leaves alone
# reaches the kernel's own stack on pon (a socket there counts it).
rx_line() { grep -q "^RX $2 frames=$3 tags=$4 len=" "$1"; }	# FILE IF N TAGS
stack_got() { grep -q "^STACK pon frames=$2\$" "$1"; }		# FILE N
stream() {	# FILE KIND GROUP TAGS: 20 frames into pon, every peer listening
	st="--stack pon"
	[ "$2" = udp6 ] && st=	# the stack's socket is IPv4 only
	jixstream $st pon-p 20 "$2" "$3" "$4" \
		e01-p e02-p e03-p e04-p ux0-p > "$1" 2>&1
	cat "$1"
}
ip addr add 192.168.77.1/24 dev pon
mcctl clear
G=239.10.10.10
GM=01:00:5e:0a:0a:0a
NOTAG="8100 0fff"	# an inner tag position left empty
mcctl add $G $GM 0 100 0
mcctl add $G $GM 1 100 1 8100 00c8 $NOTAG
mcctl add $G $GM 2 100 3
mcctl add $G $GM 16 100 4 8100 012c $NOTAG
handled() { cat /sys/module/quor_platform/parameters/rx_handled; }
h0=$(handled)
stream /tmp/s1 udp $G 8100:100
check "stream: all 20 frames offered with only skb set were handled" [ $(($(handled) - h0)) = 20 ]
check "stream: transparent port gets it as sent" rx_line /tmp/s1 e01-p 20 8100:100
check "stream: replace port gets VLAN 200" rx_line /tmp/s1 e02-p 20 8100:200
check "stream: strip port gets it untagged" rx_line /tmp/s1 e03-p 20 none
check "stream: the port without membership gets nothing" rx_line /tmp/s1 e04-p 0 none
check "stream: add port gets VLAN 300 outside VLAN 100" rx_line /tmp/s1 ux0-p 20 8100:300/8100:100
stream /tmp/s2 udp $G -
check "stream: untagged frames reach the members too" rx_line /tmp/s2 e01-p 20 none
check "stream: add port tags untagged frames with VLAN 300" rx_line /tmp/s2 ux0-p 20 8100:300
check "stream: forwarded data does not reach the stack" stack_got /tmp/s2 0
stream /tmp/s3 udp6 ff3e::10 8100:100
check "stream: an IPv6 group without members reaches nobody" rx_line /tmp/s3 e01-p 0 none
mcctl add ff3e::10 33:33:00:00:00:10 0 100 0
stream /tmp/s3 udp6 ff3e::10 8100:100
check "stream: an IPv6 group reaches its member" rx_line /tmp/s3 e01-p 20 8100:100
check "stream: an IPv6 group reaches no other port" rx_line /tmp/s3 e02-p 0 none
for kind in mdns report; do
	h0=$(handled)
	stream /tmp/s4 $kind $G -
	check "stream: $kind frames are handed back to the driver" [ "$(handled)" = "$h0" ]
	check "stream: $kind frames are not forwarded" rx_line /tmp/s4 e01-p 0 none
	check "stream: $kind frames reach the stack" stack_got /tmp/s4 20
done
stream /tmp/s5 ucast "$(cat /sys/class/net/pon/address)/192.168.77.1" -
check "stream: unicast frames are not forwarded" rx_line /tmp/s5 e01-p 0 none
check "stream: unicast frames reach the stack" stack_got /tmp/s5 20
mcctl snooping off
stream /tmp/s6 udp 239.99.99.99 8100:100
for p in e01-p e03-p e04-p ux0-p; do
	check "stream: snooping off floods $p" rx_line /tmp/s6 $p 20 8100:100
done
# eth0.2 was made a hybrid HGU port above: it gets the flood untagged.
check "stream: snooping off floods the hybrid HGU port untagged" \
	rx_line /tmp/s6 e02-p 20 none
mcctl snooping on
stream /tmp/s7 udp 239.99.99.99 8100:100
check "stream: snooping on, a group without members reaches nobody" \
	rx_line /tmp/s7 e01-p 0 none
mcctl clear

# ---- queries to the control plane, and software VLAN handling ----
QP=/sys/module/jix_mc_probe/parameters
mcctl add $G $GM 0 100 0
mcctl add $G $GM 2 100 3
klog_flush
check "query: the probe becomes the receive callback" insmod $PROBE rx_cb=1
TR=/sys/kernel/tracing
mount -t tracefs nodev $TR 2>/dev/null
echo 1 > $TR/events/jix_mc/jix_mc_query_relay/enable
echo > $TR/trace
stream /tmp/q1 query 224.0.0.1 -
check "trace: 20 general queries relayed from port 32" \
	[ "$(grep -c 'jix_mc_query_relay: ingress=32 ports=0xffffffff' $TR/trace)" = 20 ]
echo 0 > $TR/events/jix_mc/jix_mc_query_relay/enable
check "query: the callback saw the 20 general queries" [ "$(cat $QP/n_queries)" = 20 ]
check "query: they came in on port 32" klog_has "jix_mc_probe: query port=32 len="
for p in e01-p e02-p e03-p e04-p ux0-p; do
	check "query: a general query is relayed to $p" rx_line /tmp/q1 $p 20 none
done
stream /tmp/q2 query $G -
check "query: a group-specific query reaches member port 0" rx_line /tmp/q2 e01-p 20 none
check "query: a group-specific query reaches member port 2" rx_line /tmp/q2 e03-p 20 none
for p in e02-p e04-p ux0-p; do
	check "query: a group-specific query does not reach $p" rx_line /tmp/q2 $p 0 none
done
echo 0 > $QP/cb_answer
stream /tmp/q3 query 224.0.0.1 -
check "query: the callback's 0 stops the relay" rx_line /tmp/q3 e01-p 0 none
check "query: the callback was still asked" [ "$(cat $QP/n_queries)" = 60 ]
check "query: the probe lets go of the callback" rmmod jix_mc_probe
stream /tmp/q4 query 224.0.0.1 -
check "query: without a callback queries are not relayed" rx_line /tmp/q4 e01-p 0 none

# operation 3: the frame's switch tag comes off, each member port gets its
# treatment; type 1 stands for a 0x8100 tag, type 0 for none.
for st in 0x0100:8100:100 0x0001:none; do
	v=${st%%:*}
	want=${st#*:}
	jixstream - 0 udp $G - e01-p e02-p e03-p e04-p ux0-p > /tmp/v1 &
	sink=$!
	# Frames sent before a sink is bound are lost to it, and binding a
	# packet socket waits for an RCU grace period, which takes long on a
	# slow guest: send once the listener says every sink is bound.
	t=0
	while ! grep -q '^LISTENING' /tmp/v1 && [ $t -lt 300 ]; do
		usleep 100000
		t=$((t + 1))
	done
	probe_run insmod $PROBE vh_grp=$G vh_stag=$v vh_vid=100 vh_count=10
	wait $sink	# not the watchdog
	cat /tmp/v1
	probe_said "operation 3 takes 10 frames with switch tag $v" \
		"vlan_handle $G stag=$v sent=10 result=2 hook=1"
	check "operation 3 ($v): transparent port 0 gets $want" rx_line /tmp/v1 e01-p 10 $want
	check "operation 3 ($v): strip port 2 gets them untagged" rx_line /tmp/v1 e03-p 10 none
	for p in e02-p e04-p ux0-p; do
		check "operation 3 ($v): $p gets nothing" rx_line /tmp/v1 $p 0 none
	done
done

# The other operations of the API, as the control plane calls them.
api_op() { probe_run insmod $PROBE op="$@"; }	# N [PARAM=VALUE ...]
api_said() { probe_said "API operation $1" "op $2"; }
api_op 2 vh_grp=$G vh_stag=0x0100
api_said "2: transparent and strip members make the group 1:N" \
	"2 result=2 hook=1 out=same"
api_op 9 op_arg=2
api_said "9: one entry on port 2" "9 result=2 hook=1 out=1"
api_op 5 add_grp=$G add_port=2 add_vlan=100
api_said "5: delete answers 2" "5 result=2 hook=1"
api_op 9 op_arg=2
api_said "9: no entry left on port 2" "9 result=2 hook=1 out=0"
api_op 2 vh_grp=$G vh_stag=0x0100
api_said "2: a single member is not 1:N" "2 result=-1 hook=1 out=same"
api_op 6 add_grp=$G add_port=0 add_vlan=100 add_mode=3
api_said "6: update answers 2" "6 result=2 hook=1"
check "API operation 6: the entry's mode is now strip" \
	grep -q "^-1${TAB}0${TAB}100${TAB}01:00:5E:0A:0A:0A${TAB}3${TAB}" $FWD
mcctl add $G $GM 1 100 0
api_op 7 op_arg=0
api_said "7: clear port 0 answers 2" "7 result=2 hook=1"
api_op 9 op_arg=0
api_said "9: port 0 is empty" "9 result=2 hook=1 out=0"
api_op 9 op_arg=1
api_said "9: port 1 kept its entry" "9 result=2 hook=1 out=1"
api_op 8
api_said "8: clear all answers 2" "8 result=2 hook=1"
api_op 9 op_arg=1
api_said "9: port 1 is empty too" "9 result=2 hook=1 out=0"
api_op 10 op_arg=2
api_said "10: set filter mode 2" "10 result=2 hook=1"
api_op 11
api_said "11: filter mode reads 2" "11 result=2 hook=1 out=2"
output_is "API operation 10 reaches mcctl too" 2 mcctl filter-mode
api_op 10 op_arg=4
api_op 12 op_arg=0
api_said "12: snooping off" "12 result=2 hook=1"
api_op 13
api_said "13: snooping reads 0" "13 result=2 hook=1 out=0"
output_is "API operation 12 reaches mcctl too" off mcctl snooping
api_op 12 op_arg=1
api_op 14 op_arg=1 op_name=eth0.4
api_said "14: eth0.4 becomes a hybrid SFU port" "14 result=2 hook=1"
check "API operation 14: the port-type text shows it" grep -q "port:3 type:1; " $PTYPE
api_op 14 op_arg=0 op_name=eth0.4
api_said "14: type 0 is refused" "14 result=-1 hook=1"
mcctl clear

# ---- hardware flows and drop entries, with a driver in the guest ----
# jix_hw_probe.ko plays the forwarding driver: flow index 100 + the last
# byte of the group, answers from its parameters.
HP=/sys/module/jix_hw_probe/parameters
HW=$KV/jix_mc_hwnat_entry
hw_has() { grep -qF -- "$1" $HW; }
hw_lacks() { ! grep -qF -- "$1" $HW; }
hp() { cat $HP/$1; }
acnt_id() { awk -v g="[$1]" '$2 == g { print $3 }' $ACNT; }
check "the driver stand-in loads" insmod $M/jix_hw_probe.ko
mcctl add $G $GM 0 100 0
mcctl add $G $GM 2 100 3
FLOW="110${TAB}2${TAB}0${TAB}"
# The module's tracepoints, filtered to the stream's group.
TR=/sys/kernel/tracing
mount -t tracefs nodev $TR 2>/dev/null
check "tracefs has the module's events" [ -d $TR/events/jix_mc/jix_mc_forward ]
for e in $TR/events/jix_mc/*/filter; do
	case $e in *query_relay*) ;; *) echo "group == \"$G\"" > $e ;; esac
done
echo 1 > $TR/events/jix_mc/enable
echo > $TR/trace
traced() { grep -q -- "$1" $TR/trace; }
stream /tmp/h1 udp $G 8100:100
cat $HW
check "trace: each frame forwarded, with ports and flow index" \
	[ "$(grep -c "jix_mc_forward: group=$G ports=0x5 flow=110" $TR/trace)" = 20 ]
check "trace: the flow bound" traced "jix_mc_flow_bind: group=$G index=110 mask=0x5 vid=100"
check "trace: nothing of other groups" [ "$(grep -c 'group=' $TR/trace)" = 21 ]
check "hwnat: the stream still reaches the members" rx_line /tmp/h1 e01-p 20 8100:100
check "hwnat: the stream's flow is bound with its members' mask" \
	hw_has "${FLOW}0x5${TAB}100${TAB}[10.0.0.1]"
check "hwnat: one record for the flow however many frames" \
	[ "$(grep -c "^${FLOW}" $HW)" = 1 ]
id=$(acnt_id $G)
check "hwnat: the frames carry the group's counter id $id" \
	[ -n "$id" ] && [ "$(cat /sys/module/quor_platform/parameters/rx_hwnat_ctrl)" = $((id << 17)) ]
n0=$(hp n_set_info)
mcctl add $G $GM 1 100 0
check "hwnat: a new member reaches the driver" [ "$(hp n_set_info)" -gt "$n0" ]
check "hwnat: ... with the new mask" [ "$(hp last_mask)" = 7 ]
check "hwnat: the flow record has the new mask" hw_has "${FLOW}0x7${TAB}"
mcctl del $G $GM 1 100
mcctl del $G $GM 2 100
check "hwnat: members leaving shrink the mask" hw_has "${FLOW}0x1${TAB}"
mcctl del $G $GM 0 100
cat $HW
check "hwnat: the last member leaving ends the flow record" hw_lacks "${FLOW}"
check "hwnat: ... and makes it a drop entry" hw_has "110    [vid=100]    [$G]"
check "hwnat: ... with destination port 15" [ "$(hp last_dp)" = 15 ]
check "trace: the drop made" traced "jix_mc_drop_add: group=$G index=110 mask=0x0 vid=100"
mcctl add $G $GM 0 100 0
check "hwnat: a new member undoes the drop" hw_lacks "110    [vid=100]"
check "trace: the drop removed" traced "jix_mc_drop_del: group=$G index=110"
mcctl clear
# Frames of a group without members become a drop in hardware.
h0=$(handled)
stream /tmp/h2 udp 239.99.99.99 8100:100
check "hwnat: frames without members make one drop entry" \
	[ "$(grep -c "^199    \[vid=100\]    \[239.99.99.99\]" $HW)" = 1 ]
check "hwnat: the driver took those frames" [ $(($(handled) - h0)) = 20 ]
check "hwnat: and nobody got them" rx_line /tmp/h2 e01-p 0 none
# Aging: the engine gives up the flow and the drop (real timers, 3000 ticks).
mcctl add $G $GM 0 100 0
stream /tmp/h3 udp $G 8100:100
check "hwnat: bound again" hw_has "${FLOW}0x1${TAB}"
echo > $TR/trace
echo 0 > $HP/entry_answer
echo 0 > $HP/drop_answer
hz_wait=0
while [ $hz_wait -lt 40 ] && { hw_has "${FLOW}" || hw_has "199    [vid"; }; do
	sleep 1
	hz_wait=$((hz_wait + 1))
done
cat $HW
check "hwnat: aging removes the flow the driver gave up (${hz_wait} s)" hw_lacks "${FLOW}"
check "hwnat: aging removes the drop the driver gave up" hw_lacks "199    [vid"
check "trace: the flow aged" traced "jix_mc_flow_unbind: group=$G index=110 mask=0x1 vid=100"
echo 0 > $TR/events/jix_mc/enable
echo 1 > $HP/entry_answer
echo 1 > $HP/drop_answer
# Leave a flow and a drop with pending timers for the unload below.
stream /tmp/h4 udp $G 8100:100
stream /tmp/h5 udp 239.99.99.98 8100:100
check "hwnat: a flow pending at unload" hw_has "${FLOW}"
check "hwnat: a drop pending at unload" hw_has "198    [vid=100]"

# ---- the port map follows the devices ----
deleted_at_once eth0.3 "while the module holds its port"
probe_run insmod $PROBE xmit_port=2
probe_said "API transmit on the deleted port's id is refused" \
	"xmit port=2 len=60 result=-1 hook=1"
jixtest veth eth0.3 e03-p || fail "re-create eth0.3"
xmit_seen 2 e03-p
# A device renamed away leaves its port, whatever it is called when it
# goes; one renamed to a port name takes the port.
ip link set eth0.1 down && ip link set eth0.1 name lan1 || fail "rename eth0.1"
probe_run insmod $PROBE xmit_port=0
probe_said "a port renamed away is empty" "xmit port=0 len=60 result=-1 hook=1"
deleted_at_once lan1 "after its rename from eth0.1"
jixtest veth lan1 e01-p || fail "re-create lan1"
ip link set lan1 down && ip link set lan1 name eth0.1 && ip link set eth0.1 up ||
	fail "rename lan1 to eth0.1"
xmit_seen 0 e01-p

# ---- unload and reload ----
mcctl add 239.7.7.7 01:00:5e:07:07:07 0
echo 2 > $DBG
klog_flush
check "rmmod jix_xpon_multicast" rmmod jix_xpon_multicast
check "stop banner logged" klog_has "quor igmp module exit"
check "/proc/kv7730 is gone" [ ! -e $KV ]
exits_with "the ioctl device is gone: mcctl exits 3" 3 mcctl show
probe_run insmod $PROBE xmit_port=0
probe_said "no API hook after unload" "xmit port=0 len=60 result=-12345 hook=-1"

# The module makes /proc/kv7730 in procfs whatever the loading process
# sees at /proc: here a chroot whose /proc is a plain directory that has
# a kv7730 of its own.
mkdir -p /tmp/croot/bin /tmp/croot/proc/kv7730
cp /bin/busybox /tmp/croot/bin/ && cp $M/jix_xpon_multicast.ko /tmp/croot/
check "reload jix_xpon_multicast from a chroot" \
	chroot /tmp/croot /bin/busybox insmod /jix_xpon_multicast.ko
check "reload: /proc/kv7730 is the module's whatever the loader saw" [ -f $DBG ]
rm -rf /tmp/croot
printf '1\n' > /tmp/exp
same_text "reload: debug level back to 1" $DBG
{ fwd_head on 4; fwd_tail; } > /tmp/exp
same_text "reload: empty table" $FWD
acnt_text > /tmp/exp
same_text "reload: every counter was given back and taken again" $ACNT
port_type_text > /tmp/exp
same_text "reload: port types back to 0" $PTYPE
xmit_seen 2 e03-p
mcctl add 239.7.7.7 01:00:5e:07:07:07 2
check "rmmod jix_xpon_multicast again" rmmod jix_xpon_multicast

# ---- the operator's tour of the README, printed as run ----
tour() { echo "# $1"; sh -c "$1" 2>&1; }
klog_flush
echo > /sys/kernel/tracing/trace
# Kernel messages stay off the console while the tour prints.
printk_was=$(cut -f1 /proc/sys/kernel/printk)
dmesg -n 1
echo "TOUR BEGIN"
tour "insmod $M/jix_xpon_multicast.ko"
tour "dmesg | grep -o 'quor_igmp: .*'"
tour "cat /sys/class/quor_igmp/quor_igmp/dev; ls /dev/quor_igmp"
tour "mcctl add 239.10.10.10 port eth0.1 vlan 100"
tour "mcctl add 239.10.10.10 port eth0.3 vlan 100 mode strip"
tour "mcctl add 239.10.10.10 port ux0 vlan 100 mode add outer 8100:300"
tour "mcctl add 239.10.10.10 port eth0.9"
tour "mcctl show --port eth0.3"
tour "cd /sys/kernel/tracing; echo 'group == \"239.10.10.10\"' > events/jix_mc/filter; echo 1 > events/jix_mc/enable"
tour "jixstream pon-p 3 udp 239.10.10.10 8100:100 e01-p e02-p e03-p ux0-p"
tour "mcctl flows"
tour "mcctl ports | head -n 4"
tour "mcctl groups --json"
tour "grep -o 'jix_mc_.*' /sys/kernel/tracing/trace"
echo "TOUR END"
dmesg -n "$printk_was"
echo 0 > /sys/kernel/tracing/events/jix_mc/enable
json_has "tour: the flow lists as JSON with its member ports" "mcctl flows --json" \
	index=110 proto=ipv4 vid=100 group=239.10.10.10
check "tour: rmmod" rmmod jix_xpon_multicast

# ---- load and unload under traffic ----
# 100 cycles while a stream flows into pon, the control plane writes and
# proc files are read; whatever fails while the module is away is ignored.
CYCLES=${JIX_CYCLES:-100}
touch /tmp/go
( while [ -f /tmp/go ]; do
	jixstream pon-p 50 udp $G 8100:100 e01-p > /dev/null 2>&1
done ) &
bg_stream=$!
( i=0; while [ -f /tmp/go ]; do
	i=$(((i + 1) % 4))
	mcctl add $G $GM $i 100 $((i % 5)) > /dev/null 2>&1
	mcctl add 239.99.99.$i 01:00:5e:63:63:0$i $i > /dev/null 2>&1
	mcctl del $G $GM $(((i + 2) % 4)) 100 > /dev/null 2>&1
	[ $i = 0 ] && mcctl snooping off > /dev/null 2>&1
	[ $i = 2 ] && mcctl snooping on > /dev/null 2>&1
	echo "eth0.4 2" > $PTYPE 2>/dev/null
done ) &
bg_ctl=$!
( while [ -f /tmp/go ]; do
	cat $FWD $HW $ACNT $DBG $PTYPE > /dev/null 2>&1
	mcctl show > /dev/null 2>&1
done ) &
bg_read=$!
n=0
cycle_start=$(cut -d. -f1 /proc/uptime)
while [ $n -lt $CYCLES ]; do
	insmod $M/jix_xpon_multicast.ko || break
	usleep 20000
	# An open proc file or device node holds the module: rmmod answers
	# "in use" (EAGAIN) until the reader is done.
	t=0
	while ! rmmod jix_xpon_multicast 2>/dev/null && [ $t -lt 300 ]; do
		usleep 10000
		t=$((t + 1))
	done
	[ -e $KV ] && break
	n=$((n + 1))
done
rm -f /tmp/go
wait $bg_stream $bg_ctl $bg_read
echo "load/unload: $n cycles in $(($(cut -d. -f1 /proc/uptime) - cycle_start)) s"
check "load/unload: $CYCLES cycles under traffic" [ $n = $CYCLES ]
check "load/unload: the module is gone at the end" [ ! -e $KV ]

# ---- everything at once ----
# STORM_S seconds of a stream through pon (processor 0) while processor 1
# changes entries through proc and ioctl, the filter mode and snooping,
# renames eth0.4 and deletes and re-creates eth0.3; meanwhile
# jix_mc_probe calls the control API and jix_hw_probe plays a busy engine
# (record look-ups, bound-flow reports, aging).  The debug kernel watches
# the locks, RCU, memory and timers; the references are counted below.
ms=$((STORM_S * 1000))
check "storm: the engine stand-in reloaded busy" \
	eval "rmmod jix_hw_probe && insmod $M/jix_hw_probe.ko storm_ms=$ms"
check "storm: jix_xpon_multicast loads" insmod $M/jix_xpon_multicast.ko
check "storm: the control plane stand-in loads busy" insmod $PROBE storm_ms=$ms
jixtest storm "$STORM_S" > /tmp/storm 2>&1
r=$?
cat /tmp/storm
check "storm: $STORM_S s of stream, control and link changes" [ $r = 0 ]
n_api=$(cat /sys/module/jix_mc_probe/parameters/n_storm)
n_hw=$(cat $HP/n_storm)
echo "storm: $n_api API calls, $n_hw engine rounds"
check "storm: the API was called all along" [ "$n_api" -gt $((STORM_S * 10)) ]
check "storm: the engine was busy all along" [ "$n_hw" -gt $((STORM_S * 10)) ]
# With the modules loaded a leak's backtrace names them.
[ -z "$LEAKS" ] || check "kmemleak: no leak from our modules, loaded" kmemleak_verdict
check "storm: the control plane stand-in unloads" rmmod jix_mc_probe
check "storm: jix_xpon_multicast unloads" rmmod jix_xpon_multicast

# Every device reference taken by the module must be back: a leaked one
# makes the deletion wait for ever ("unregister_netdevice: waiting for").
for l in $LINKS; do
	deleted_at_once "${l%%:*}" "after unload"
done
check "rmmod jix_hw_probe" rmmod jix_hw_probe
check "rmmod quor_platform" rmmod quor_platform
[ -z "$LEAKS" ] || check "kmemleak: no leak from our modules, unloaded" kmemleak_verdict
check "rmmod veth" rmmod veth

# ---- kernel log audit ----
# (The words themselves are not echoed: the host greps the console too.)
klog_flush
n=0
for bad in "BUG" "WARNING:" "Oops" "slab" "general protection" \
	   "unregister_netdevice: waiting" "refcount_t" \
	   "possible circular locking" "inconsistent lock state" \
	   "suspicious RCU usage" "KASAN" "ODEBUG" \
	   "sleeping function called from invalid context"; do
	n=$((n + 1))
	if grep -qF -- "$bad" /tmp/klog; then
		fail "kernel log audit $n"
		grep -F -- "$bad" /tmp/klog | head -n 5
	else
		ok "kernel log audit $n"
	fi
done
# A lockdep report also turns lockdep off: it must still be on at the end.
[ ! -r /proc/lockdep_stats ] ||
	check "lockdep still on at the end" grep -q "debug_locks: *1$" /proc/lockdep_stats

finish
