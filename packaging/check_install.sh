#!/usr/bin/env bash
# Installs a build into a temporary prefix and checks every file lands where the desktop looks
# for it. Usage: packaging/check_install.sh BUILD_DIR
set -euo pipefail

build=${1:?usage: check_install.sh BUILD_DIR}
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null

id=io.vantorel.Vantorel
status=0
for f in bin/vantorel bin/vantorel-mcp; do
  [ -x "$prefix/$f" ] || { echo "missing or not executable: $f"; status=1; }
done
for f in share/applications/$id.desktop share/mime/packages/$id.xml \
         share/icons/hicolor/scalable/apps/$id.svg share/icons/hicolor/48x48/apps/$id.png; do
  [ -s "$prefix/$f" ] || { echo "missing: $f"; status=1; }
done

desktop=$prefix/share/applications/$id.desktop
if [ -f "$desktop" ]; then
  grep -qx 'Exec=vantorel %U' "$desktop" || { echo "the desktop entry does not run 'vantorel %U'"; status=1; }
  grep -q '^MimeType=.*application/x-vantorel;' "$desktop" || { echo "the desktop entry does not open documents"; status=1; }
  grep -q '^MimeType=.*x-scheme-handler/vantorel;' "$desktop" || { echo "the desktop entry does not take vantorel: links"; status=1; }
  if command -v desktop-file-validate >/dev/null; then
    desktop-file-validate "$desktop" || status=1
  fi
fi
png=$prefix/share/icons/hicolor/48x48/apps/$id.png
if [ -f "$png" ] && command -v file >/dev/null; then
  file "$png" | grep -q 'PNG image data, 48 x 48' || { echo "the 48 px icon is not a 48 x 48 PNG"; status=1; }
fi
# The MIME package must compile: a broken one is skipped silently by every file manager.
if command -v update-mime-database >/dev/null; then
  update-mime-database "$prefix/share/mime" >/dev/null 2>&1 || { echo "update-mime-database rejects the MIME package"; status=1; }
  grep -q '^application/x-vantorel:\*\.vantorel$' "$prefix/share/mime/globs" 2>/dev/null \
    || { echo "*.vantorel is not registered as application/x-vantorel"; status=1; }
fi
exit $status
