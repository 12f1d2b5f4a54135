#!/usr/bin/env bash
# Lines of code against lines of tests, for `make test-stats`.
#
# Counts the tracked files only (git ls-files).  A line is left out when it
# is blank or starts, after blanks, with //, /*, * or # (comments in C, C++,
# shell, CMake and Kbuild; C preprocessor lines go with them).
#   code:  *.c *.h *.cc *.cpp *.hpp outside tests/ and bench/
#   tests: every tracked file under tests/
set -euo pipefail
cd "$(git -C "$(dirname "$0")" rev-parse --show-toplevel)"

count() {
	git ls-files -z -- "$@" | xargs -0 -r awk '!/^[ \t]*(\/\/|\/\*|\*|#|\r?$)/ { n++ } END { print n + 0 }'
}

code=$(count '*.c' '*.h' '*.cc' '*.cpp' '*.hpp' ':!:tests/' ':!:bench/')
text=$(count tests/)
printf 'code lines:  %d\n' "$code"
printf 'test lines:  %d\n' "$text"
printf 'test/code:   %s\n' "$(awk -v t="$text" -v c="$code" 'BEGIN { printf "%.2f", c ? t / c : 0 }')"
for d in "$@"; do
	printf '  %-24s %d\n' "$d" "$(count "$d")"
done
