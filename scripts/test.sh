#!/usr/bin/env bash
# Builds and runs every test twice: an optimised build with warnings as errors, and a clang build
# with AddressSanitizer + UndefinedBehaviorSanitizer that also runs each fuzz target for a while.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test

jobs=$(nproc)
for preset in ci asan-ubsan; do
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
