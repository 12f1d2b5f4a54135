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

# "IR CALLS" of function @2: its inclusive instructions (callgrind_annotate)
# and its calls, summed over the call sites in callgrind's own file
# (cfn= names the callee, by "(id) name" the first time and "(id)" after).
cost() {
	local ir calls
	ir=$(callgrind_annotate --inclusive=yes "$1" 2>/dev/null |
		awk -v fn="$2" '(index($0, ":" fn "(") || index($0, ":" fn " [")) {
			gsub(/,/, "", $1); print $1; exit }')
	calls=$(awk -v fn="$2" '
		/^c?fn=\([0-9]+\) / { id = $1; sub(/^c?fn=/, "", id)
			name = substr($0, index($0, ") ") + 2); if (name == fn || index(name, fn "(") == 1) want[id] = 1 }
		/^cfn=/ { id = $1; sub(/^cfn=/, "", id); callee = id }
		/^calls=/ { if (callee in want) { n = $1; sub(/^calls=/, "", n); total += n } }
		END { print total + 0 }' "$1")
	echo "$ir $calls"
}

run() {
	valgrind --tool=callgrind --callgrind-out-file="$out/$1" "$bin" \
		--benchmark_filter="^$1/mode:4/entries:10000/" \
		--benchmark_min_time=0.01 > /dev/null 2>&1
}

# One add/delete pass of @1 entries.
run_add() {
	JIX_BENCH_SLOW_REPS=1 valgrind --tool=callgrind --callgrind-out-file="$out/add$1" "$bin" \
		--benchmark_filter="^add_delete/entries:$1/" \
		> /dev/null 2>&1
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

run_add 10000
run_add 100000
a1=$(cost "$out/add10000" quor_mc_hook_entry_add)
a2=$(cost "$out/add100000" quor_mc_hook_entry_add)
echo "adding N entries through API operation 4 (callgrind), mode 4"
printf '  N = 10,000: %d instructions per entry\n' $(( ${a1%% *} / ${a1#* } ))
printf '  N = 100,000: %d instructions per entry\n' $(( ${a2%% *} / ${a2#* } ))
awk -v a="${a1%% *}" -v b="${a2%% *}" -v ca="${a1#* }" -v cb="${a2#* }" \
	'BEGIN { printf "  instructions(100,000) / instructions(10,000) = %.1f   (target <= 12, linear 10)\n", (b / cb * 100000) / (a / ca * 10000) }'
