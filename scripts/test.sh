#!/usr/bin/env bash
# Checks that the sources are clang-format clean and that each library folder
# includes only the folders it depends on, then builds and runs the whole test
# suite twice: a GCC debug build, and a Clang build with AddressSanitizer and
# UndefinedBehaviorSanitizer.
set -euo pipefail
shopt -s lastpipe # the loop that reads ctest's report keeps its count
cd "$(dirname "$0")/.."
scripts/setup.sh
# The agents the end-to-end suite drives, and the node that runs them. Without
# the npm registry it says so in one line, and the tests that need them skip.
scripts/npm-tools.sh >/dev/null || true

echo "== clang-format"
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
echo "format: clean"
echo "== layers"
python3 scripts/check-layers.py

jobs=$(nproc)
total=0
for preset in debug sanitize; do
    echo "== $preset build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    echo "== $preset tests"
    # ctest's report goes to the terminal as it runs; only its count is kept.
    count=0
    ctest --preset "$preset" -j "$jobs" | while IFS= read -r line; do
        printf '%s\n' "$line"
        if [[ $line =~ tests\ failed\ out\ of\ ([0-9]+) ]]; then count=${BASH_REMATCH[1]}; fi
    done
    total=$((total + count))
done

echo "tests: $total passed, 0 failed"
