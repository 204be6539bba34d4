#!/bin/sh
# The program as the Debian package installs it: the package made from this build is laid over /usr/bin
# in a mount namespace of this test alone (nothing on the machine changes). Started from /usr/bin it comes
# up in the tray without offering to copy itself into ~/.local/bin; the same program started from the
# build tree does offer it.
# Usage: TestInstalledPackage.sh TROVIX_BINARY ARTIFACT_DIR   (exit 77: no mount namespace here)
set -u
. "$(dirname "$0")/desktop.sh"

if [ "${TROVIX_INSTALLED_ROOT:-}" = "" ]; then
  work=$(mktemp -d "${TMPDIR:-/tmp}/installed.XXXXXX") || exit 2
  mkdir -p "$2"
  cpack -G DEB -B "$work/out" --config "$(dirname "$1")/CPackConfig.cmake" >"$2/cpack.log" 2>&1 \
    || { rm -rf "$work"; fail "cpack did not make the package"; }
  dpkg-deb -x "$(ls "$work"/out/trovix_*.deb | head -n 1)" "$work/root" || { rm -rf "$work"; fail "no package"; }
  status=77
  if unshare -m true 2>/dev/null; then
    TROVIX_INSTALLED_ROOT="$work/root" unshare -m sh -c \
      'mount -t overlay overlay -o lowerdir="$TROVIX_INSTALLED_ROOT/usr/bin:/usr/bin" /usr/bin || exit 77
       exec sh "$0" "$1" "$2"' "$0" "$1" "$2"
    status=$?
  fi
  rm -rf "$work"
  [ $status -eq 77 ] && echo "SKIP: no mount namespace or overlay here"
  exit $status
fi

e2e_begin "$@"
built=$bin
# A first start: nothing says the offer was declined before.
mkdir -p "$XDG_CONFIG_HOME/trovix"
printf '{ "KEY_welcomeDialogDisplayed": true }\n' >"$XDG_CONFIG_HOME/trovix/com.quorbel.trovix.json"
# Windows of the program other than the tray icon.
windows() {
  for w in $(xdotool search --onlyvisible --class trovix 2>/dev/null); do
    wd=$(xwininfo -id "$w" 2>/dev/null | sed -n 's/.*Width: *//p')
    [ -n "$wd" ] && [ "$wd" -gt 64 ] && echo "$w"
  done
}

start_desktop
[ -x /usr/bin/trovix ] && [ "$(/usr/bin/trovix --version)" = "$("$built" --version)" ] \
  || fail "the packaged program is not the one in /usr/bin"
/usr/bin/trovix >"$artifacts/installed.log" 2>&1 &
trovix=$!
track $trovix
wait_for "tray icon" '[ -n "$(tray_icon Trovix)" ]' || fail "no tray icon appeared for the installed program"
sleep 3   # the launch steps run once the main loop does
screenshot "$artifacts/installed.png"
[ -z "$(windows)" ] || fail "the installed program opened a window at start: $(for w in $(windows); do xdotool getwindowname "$w"; done)"
[ ! -e "$HOME/.local/bin/trovix" ] || fail "the installed program copied itself into ~/.local/bin"
kill $trovix
wait $trovix 2>/dev/null
echo "started from /usr/bin: no offer to copy itself"

# The same program from the build tree offers the copy (so the check above could have failed).
"$built" >"$artifacts/build-tree.log" 2>&1 &
trovix=$!
track $trovix
wait_for "the offer" '[ -n "$(windows)" ]' || fail "the program run from the build tree made no offer"
sleep 0.5
screenshot "$artifacts/build-tree-offer.png"
echo "started from the build tree: the offer to copy itself is shown"
kill $trovix
echo "1 passed, 0 failed"
