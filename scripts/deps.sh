#!/usr/bin/env bash
# Installs the Debian packages a step needs, asking apt only for those that are missing.
# Usage: scripts/deps.sh build|test|run|package
set -euo pipefail

build=(cmake ninja-build ccache g++ pkg-config nlohmann-json3-dev libssl-dev qt6-base-dev libglib2.0-dev
       libxcb1-dev libxcb-keysyms1-dev qt6-webengine-dev
       webext-ublock-origin-firefox publicsuffix)
test=(libgtest-dev libgmock-dev libbenchmark-dev clang libclang-rt-14-dev clang-tidy clang-format
      xvfb trayer xdotool x11-utils imagemagick desktop-file-utils dbus
      xfce4-panel xfconf gnome-shell gnome-shell-extension-appindicator
      # the end-to-end tests find the app's widgets as a screen reader does, over AT-SPI
      at-spi2-core gir1.2-atspi-2.0 python3-gi)
# The Debian package: dpkg-shlibdeps computes its dependencies.
package=(dpkg-dev)
# Icons name symbols from the icon theme and paint emoji and letters: a theme and fonts to do it,
# the SVG icon engine (a Qt plug-in in libqt6svg6) that draws symbolic icons as shapes to tint,
# and the image format plug-ins that read sites' WebP icons.
run=(adwaita-icon-theme fonts-dejavu-core fonts-noto-color-emoji libqt6svg6 qt6-image-formats-plugins)

case "${1:-build}" in
  build) want=("${build[@]}") ;;
  test) want=("${build[@]}" "${run[@]}" "${test[@]}") ;;
  run) want=("${build[@]}" "${run[@]}") ;;
  package) want=("${build[@]}" "${package[@]}") ;;
  *) echo "deps.sh: unknown set '$1' (build, test, run or package)" >&2; exit 2 ;;
esac

missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
# The end-to-end tests drive the app with an MCP client on node; any node of 18 or newer will do,
# so one installed some other way is left alone.
if [ "${1:-build}" = test ] && ! { command -v node && command -v npm; } >/dev/null 2>&1; then
  missing+=(nodejs npm)
fi
if [ ${#missing[@]} -gt 0 ]; then
  sudo=()
  [ "$(id -u)" -eq 0 ] || sudo=(sudo)
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  "${sudo[@]}" apt-get update -qq
  "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# The end-to-end client's packages, pinned by the lock file; installed again only when it changed.
if [ "${1:-build}" = test ]; then
  e2e="$(dirname "$0")/../tests/e2e"
  if ! cmp -s "$e2e/package-lock.json" "$e2e/node_modules/.lock-installed" 2>/dev/null; then
    echo "Installing the end-to-end client's packages"
    (cd "$e2e" && npm ci --no-audit --no-fund --loglevel=error && cp package-lock.json node_modules/.lock-installed)
  fi
fi
