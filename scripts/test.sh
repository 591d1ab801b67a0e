#!/usr/bin/env bash
# Checks the formatting, then builds and runs every test: an optimised build with warnings as
# errors, which runs the unit tests; a clang build with AddressSanitizer +
# UndefinedBehaviorSanitizer, whose compile commands clang-tidy then checks, and which runs every
# test, the end-to-end ones included, and each fuzz target for a while; and a ThreadSanitizer build
# of the tests whose code crosses threads (the tool socket, the stores, the settings, the run loop,
# documents read off the main thread).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test

scripts/check_style.sh format

jobs=$(nproc)
for preset in ci asan-ubsan; do
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  if [ "$preset" = asan-ubsan ]; then
    # clang-tidy reads the clang build's compile commands and the sources Qt generated for it.
    echo "== clang-tidy"
    scripts/check_style.sh tidy build/asan-ubsan
  fi
  # The end-to-end runs drive the whole app for minutes: they go once, in the sanitizer build,
  # where they also catch memory faults.
  skip=()
  if [ "$preset" = ci ]; then skip=(-E '^e2e\.'); fi
  ctest --preset "$preset" -j "$jobs" "${skip[@]}"
done

echo "== tsan"
threaded=(kit_mcp_tests kit_storage_tests kit_settings_tests vantorel_app_tests)
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs" --target "${threaded[@]}"
for t in "${threaded[@]}"; do
  exe=$(find build/tsan/tests -name "$t" -type f -perm -u+x | head -n 1)
  VANTOREL_SOURCE_DIR="$PWD" TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
    "$exe" --gtest_brief=1
done
