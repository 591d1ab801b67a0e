#!/usr/bin/env bash
# Prints how long a panel's first page takes to reach the screen after the click, with the web
# engine cold, measured by page_shown_watch as the colour of a local page's header appearing under
# the icon. Three ways of arriving: a click with no pause on the icon (the engine starts after the
# click), and clicks after the pointer rested on the icon 0.3 s and 1 s (it starts on arrival).
# Then the resident memory of the whole process tree with that one panel open, and of the idle app.
# Usage: bench/first_panel.sh [BUILD_DIR]   (a release build with tests and benchmarks)
# With VANTOREL_START_MARKS=1 each run's steps (module loaded, profile made, page painted...) go
# to standard error.
set -euo pipefail
build=$(realpath "${1:-build/release}")
vantorel=$build/src/main/vantorel
prepare=$build/tests/e2e/prepare_library
watch=$build/bench/page_shown_watch
runs=${RUNS:-3}
for tool in Xvfb trayer xdotool python3; do
  command -v "$tool" >/dev/null || { echo "first_panel: $tool is not installed" >&2; exit 2; }
done

root=$(mktemp -d)
mkdir -p "$root/www"
cat > "$root/www/index.html" <<'HTML'
<!doctype html><html><head><title>Local page</title><style>
body{font-family:sans-serif;margin:0;background:#f4f6fb}
header{background:#3b5bdb;color:#fff;padding:18px 20px;font-size:20px}</style></head>
<body><header>Search</header><p>A local page shown in a panel under its icon.</p></body></html>
HTML
exec 3> "$root/display"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 2>/dev/null &
xvfb=$!
app=
trap 'kill $app $server $tray $xvfb 2>/dev/null; rm -rf "$root"' EXIT
for _ in $(seq 100); do [ -s "$root/display" ] && break; sleep 0.05; done
export DISPLAY=:$(cat "$root/display")
trayer --edge top --align right --widthtype request --height 24 --transparent false \
  --tint 0x333333 >/dev/null 2>&1 &
tray=$!
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
python3 -m http.server "$port" --bind 127.0.0.1 --directory "$root/www" >/dev/null 2>&1 &
server=$!
sleep 0.5

# Resident memory of a process and all its descendants, in MiB.
tree_rss() {
  ps -e -o pid=,ppid=,rss= | awk -v top="$1" '{ parent[$1] = $2; rss[$1] = $3 }
    END { for (p in rss) { q = p; while (q != "" && q != top && q > 1) q = parent[q];
          if (q == top) sum += rss[p] } print int(sum / 1024) }'
}

median() { printf '%s\n' "$@" | sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }

declare -A shown
idle=()
tree=()
for dwell in 0 0.3 1; do
  for run in $(seq "$runs"); do
    home=$root/run-$dwell-$run
    mkdir -p "$home/home" "$home/config" "$home/data" "$home/cache" "$home/run"
    chmod 700 "$home/run"
    echo notes > "$home/home/notes.txt"
    env=(HOME="$home/home" XDG_CONFIG_HOME="$home/config" XDG_DATA_HOME="$home/data"
         XDG_CACHE_HOME="$home/cache" XDG_RUNTIME_DIR="$home/run" DBUS_SESSION_BUS_ADDRESS=disabled:)
    env "${env[@]}" "$prepare" "$home/data/Vantorel" "$home/home/notes.txt" >/dev/null
    # The starter bar's search page, pointed at the local page.
    grep -rl "duckduckgo" "$home/data/Vantorel" | xargs sed -i "s#https://duckduckgo.com/#http://127.0.0.1:$port/#"
    env "${env[@]}" "$vantorel" settings set welcomeShown true >/dev/null
    env "${env[@]}" "$vantorel" settings set loginItemOffered true >/dev/null
    env "${env[@]}" "$vantorel" >"$home/log" 2>&1 &
    app=$!
    sleep 3
    idle+=("$(tree_rss "$app")")
    # The search page's icon: the third of four at the right end of the tray.
    if [ "$dwell" = 0 ]; then
      line=$("$watch" 3b5bdb 400 24 880 160 xdotool mousemove 1244 12 click 1)
    else
      xdotool mousemove 1244 12
      sleep "$dwell"
      line=$("$watch" 3b5bdb 400 24 880 160 xdotool click 1)
    fi
    ms=$(sed -n 's/shown_ms=\([0-9-]*\).*/\1/p' <<< "$line")
    [ "${ms:--1}" -ge 0 ] || { echo "first_panel: the page never showed (dwell $dwell)" >&2; tail -5 "$home/log" >&2; exit 1; }
    shown[$dwell]="${shown[$dwell]:-} $ms"
    sleep 2
    if [ -n "${VANTOREL_START_MARKS:-}" ]; then
      echo "dwell $dwell run $run: shown at $ms ms" >&2
      grep -E '^(start|browser): ' "$home/log" >&2 || true
    fi
    tree+=("$(tree_rss "$app")")
    kill -TERM "$app"
    wait "$app" || true
    xdotool mousemove 10 700
  done
done

printf 'load_average_1min=%s runs=%s\n' "$(cut -d' ' -f1 /proc/loadavg)" "$runs"
for dwell in 0 0.3 1; do
  # shellcheck disable=SC2086
  printf 'click_to_page_shown_ms pointer_rested_s=%s median=%s all=%s\n' "$dwell" \
    "$(median ${shown[$dwell]})" "${shown[$dwell]# }"
done
printf 'process_tree_rss_mib idle=%s with_one_panel=%s\n' "$(median "${idle[@]}")" "$(median "${tree[@]}")"
