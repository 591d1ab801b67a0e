#!/usr/bin/env bash
# Compares Vantorel's matcher with uBlock Origin's and Ghostery's engines on one generated corpus.
# Usage: bench/blocking_compare/run.sh [BUILD_DIR]   (a release build: cmake --preset release)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../../build/release}" && pwd)
lists=${VANTOREL_FILTER_LISTS:-"/usr/share/mozilla/extensions/{ec8030f7-c20a-464f-9b0e-13a3a9e97384}/uBlock0@raymondhill.net/assets/thirdparties/easylist"}

cmake --build "$build" --target blocking_driver adblock_rules >/dev/null
cd "$here"
[ -d node_modules ] || npm install --no-audit --no-fund >/dev/null
corpus="$build/bench/blocking-corpus.jsonl"
node make_corpus.mjs "$lists/easylist.txt" "$lists/easyprivacy.txt" 40000 >"$corpus"
node compare.mjs --driver "$build/bench/blocking_driver" \
    --rules "$build/share/AdBlock/adblock-rules.json" --requests "$corpus" \
    --lists "$lists/easylist.txt" "$lists/easyprivacy.txt" \
    --mismatches "$build/bench/blocking-mismatches.jsonl"
echo "requests that differ from uBlock Origin: $build/bench/blocking-mismatches.jsonl"
