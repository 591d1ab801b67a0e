#!/usr/bin/env bash
# Prints how long the tray app takes from its start to all icons drawn in a real tray (Xvfb and
# trayer) for a bar of 20 web links, once with every site's icon kept in the support folder and
# once with none kept (each then drawn as its monogram), alternating runs. Reading and drawing the
# kept pictures should cost at most 10 ms over the monograms.
# Usage: bench/site_icons_start.sh [BUILD_DIR]   (a build with tests: build/ci or build/release)
set -euo pipefail
build=${1:-build/release}
vantorel=$build/src/main/vantorel
prepare=$build/tests/e2e/prepare_library
watch=$build/bench/tray_dock_watch
runs=${RUNS:-9}
sites=20
for tool in Xvfb trayer convert; do
  command -v "$tool" >/dev/null || { echo "site_icons_start: $tool is not installed" >&2; exit 2; }
done

root=$(mktemp -d)
source "$(dirname "$0")/tray_display.sh"

# The kept pictures and their index, as the app writes them.
kept=$root/kept
mkdir -p "$kept"
now=$(date +%s)
{
  printf '{\n  "sites": {\n'
  for i in $(seq $sites); do
    convert -size 128x128 "xc:hsl($((i * 17 % 360)),70%,45%)" -fill white \
      -draw "circle 64,64 64,20" "$kept/site$i.example.png"
    sep=$([ "$i" -lt $sites ] && echo , || true)
    printf '    "site%s.example": {\n      "fetched": %s,\n      "file": "site%s.example.png",\n' \
      "$i" "$now" "$i"
    printf '      "source": "https://site%s.example/favicon.ico"\n    }%s\n' "$i" "$sep"
  done
  printf '  },\n  "version": 1\n}\n'
} > "$kept/index.json"

measure() { # variant run
  local home=$root/$1$2
  mkdir -p "$home/home" "$home/config" "$home/data" "$home/run"
  chmod 700 "$home/run"
  echo notes > "$home/home/notes.txt"
  local env=(HOME="$home/home" XDG_CONFIG_HOME="$home/config" XDG_DATA_HOME="$home/data"
             XDG_RUNTIME_DIR="$home/run" DBUS_SESSION_BUS_ADDRESS=disabled:)
  env "${env[@]}" "$prepare" "$home/data/Vantorel" "$home/home/notes.txt" sites $sites >/dev/null
  env "${env[@]}" "$vantorel" settings set welcomeShown true >/dev/null
  env "${env[@]}" "$vantorel" settings set loginItemOffered true >/dev/null
  [ "$1" = kept ] && cp -r "$kept" "$home/data/Vantorel/site-icons"
  local line drawn
  line=$(env "${env[@]}" "$watch" $((sites + 1)) "$vantorel" 2>/dev/null)
  drawn=$(sed -n 's/.*drawn_ms=\([0-9.-]*\).*/\1/p' <<< "$line")
  [ "${drawn%.*}" -ge 0 ] 2>/dev/null || { echo "$1 run $2: never drawn ($line)" >&2; exit 1; }
  echo "${drawn%.*}"
}

with=()
without=()
for run in $(seq "$runs"); do
  with+=("$(measure kept "$run")")
  sleep 0.3
  without+=("$(measure none "$run")")
  sleep 0.3
done

median() { printf '%s\n' "$@" | sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
printf 'load_average_1min=%s runs=%s sites=%s\n' "$(cut -d' ' -f1 /proc/loadavg)" "$runs" "$sites"
printf 'icons_kept_drawn_ms median=%s all=%s\n' "$(median "${with[@]}")" "${with[*]}"
printf 'monograms_drawn_ms median=%s all=%s\n' "$(median "${without[@]}")" "${without[*]}"
printf 'kept_minus_monograms_ms=%s\n' "$(( $(median "${with[@]}") - $(median "${without[@]}") ))"
