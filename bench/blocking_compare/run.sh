#!/usr/bin/env bash
# Compares Vantorel's matcher with uBlock Origin's and Ghostery's engines on two generated corpora
# (the plain one and one where a third of the requests are frames), then times the matcher on a
# rule file of regular expressions only beside the lists' own.
# Usage: bench/blocking_compare/run.sh [BUILD_DIR]   (a release build: cmake --preset release)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../../build/release}" && pwd)
lists=${VANTOREL_FILTER_LISTS:-"/usr/share/mozilla/extensions/{ec8030f7-c20a-464f-9b0e-13a3a9e97384}/uBlock0@raymondhill.net/assets/thirdparties/easylist"}
count=${VANTOREL_CORPUS_SIZE:-50000}

cmake --build "$build" --target blocking_driver adblock_rules >/dev/null
cd "$here"
[ -d node_modules ] || npm install --no-audit --no-fund >/dev/null
for corpus in plain frames; do
    file="$build/bench/blocking-corpus-$corpus.jsonl"
    node make_corpus.mjs "$lists/easylist.txt" "$lists/easyprivacy.txt" "$count" \
        $([ "$corpus" = frames ] && echo --frames) >"$file"
    echo "== corpus: $corpus"
    node compare.mjs --driver "$build/bench/blocking_driver" \
        --rules "$build/share/AdBlock/adblock-rules.json" --requests "$file" \
        --lists "$lists/easylist.txt" "$lists/easyprivacy.txt" \
        --mismatches "$build/bench/blocking-mismatches-$corpus.jsonl"
    echo "requests that differ from uBlock Origin: $build/bench/blocking-mismatches-$corpus.jsonl"
done

# The same plain corpus against a rule file of regular expressions only, in another converter's
# shape: every rule must still be found through its literals, so its times stay near the lists'.
regex_rules="$build/bench/regex-only-rules.json"
node make_regex_rules.mjs "$build/share/AdBlock/adblock-rules.json" \
    "$lists/easylist.txt" "$lists/easyprivacy.txt" 100000 >"$regex_rules"
plain="$build/bench/blocking-corpus-plain.jsonl"
echo "== rule file: regular expressions only ($(basename "$regex_rules")), corpus: plain"
for rules in "$build/share/AdBlock/adblock-rules.json" "$regex_rules"; do
    "$build/bench/blocking_driver" --rules "$rules" <"$plain" \
        >"$rules.decisions" 2>"$rules.figures"
    tr ' ' '\n' <"$rules.figures" | awk -F= -v name="$(basename "$rules")" \
        '/^(median_ns|p99_ns|build_ns|mem_bytes|clock_ns)=/ { f[$1] = $2 }
         END { printf "%-24s median %6d ns  p99 %7d ns  build %6.0f ms  matcher %5.1f MiB" \
                   "  (timing itself %d ns)\n", name, f["median_ns"], f["p99_ns"],
               f["build_ns"] / 1e6, f["mem_bytes"] / 1048576, f["clock_ns"] }'
done
echo "decisions that differ: $(paste -d' ' "$build/share/AdBlock/adblock-rules.json.decisions" \
    "$regex_rules.decisions" | awk '$1 != $2' | wc -l)"
