#!/usr/bin/env bash
# Builds Vantorel (release) and runs it with the arguments given; without any, the headless app.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh run
cmake --preset release -DVANTOREL_TESTS=OFF -DVANTOREL_BENCH=OFF >/dev/null
cmake --build --preset release -j "$(nproc)" --target vantorel vantorel-mcp >/dev/null
[ $# -gt 0 ] || set -- --headless
exec build/release/src/main/vantorel "$@"
