#!/usr/bin/env bash
# Prints how long the tray app takes from its start to all icons of a 10-shortcut bar docked and
# drawn in a real tray (Xvfb and trayer), seen from the X server by tray_dock_watch, and its
# resident memory once idle.
# Usage: bench/desktop_start.sh [BUILD_DIR]   (a release build with tests: build/release)
set -euo pipefail
build=${1:-build/release}
vantorel=$build/src/main/vantorel
prepare=$build/tests/e2e/prepare_library
watch=$build/bench/tray_dock_watch
runs=${RUNS:-7}
for tool in Xvfb trayer; do
  command -v "$tool" >/dev/null || { echo "desktop_start: $tool is not installed" >&2; exit 2; }
done

root=$(mktemp -d)
source "$(dirname "$0")/tray_display.sh"

times=()
cpus=()
memory=()
for run in $(seq "$runs"); do
  home=$root/run$run
  mkdir -p "$home/home" "$home/config" "$home/data" "$home/run"
  chmod 700 "$home/run"
  echo notes > "$home/home/notes.txt"
  env=(HOME="$home/home" XDG_CONFIG_HOME="$home/config" XDG_DATA_HOME="$home/data"
       XDG_RUNTIME_DIR="$home/run" DBUS_SESSION_BUS_ADDRESS=disabled:)
  env "${env[@]}" "$prepare" "$home/data/Vantorel" "$home/home/notes.txt" 10 >/dev/null
  env "${env[@]}" "$vantorel" settings set welcomeShown true >/dev/null
  env "${env[@]}" "$vantorel" settings set loginItemOffered true >/dev/null
  # Ten shortcuts and the application's own icon, docked and drawn.
  line=$(env "${env[@]}" "$watch" 11 "$vantorel" 2>/dev/null)
  drawn=$(sed -n 's/.*drawn_ms=\([0-9.-]*\).*/\1/p' <<< "$line")
  [ "${drawn%.*}" -ge 0 ] 2>/dev/null || { echo "run $run: the icons were never drawn ($line)" >&2; exit 1; }
  times+=("${drawn%.*}")
  cpus+=("$(sed -n 's/.*app_cpu_ms=\([0-9]*\).*/\1/p' <<< "$line")")
  memory+=("$(sed -n 's/.*idle_rss_kib=\([0-9]*\).*/\1/p' <<< "$line")")
  sleep 0.3
done

# The same measure of a bare Qt tray app with three plain icons, to read the figure against.
bare=()
for run in $(seq "$runs"); do
  line=$("$watch" 3 "$build/bench/bare_tray" 3 2>/dev/null)
  drawn=$(sed -n 's/.*drawn_ms=\([0-9]*\).*/\1/p' <<< "$line")
  bare+=("${drawn:--1}")
  sleep 0.3
done

median() { printf '%s\n' "$@" | sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
printf 'load_average_1min=%s runs=%s\n' "$(cut -d' ' -f1 /proc/loadavg)" "$runs"
printf 'start_to_icons_drawn_ms median=%s all=%s\n' "$(median "${times[@]}")" "${times[*]}"
printf 'bare_qt_tray_3_icons_drawn_ms median=%s all=%s\n' "$(median "${bare[@]}")" "${bare[*]}"
printf 'app_cpu_ms_until_drawn median=%s all=%s\n' "$(median "${cpus[@]}")" "${cpus[*]}"
printf 'idle_rss_kib median=%s all=%s\n' "$(median "${memory[@]}")" "${memory[*]}"
