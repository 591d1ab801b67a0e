#!/usr/bin/env bash
# Builds the release programs and packs them into a Debian package; prints the package's path.
# Usage: scripts/package.sh [BUILD_DIR]   (default build/package)
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/package}

cmake --preset release -B "$build" -S "$root" \
  -DVANTOREL_TESTS=OFF -DVANTOREL_BENCH=OFF >/dev/null
cmake --build "$build" --target vantorel vantorel-mcp -j"${JOBS:-2}"
(cd "$build" && cpack -G DEB >/dev/null)
ls -t "$build"/vantorel_*.deb | head -n 1
