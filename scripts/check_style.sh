#!/usr/bin/env bash
# Fails when a C++ file strays from .clang-format, or when clang-tidy (the repo's .clang-tidy) finds
# anything in the sources.
# `analyze` runs clang's static analyzer the same way; it is slow, so it is not part of the tests.
# Usage: scripts/check_style.sh format | tidy BUILD_DIR | analyze BUILD_DIR
#   (BUILD_DIR: one with compile_commands.json, made by clang, its generated sources built)
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  format)
    mapfile -t files < <(git ls-files '*.cpp' '*.h')
    echo "clang-format: ${#files[@]} files"
    clang-format --dry-run -Werror "${files[@]}"
    ;;
  tidy | analyze)
    build=${2:?the build folder to take compile commands from}
    extra=()
    # Qt's widgets and watchers are owned by their parent object, which the leak analysis cannot
    # see; LeakSanitizer checks leaks in the tests instead.
    [ "$1" = analyze ] && extra=(-checks='-*,clang-analyzer-core.*,clang-analyzer-cplusplus.*,-clang-analyzer-cplusplus.NewDeleteLeaks,clang-analyzer-unix.*')
    mapfile -t sources < <(git ls-files 'src/*.cpp')
    echo "clang-tidy: ${#sources[@]} files"
    # Each argument is a pattern for the compile database; anchored, it names one file.
    patterns=()
    for f in "${sources[@]}"; do patterns+=("^$PWD/$f\$"); done
    if ! run-clang-tidy -quiet "${extra[@]}" -p "$build" -j "$(nproc)" "${patterns[@]}" >"$build/clang-tidy.log" 2>&1; then
      grep -E '(error|warning): ' "$build/clang-tidy.log" | sed 's/\x1b\[[0-9;]*m//g' | sort -u
      echo "clang-tidy: findings above; the whole output is in $build/clang-tidy.log"
      exit 1
    fi
    ;;
  *)
    echo "usage: scripts/check_style.sh format | tidy BUILD_DIR | analyze BUILD_DIR" >&2
    exit 2
    ;;
esac
