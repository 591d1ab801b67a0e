#!/usr/bin/env bash
# Fails when a C++ file strays from .clang-format, or when clang-tidy (the repo's .clang-tidy) finds
# anything in the sources.
# Usage: scripts/check_style.sh format | tidy BUILD_DIR (one with compile_commands.json, made by clang)
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  format)
    mapfile -t files < <(git ls-files '*.cpp' '*.h')
    echo "clang-format: ${#files[@]} files"
    clang-format --dry-run -Werror "${files[@]}"
    ;;
  tidy)
    build=${2:?the build folder to take compile commands from}
    mapfile -t sources < <(git ls-files 'src/*.cpp')
    echo "clang-tidy: ${#sources[@]} files"
    # Each argument is a pattern for the compile database; anchored, it names one file.
    patterns=()
    for f in "${sources[@]}"; do patterns+=("^$PWD/$f\$"); done
    if ! run-clang-tidy -quiet -p "$build" -j "$(nproc)" "${patterns[@]}" >"$build/clang-tidy.log" 2>&1; then
      grep -E '(error|warning): ' "$build/clang-tidy.log" | sed 's/\x1b\[[0-9;]*m//g' | sort -u
      echo "clang-tidy: findings above; the whole output is in $build/clang-tidy.log"
      exit 1
    fi
    ;;
  *)
    echo "usage: scripts/check_style.sh format | tidy BUILD_DIR" >&2
    exit 2
    ;;
esac
