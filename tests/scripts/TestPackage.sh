#!/bin/sh
# The Debian package made from a build: unpacked into a throw-away root it holds the programs, the desktop
# entry and the icon it names, and it declares Qt 6.
#   TestPackage.sh BUILD_DIR
set -u
build=$1
work=$(mktemp -d "${TMPDIR:-/tmp}/package.XXXXXX") || exit 2
trap 'rm -rf "$work"' EXIT
fail=0

cpack -G DEB -B "$work/out" --config "$build/CPackConfig.cmake" >"$work/cpack.log" 2>&1 \
  || { echo "FAIL: cpack"; cat "$work/cpack.log"; exit 1; }
deb=$(ls "$work"/out/trovix_*.deb 2>/dev/null | head -n 1)
[ -n "$deb" ] || { echo "FAIL: no package made"; cat "$work/cpack.log"; exit 1; }
dpkg-deb -x "$deb" "$work/root"

for f in usr/bin/trovix usr/bin/trovix-launcher usr/share/applications/com.quorbel.trovix.desktop \
         usr/share/trovix/extensions/trovix-selection.sh; do
  [ -f "$work/root/$f" ] || { echo "FAIL: $f is missing"; fail=1; }
done
[ -x "$work/root/usr/bin/trovix" ] || { echo "FAIL: trovix is not executable"; fail=1; }
icon=$(sed -n 's/^Icon=//p' "$work/root/usr/share/applications/com.quorbel.trovix.desktop")
[ -f "$work/root/usr/share/icons/hicolor/scalable/apps/$icon.svg" ] \
  || { echo "FAIL: the desktop entry names icon '$icon', which is not in the package"; fail=1; }
depends=$(dpkg-deb -f "$deb" Depends)
echo "$depends" | grep -q "libqt6widgets6" || { echo "FAIL: Qt 6 is not declared: $depends"; fail=1; }
# The packaged program runs from its installed place.
"$work/root/usr/bin/trovix" --version | grep -q "^trovix " || { echo "FAIL: the packaged trovix does not run"; fail=1; }
exit $fail
