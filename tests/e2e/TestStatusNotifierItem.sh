#!/bin/sh
# A StatusNotifierItem tray (the host does not tell where the icon is), played by a small fake watcher on
# the test's bus, with no XEmbed tray. The panel opens in the top-right corner of the screen for the
# start argument "ShowWindowAfterStart" and for a second launch, wherever the pointer is; after a click
# on the icon of a panel at the bottom edge, under the pointer there. A watcher that appears after the
# program has started still gets its icon.
# Usage: TestStatusNotifierItem.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"
seed_settings
registrations="$artifacts/registrations.log"
: >"$registrations"
start_watcher() {
  /usr/bin/python3 "$(dirname "$0")/fake-sni-watcher.py" "$registrations" &
  watcher=$!
  track $watcher
  wait_for "watcher" 'gdbus introspect --session -d org.kde.StatusNotifierWatcher -o /StatusNotifierWatcher >/dev/null 2>&1' \
    || fail "the fake watcher did not start"
}
registered() { [ "$(wc -l <"$registrations")" -ge "$1" ]; }
# Clicks the icon as a host does: Activate(x, y) on the item that registered last.
click_icon() {
  item=$(tail -n 1 "$registrations" | cut -d' ' -f2)
  path=$(tail -n 1 "$registrations" | cut -d' ' -f3)
  gdbus call --session -d "$item" -o "$path" -m org.kde.StatusNotifierItem.Activate "$1" "$2" >/dev/null \
    || fail "Activate failed"
}
in_top_right() { set -- $(panel) x; [ $(( ${2:-0} + ${4:-0} )) -eq 1024 ] && [ "${3:-999}" -le 20 ]; }

start_x
start_watcher
xdotool mousemove 500 350
start_trovix ShowWindowAfterStart
wait_for "registration" 'registered 1' || fail "the icon did not register with the watcher"
wait_for "panel" '[ -n "$(panel)" ]' || fail "ShowWindowAfterStart did not open the panel"
in_top_right || fail "ShowWindowAfterStart opened the panel at $(panel), not in the top-right corner"
screenshot "$artifacts/show-after-start.png"
echo "start argument: panel at $(panel | cut -d' ' -f2,3)"

click_icon 500 350
wait_for "panel to close" '[ -z "$(panel)" ]' || fail "a click on the icon did not close the panel"
"$bin" >"$artifacts/second.log" 2>&1 || fail "the second copy failed"
wait_for "panel after a second launch" '[ -n "$(panel)" ]' || fail "a second launch did not open the panel"
in_top_right || fail "a second launch opened the panel at $(panel), not in the top-right corner"
echo "second launch: panel at $(panel | cut -d' ' -f2,3)"

# A bottom panel's icon clicked: the pointer on the screen's bottom edge stands for the icon.
click_icon 500 350
wait_for "panel to close" '[ -z "$(panel)" ]' || fail "a click on the icon did not close the panel"
xdotool mousemove 600 690
click_icon 600 690
wait_for "panel above the pointer" 'set -- $(panel) x; [ $(( ${3:-0} + ${5:-0} )) -le 690 ] && [ $(( ${3:-0} + ${5:-0} )) -ge 660 ] && [ $(( ${2:-0} + ${4:-0} / 2 - 600 )) -le 2 ] && [ $(( 600 - ${2:-0} - ${4:-0} / 2 )) -le 2 ]' \
  || fail "after a click at the bottom edge the panel is at $(panel)"
screenshot "$artifacts/bottom-click.png"
echo "click at the bottom edge: panel at $(panel | cut -d' ' -f2,3)"
kill $trovix
wait $trovix 2>/dev/null

# The watcher comes after the program.
kill $watcher
wait $watcher 2>/dev/null
: >"$registrations"
"$bin" >"$artifacts/late.log" 2>&1 &
trovix=$!
track $trovix
wait_for "panel as a window" '[ -n "$(panel)" ]' || fail "without a tray the panel did not open as a window"
sleep 2
start_watcher
E2E_WAIT=20 wait_for "late registration" 'registered 1' || fail "the icon did not register with a watcher that came later"
echo "a watcher started later got the icon"

kill $trovix
echo "1 passed, 0 failed"
