#!/bin/sh
# The preferences window on a real X server with a tray host: opened from the panel's gear menu, it
# shows the stored settings, a click on a box is written to the settings file at once, the start-at-login
# box writes the autostart entry, and choosing Preferences again brings the same window back.
# Usage: TestPreferences.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"
export XDG_CURRENT_DESKTOP=KDE   # the file manager is then called Dolphin in the texts

seed_settings
start_desktop
start_trovix
wait_icon
wait_for "first-start defaults" '[ "$(setting PurgeAfterHugeAppQuit)" = true ]' || fail "no defaults were written"

# Its title; Qt names the program after it, as desktops expect.
title="Preferences — Trovix"
preferences_window() { windows_named "$title" | head -n 1; }
# Opens the panel and chooses Preferences... in its gear menu: the item above About and Quit.
choose_preferences() {
  [ -n "$(panel)" ] || click_at $ix $iy
  wait_for "panel" '[ -n "$(panel)" ]' || fail "the panel did not open"
  set -- $(panel)
  click_at $(( $2 + $4 - 37 )) $(( $3 + 41 ))   # the gear button
  sleep 0.5
  screenshot "$artifacts/gear-menu.png"
  xdotool key Up Up Up Return
}

choose_preferences
wait_for "preferences window" '[ -n "$(preferences_window)" ]' || {
  for w in $(xdotool search --onlyvisible --class trovix 2>/dev/null); do echo "window $w: $(xdotool getwindowname "$w")"; done
  fail "the preferences window did not open"
}
set -- $(preferences_window)
win=$1; wx=$2; wy=$3; ww=$4; wh=$5
echo "preferences window $ww x $wh at $wx,$wy"
[ "$ww" -ge 400 ] && [ "$wh" -ge 300 ] || fail "the window is too small to hold its controls: $ww x $wh"
[ $(( wx + ww )) -le 1024 ] && [ $(( wy + wh )) -le 700 ] && [ "$wx" -ge 0 ] && [ "$wy" -ge 0 ] \
  || fail "the window is not on the screen: $ww x $wh at $wx,$wy"
sleep 0.5
screenshot "$artifacts/preferences.png"
import -window "$win" "$artifacts/preferences-window.png"

# The boxes sit one under the other at the window's left edge; their rows, from the top of the window.
box_x=$(( wx + 28 ))
row_autostart=$(( wy + ${E2E_ROW_AUTOSTART:-49} ))
row_purge_after=$(( wy + ${E2E_ROW_PURGE_AFTER:-265} ))
row_auto_free=$(( wy + ${E2E_ROW_AUTO_FREE:-291} ))

# A click on "Free up memory after a large application quits" is in the settings file at once.
click_at $box_x $row_purge_after
wait_for "PurgeAfterHugeAppQuit to be written" '[ "$(setting PurgeAfterHugeAppQuit)" = false ]' \
  || fail "the click was not stored: PurgeAfterHugeAppQuit=$(setting PurgeAfterHugeAppQuit)"
echo "PurgeAfterHugeAppQuit written as false by a click"
click_at $box_x $row_purge_after
wait_for "PurgeAfterHugeAppQuit back on" '[ "$(setting PurgeAfterHugeAppQuit)" = true ]' \
  || fail "the second click was not stored"

# "Launch Trovix at system startup" writes the launcher's autostart entry, and removes it again.
entry="$XDG_CONFIG_HOME/autostart/com.quorbel.trovix.launcher.desktop"
click_at $box_x $row_autostart
wait_for "autostart entry" '[ -f "$entry" ]' || fail "no autostart entry after the click"
grep -q '^Exec=.*trovix-launcher' "$entry" || fail "the entry does not start the launcher: $(cat "$entry")"
! grep -q '^Hidden=true' "$entry" || fail "the new entry is disabled"
# "Free up memory automatically" is stored and opens its threshold and interval.
click_at $box_x $row_auto_free
wait_for "AutoFree to be written" '[ "$(setting AutoFree)" = true ]' || fail "the automatic free-up click was not stored"
sleep 0.3
screenshot "$artifacts/preferences-changed.png"
import -window "$win" "$artifacts/preferences-window-changed.png"
click_at $box_x $row_autostart
wait_for "autostart entry removed" '[ ! -f "$entry" ] || grep -q "^Hidden=true" "$entry"' \
  || fail "the entry stayed in effect after the second click"
echo "autostart entry written and removed by clicks"

# Chosen again while open: the same window, not a second one.
choose_preferences
sleep 1
[ "$(windows_named "$title" | wc -l)" -eq 1 ] || fail "a second preferences window opened"
[ "$(preferences_window | cut -d' ' -f1)" = "$win" ] || fail "another window answered the second choice"

kill $trovix
echo "1 passed, 0 failed"
