#!/usr/bin/env bash
# Sites' icons in a real tray, for a look and a check: two local sites (one naming a PNG in its
# page, one serving only /favicon.ico) and two addresses that answer nothing. Under Xvfb and
# trayer the first two must show their own pictures (an orange disc, a blue triangle) and the
# others their monograms. Keeps before.png and after.png in the folder it prints.
# Usage: tests/e2e/site_icons_look.sh BUILD_DIR [PANEL_HEIGHT]   (needs Xvfb, trayer, convert, python3)
set -euo pipefail
build=$1
height=${2:-32}
for tool in Xvfb trayer convert import python3; do
  command -v "$tool" >/dev/null || { echo "site_icons_look: $tool is not installed" >&2; exit 2; }
done
root=$(mktemp -d)
mkdir -p "$root/a" "$root/b"
convert -size 96x96 xc:none -fill '#E66100' -draw "circle 48,48 48,6" "$root/a/disc.png"
printf '<html><head><link rel="icon" sizes="96x96" href="/disc.png"></head></html>' > "$root/a/index.html"
convert -size 64x64 xc:none -fill '#1C71D8' -draw "polygon 32,4 60,58 4,58" "$root/b/favicon.ico"
printf '<html><head><title>B</title></head></html>' > "$root/b/index.html"
port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }
pa=$(port); pb=$(port)

exec 3> "$root/display"
Xvfb -displayfd 3 -screen 0 1024x200x24 -nolisten tcp -noreset 2>/dev/null & xvfb=$!
pids=($xvfb)
trap 'kill "${pids[@]}" 2>/dev/null || true' EXIT
for _ in $(seq 100); do [ -s "$root/display" ] && break; sleep 0.05; done
export DISPLAY=:$(cat "$root/display")
trayer --edge top --align right --widthtype request --height "$height" --transparent false >/dev/null 2>&1 &
pids+=($!)
(cd "$root/a" && exec python3 -m http.server "$pa" --bind 127.0.0.1 >/dev/null 2>&1) & pids+=($!)
(cd "$root/b" && exec python3 -m http.server "$pb" --bind 127.0.0.1 >/dev/null 2>&1) & pids+=($!)

home=$root/home
mkdir -p "$home/home" "$home/config" "$home/data" "$home/run"
chmod 700 "$home/run"
echo notes > "$home/home/notes.txt"
env=(HOME="$home/home" XDG_CONFIG_HOME="$home/config" XDG_DATA_HOME="$home/data"
     XDG_RUNTIME_DIR="$home/run" DBUS_SESSION_BUS_ADDRESS=disabled:)
env "${env[@]}" "$build/tests/e2e/prepare_library" "$home/data/Vantorel" "$home/home/notes.txt" sites \
  "Alpha=http://127.0.0.1:$pa/" "Beta=http://localhost:$pb/" \
  "Gamma Docs=http://127.0.0.3:9/" "Wiki=http://127.0.0.4:9/" >/dev/null
env "${env[@]}" "$build/src/main/vantorel" settings set welcomeShown true >/dev/null
env "${env[@]}" "$build/src/main/vantorel" settings set loginItemOffered true >/dev/null
env "${env[@]}" "$build/src/main/vantorel" > "$root/app.log" 2>&1 & pids+=($!)
sleep 2
import -window root -crop "1024x${height}+0+0" "$root/before.png"
# The search starts a few seconds after start.
sleep 7
import -window root -crop "1024x${height}+0+0" "$root/after.png"

# Pixels near a colour, in the strip (white ones, such as the monograms' letters, put aside first).
count() {
  convert "$1" -fuzz 10% -fill black -opaque white -fill white -opaque "$2" -fill black +opaque white \
    -format '%[fx:int(mean*w*h)]' info:
}
failed=0
for colour in '#E66100' '#1C71D8'; do
  n=$(count "$root/after.png" "$colour")
  [ "$n" -ge 60 ] || { echo "no icon of $colour after the search ($n pixels)" >&2; failed=1; }
done
for colour in '#2E7D32' '#00796B'; do # the monograms of 127.0.0.3 and 127.0.0.4
  n=$(count "$root/after.png" "$colour")
  [ "$n" -ge 60 ] || { echo "no monogram of $colour ($n pixels)" >&2; failed=1; }
done
grep -h "icon" "$root/app.log" || true
echo "screenshots in $root"
exit $failed
