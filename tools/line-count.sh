#!/usr/bin/env bash
# Lines of code against lines of tests, for `make test-stats`.
#
# Counts the tracked files only (git ls-files), leaving out blank lines and
# comment lines (// and /* */ in C and C++, # in shell, CMake, Kbuild and
# the like). A line holding code and a trailing comment counts as code.
#   code:  *.c *.h *.cc *.cpp *.hpp outside tests/ and bench/
#   tests: every tracked text file under tests/ except the fuzz corpus
#          (tests/fuzz/corpus/: inputs, data rather than test code, many of
#          them binary); binary files elsewhere (a NUL byte) are left out too.
set -euo pipefail
cd "$(git -C "$(dirname "$0")" rev-parse --show-toplevel)"

# Non-blank, non-comment lines of the files named on stdin (NUL separated).
count() {
	xargs -0 -r awk '
	FNR == 1 { c = (FILENAME ~ /\.(c|h|cc|cpp|hpp)$/); inc = 0 }
	{
		s = $0
		if (c) {
			out = ""
			while (s != "") {
				if (inc) {
					i = index(s, "*/")
					if (!i) { s = ""; break }
					s = substr(s, i + 2); inc = 0
				} else {
					i = index(s, "/*"); j = index(s, "//")
					if (j && (!i || j < i)) { out = out substr(s, 1, j - 1); s = ""; break }
					if (!i) { out = out s; s = ""; break }
					out = out substr(s, 1, i - 1); s = substr(s, i + 2); inc = 1
				}
			}
			s = out
		} else if (s ~ /^[ \t]*#/ && s !~ /^#!/) {
			s = ""
		}
		if (s ~ /[^ \t\r]/) n++
	}
	END { print n + 0 }'
}

code=$(git ls-files -z -- '*.c' '*.h' '*.cc' '*.cpp' '*.hpp' ':!:tests/' ':!:bench/' | count)
NOCORPUS=':!:tests/fuzz/corpus/'
text=$(git grep -z -I -l -e '' -- tests/ "$NOCORPUS" | count)
corpus=$(git ls-files -- tests/fuzz/corpus/ | wc -l)
printf 'code lines:  %d\n' "$code"
printf 'test lines:  %d\n' "$text"
printf 'test/code:   %s\n' "$(awk -v t="$text" -v c="$code" 'BEGIN { printf "%.2f", c ? t / c : 0 }')"
printf '(left out: %d fuzz corpus inputs)\n' "$corpus"
if [ $# -gt 0 ]; then
	for d in "$@"; do
		printf '  %-24s %d\n' "$d" "$(git grep -z -I -l -e '' -- "$d" "$NOCORPUS" | count)"
	done
fi
