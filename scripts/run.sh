#!/usr/bin/env bash
# Builds Vantorel (release) and runs it with the arguments given; without any, the tray app, or the
# headless app when there is no display to show icons on.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh run
cmake --preset release -DVANTOREL_TESTS=OFF -DVANTOREL_BENCH=OFF >/dev/null
cmake --build --preset release -j "$(nproc)" --target vantorel vantorel-mcp >/dev/null
if [ $# -eq 0 ] && [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "No display: starting the headless app." >&2
  set -- --headless
fi
# Not exec: the app times its start from its own process, which would then be this script's.
build/release/src/main/vantorel "$@"
