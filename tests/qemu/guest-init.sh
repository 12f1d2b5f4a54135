#!/bin/busybox sh
# SPDX-License-Identifier: GPL-2.0
#
# /init of the QEMU test guest: mounts what the tester reads, then runs
# jixtest's suite (the modules are in /lib/jix), which prints one summary
# line for the host, "JIXTEST PASS <checks>" or "JIXTEST FAIL; <what>; ...".
# STORM_S (seconds of the concurrency storm), CYCLES (load/unload cycles
# under traffic) and WATCHDOG_S come from tools/qemu/run.sh in /etc/jixtest.conf.

/bin/busybox mkdir -p /proc /sys /dev /tmp /sbin /usr/bin /usr/sbin
/bin/busybox --install -s
export PATH=/bin:/sbin:/usr/bin:/usr/sbin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mount -t debugfs debugfs /sys/kernel/debug
mount -t tracefs tracefs /sys/kernel/tracing
exec 0</dev/console 1>/dev/console 2>&1
. /etc/jixtest.conf
echo "jixtest: guest up after $(cut -d' ' -f1 /proc/uptime) s on $(uname -m), $(nproc) cpus"
# A stuck step (a device reference never released, an rmmod that waits for
# ever) ends the run with a clear line rather than the host's timeout.
( sleep "$WATCHDOG_S"; echo "JIXTEST FAIL guest watchdog: a step did not return"; poweroff -f ) &
jixtest suite "$STORM_S" "$CYCLES"
sync
poweroff -f
