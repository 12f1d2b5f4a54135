#!/usr/bin/env bash
# Which host tests kill which mutant: for the mutants that
# ../shared/tools/mutate.sh PROJECT 60 SEED picks, every test that fails.
#
#   tools/killmatrix.sh OUT.tsv SEED...
#
# Works on a copy of the tracked files (/tmp/killmatrix/src) with its own
# build; writes a line a mutant: seed, id, file:line, operator, and the
# failing tests (comma separated), SURVIVED or STILLBORN.  A test that alone
# kills nothing, and whose lines and branches others also reach, is a
# candidate to go.  About 10 s a mutant on 2 cores; KM_N=n picks n mutants
# instead of 60 (then not the same ones as mutate.sh).
set -euo pipefail
[ $# -ge 2 ] || { echo "usage: $0 OUT.tsv SEED..." >&2; exit 2; }
root=$(git -C "$(dirname "$0")" rev-parse --show-toplevel)
helper=$root/../shared/tools/mutate_helper.py
[ -f "$helper" ] || { echo "$helper missing (../shared beside the repository)" >&2; exit 2; }
out=$(realpath "$1"); shift
work=/tmp/killmatrix; src=$work/src; build=$work/build
rm -rf "$src" && mkdir -p "$src"
(cd "$root" && git ls-files -z | xargs -0 cp -a --parents -t "$src")
cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
ninja -C "$build" > /dev/null
: > "$out"
for seed in "$@"; do
	python3 "$helper" gen "$src" "${KM_N:-60}" "$seed" "$work/m$seed.json" 2> /dev/null
	for id in $(python3 -c 'import json, sys; print(*(m["id"] for m in json.load(open(sys.argv[1]))["mutants"]))' "$work/m$seed.json"); do
		show() { python3 "$helper" show "$work/m$seed.json" "$id" "$1"; }
		f=$(show file)
		cp "$src/$f" "$work/orig"
		python3 "$helper" apply "$src" "$work/m$seed.json" "$id" 2> /dev/null
		if ninja -C "$build" > /dev/null 2>&1; then
			(cd "$build" && timeout 300 ctest -j2 --timeout 60 > "$work/test.log" 2>&1) || true
			r=$(sed -nE 's/^[[:space:]]+[0-9]+ - ([^ ]+) .*/\1/p' "$work/test.log" | paste -sd, -)
		else
			r=STILLBORN
		fi
		cp "$work/orig" "$src/$f" && touch "$src/$f"
		printf '%s\t%s\t%s:%s\t%s\t%s\n' "$seed" "$id" "$f" "$(show line)" "$(show op)" "${r:-SURVIVED}" >> "$out"
	done
done
