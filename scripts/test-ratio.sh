#!/usr/bin/env bash
# Prints the size of the tests against the size of the program: non-blank lines that are not comments, in
# the C++ files (.cpp, .h) of tests/ and of src/. Comments are // lines and /* … */ blocks.
# Usage: scripts/test-ratio.sh [--max PERCENT]   (exits non-zero when the tests exceed PERCENT of src/)
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)

count() {
    find "$source_dir/$1" -type f \( -name '*.cpp' -o -name '*.h' \) -print0 | xargs -0 cat |
        awk '
            /^[[:space:]]*\/\*/ { block = 1 }
            block { if ($0 ~ /\*\//) block = 0; next }
            /^[[:space:]]*$/ || /^[[:space:]]*\/\// { next }
            { n++ }
            END { print n + 0 }'
}

tests=$(count tests)
code=$(count src)
percent=$((100 * tests / code))
echo "tests $tests lines, src $code lines: tests are $percent% of the code"
if [ "${1:-}" = "--max" ] && [ "$percent" -gt "${2:?--max needs a percentage}" ]; then
    exit 1
fi
