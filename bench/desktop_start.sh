#!/usr/bin/env bash
# Prints how long the tray app takes from its start to all icons of a 10-shortcut bar docked in a
# real tray (Xvfb and trayer), seen from outside the app, and its resident memory once idle.
# Usage: bench/desktop_start.sh [BUILD_DIR]   (a release build with tests: build/release)
set -euo pipefail
build=${1:-build/release}
vantorel=$build/src/main/vantorel
prepare=$build/tests/e2e/prepare_library
runs=${RUNS:-7}
for tool in Xvfb trayer xwininfo; do
  command -v "$tool" >/dev/null || { echo "desktop_start: $tool is not installed" >&2; exit 2; }
done

root=$(mktemp -d)
exec 3> "$root/display"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 2>/dev/null &
xvfb=$!
trap 'kill $tray $xvfb 2>/dev/null; rm -rf "$root"' EXIT
for _ in $(seq 100); do [ -s "$root/display" ] && break; sleep 0.05; done
export DISPLAY=:$(cat "$root/display")
trayer --edge top --align right --widthtype request --height 24 --transparent false \
  --tint 0x333333 >/dev/null 2>&1 &
tray=$!
sleep 0.5

# The icons docked in trayer's panel that belong to Vantorel.
docked() {
  xwininfo -root -tree 2>/dev/null | awk '/"panel": \("panel" "trayer"\)/ { inside = 1; next }
    inside && /^     0x/ { inside = 0 } inside && /"Vantorel"/ { n++ } END { print n + 0 }'
}

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
  start=$(date +%s%N)
  env "${env[@]}" "$vantorel" 2>/dev/null &
  app=$!
  # Ten shortcuts and the application's own icon.
  until [ "$(docked)" -ge 11 ]; do
    if (( $(date +%s%N) - start > 10000000000 )); then echo "run $run: icons never docked" >&2; exit 1; fi
  done
  end=$(date +%s%N)
  # The app's own CPU time by then: what the wall time is when nothing else runs.
  cpu=$(awk -v hz="$(getconf CLK_TCK)" '{ sub(/.*\) /, ""); print ($12 + $13) * 1000 / hz }' "/proc/$app/stat")
  sleep 2
  rss=$(awk '/VmRSS/ { print $2 }' "/proc/$app/status")
  kill -TERM $app
  wait $app || true
  times+=($(( (end - start) / 1000000 )))
  memory+=("$rss")
  cpus+=("${cpu%.*}")
  sleep 0.3
done

median() { printf '%s\n' "$@" | sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
printf 'load_average_1min=%s runs=%s\n' "$(cut -d' ' -f1 /proc/loadavg)" "$runs"
printf 'start_to_icons_docked_ms median=%s all=%s\n' "$(median "${times[@]}")" "${times[*]}"
printf 'app_cpu_ms_until_docked median=%s all=%s\n' "$(median "${cpus[@]}")" "${cpus[*]}"
printf 'idle_rss_kib median=%s all=%s\n' "$(median "${memory[@]}")" "${memory[*]}"
