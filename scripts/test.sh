#!/usr/bin/env bash
# Builds and runs the whole test suite twice: a GCC debug build, and a Clang
# build with AddressSanitizer and UndefinedBehaviorSanitizer. Also checks
# that the sources are clang-format clean.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

jobs=$(nproc)
for preset in debug sanitize; do
    echo "== $preset build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    echo "== $preset tests"
    ctest --preset "$preset" -j "$jobs"
done

echo "== clang-format"
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
echo "format: clean"
