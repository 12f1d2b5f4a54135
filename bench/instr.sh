#!/usr/bin/env bash
# Instructions per frame, counted by callgrind: the data handler through
# the per-packet hook against the bare baseline (a clone per port handed
# to the device), mode 4, 10,000 entries.  Unlike times on a shared
# machine, the counts do not move with the load.
#
#   bench/instr.sh [path/to/jix_bench]      (make bench-instr)
set -euo pipefail
bin=${1:-build-bench/bench/jix_bench}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

# "IR CALLS" of function @2: inclusive instructions, and calls counted
# from callgrind's caller tree.
cost() {
	callgrind_annotate --inclusive=yes --tree=caller "$1" 2>/dev/null |
	awk -v fn="$2" '
	/^ *[0-9,]+ .*< / { if (match($0, /\(([0-9,]+)x\)/)) {
		c = substr($0, RSTART + 1, RLENGTH - 3); gsub(",", "", c); calls += c }
		next }
	/^ *[0-9,]+ .*\* / { if (index($0, ":" fn "(") && !done) {
		ir = $1; gsub(",", "", ir); done = 1; print ir, calls }
		calls = 0; next }
	/^$/ { calls = 0 }'
}

run() {
	valgrind --tool=callgrind --callgrind-out-file="$out/$1" "$bin" \
		--benchmark_filter="^$1/mode:4/entries:10000/" \
		--benchmark_min_time=0.01 > /dev/null 2>&1
}

# Instructions of @2 over the frames @3 was called for.  The handler's
# figure is one hook call (bottom halves off around it); the baseline's is
# its benchmark loop, which turns bottom halves off around each frame's 4
# clones.
per_frame() {
	local loop frames
	loop=$(cost "$1" "$2")
	frames=$(cost "$1" "$3")
	echo $(( ${loop%% *} / ${frames#* } ))
}

run handler
run handler_bare
h=$(per_frame "$out/handler" "bench::packet_hook" "bench::packet_hook")
b=$(per_frame "$out/handler_bare" "bench::(anonymous namespace)::BM_HandlerBaseline" \
	"bench::(anonymous namespace)::send_min")
echo "instructions per frame (callgrind), mode 4, 10,000 entries, 4 transparent ports"
printf '  handler (per-packet hook)  %6d\n' "$h"
printf '  bare (4 clones sent)       %6d\n' "$b"
awk -v h="$h" -v b="$b" 'BEGIN { printf "  ratio                      %6.2f   (target <= 1.2)\n", h / b }'
