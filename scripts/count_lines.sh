#!/usr/bin/env bash
# Counts the non-blank, non-comment lines of C++ in src/ and tests/ and prints their ratio:
# how much test there is for the code it tests.
set -euo pipefail
cd "$(dirname "$0")/.."
count() {
  git ls-files "$@" | grep -E '\.(cpp|h)$' | xargs cat |
    sed -e 's|^[[:space:]]*//.*$||' | grep -cv '^[[:space:]]*$'
}
code=$(count src)
tests=$(count tests)
echo "src: $code lines, tests: $tests lines, tests/code: $(awk "BEGIN{printf \"%.2f\", $tests/$code}"), tests/(code+tests): $(awk "BEGIN{printf \"%.2f\", $tests/($code+$tests)}")"
