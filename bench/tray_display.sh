# Sourced by the tray benchmarks: a private Xvfb and a dark trayer on top, both ended on exit.
# Sets DISPLAY; uses $root, which the caller made.
exec 3> "$root/display"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 2>/dev/null &
xvfb=$!
trap 'kill $tray $xvfb 2>/dev/null; rm -rf "$root"' EXIT
for _ in $(seq 100); do [ -s "$root/display" ] && break; sleep 0.05; done
export DISPLAY=:$(cat "$root/display")
trayer --edge top --align right --widthtype request --height 24 --transparent false \
  --tint 0x333333 >/dev/null 2>&1 &
tray=$!
sleep 0.5
