#!/usr/bin/env bash
# Builds and runs the whole test suite twice: a GCC debug build, and a Clang
# build with AddressSanitizer and UndefinedBehaviorSanitizer. Also checks
# that the sources are clang-format clean.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

jobs=$(nproc)
total=0
for preset in debug sanitize; do
    echo "== $preset build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    echo "== $preset tests"
    log=$(mktemp)
    ctest --preset "$preset" -j "$jobs" | tee "$log"
    count=$(sed -n 's/.*tests failed out of \([0-9]*\).*/\1/p' "$log" | tail -n 1)
    rm -f "$log"
    total=$((total + ${count:-0}))
done

echo "== clang-format"
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
echo "format: clean"
echo "tests: $total passed, 0 failed"
