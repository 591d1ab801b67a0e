#!/usr/bin/env bash
# Prints the process tree's memory with six panels' pages in three sessions awake and after they
# rested, and how long a discarded page takes to come back (see pages_rest.cpp).
# Usage: bench/pages_rest.sh [BUILD_DIR]   (a release build with benchmarks)
set -euo pipefail
build=$(realpath "${1:-build/release}")
root=$(mktemp -d)
server=
xvfb=
trap 'kill $server $xvfb 2>/dev/null; rm -rf "$root"' EXIT
command -v Xvfb >/dev/null || { echo "pages_rest: Xvfb is not installed" >&2; exit 2; }
exec 3> "$root/display"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 2>/dev/null &
xvfb=$!
for _ in $(seq 100); do [ -s "$root/display" ] && break; sleep 0.05; done
export DISPLAY=:$(cat "$root/display")
mkdir -p "$root/www"
for n in 1 2 3 4 5 6; do
  cat > "$root/www/$n.html" <<HTML
<!doctype html><html><head><title>Page $n</title><style>
body{font-family:sans-serif;margin:0;background:#f4f6fb}
header{background:#3b5bdb;color:#fff;padding:18px 20px;font-size:20px}</style></head>
<body><header>Page $n</header><p>A local page shown in a panel under its icon.</p></body></html>
HTML
done
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
python3 -m http.server "$port" --bind 127.0.0.1 --directory "$root/www" >/dev/null 2>&1 &
server=$!
sleep 0.5
printf 'load_average_1min=%s\n' "$(cut -d' ' -f1 /proc/loadavg)"
HOME=$root XDG_DATA_HOME=$root/data XDG_CACHE_HOME=$root/cache XDG_CONFIG_HOME=$root/config \
  "$build/bench/pages_rest" "$build/src/main/vantorel-pages.so" "http://127.0.0.1:$port"
