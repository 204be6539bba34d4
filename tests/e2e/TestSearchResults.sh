#!/bin/sh
# A search from the panel end to end: in a home holding files named with "quasar" (one hidden, one in a
# subfolder, one with a space), a click on the tray icon, "quasar" typed into the panel's search field and
# Return open the results window, titled with the number of matches find(1) counts; then the first row is
# moved to the Trash with the Delete key and the confirmation: it leaves its folder and the table, and
# lies in the Trash with its .trashinfo.
# Usage: TestSearchResults.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"
seed_settings

mkdir -p "$HOME/Documents/deep/er" "$HOME/Music"
echo one >"$HOME/quasar-notes.txt"
echo two >"$HOME/.quasar-hidden"
echo three >"$HOME/Documents/deep/er/QuasarReport.md"
echo four >"$HOME/Music/my quasar song.ogg"
echo five >"$HOME/Documents/unrelated.txt"
count() { find "$HOME" -mindepth 1 -iname '*quasar*' | wc -l; }
n=$(count)
[ "$n" -eq 4 ] || fail "the home holds $n matches before the start"

start_desktop
start_trovix
wait_icon
click_at $ix $iy
wait_for "panel" '[ -n "$(panel)" ]' || fail "the panel did not open"
sleep 0.5
xdotool type --delay 30 quasar
screenshot "$artifacts/panel-typed.png"
xdotool key Return

n=$(count)
title="Trovix - Search results for \"quasar\", found $n"
wait_for "the results window" '[ -n "$(windows_named "$title")" ]' \
  || fail "no window titled '$title'; visible: $(for w in $(xdotool search --onlyvisible --class trovix); do xdotool getwindowname $w; done | tr '\n' '|')"
echo "results window: $title"
sleep 0.5
screenshot "$artifacts/results.png"

# The first row, to the Trash.
xdotool key Home
sleep 0.3
xdotool key Delete
wait_for "the confirmation" 'xdotool search --onlyvisible --class trovix getwindowname %@ 2>/dev/null | grep -qx "Trovix"' || true
sleep 0.5
screenshot "$artifacts/confirm.png"
xdotool key Return
# The Trash itself now holds a match and its .trashinfo: it is left out of this count.
left() { find "$HOME" -mindepth 1 -path "$XDG_DATA_HOME/Trash" -prune -o -iname '*quasar*' -print | wc -l; }
wait_for "one match gone" '[ "$(left)" -eq $((n - 1)) ]' || fail "no file left its folder: $(left) matches"
gone=""
for f in "$HOME/quasar-notes.txt" "$HOME/.quasar-hidden" "$HOME/Documents/deep/er/QuasarReport.md" "$HOME/Music/my quasar song.ogg"; do
  [ -e "$f" ] || gone=$f
done
[ -n "$gone" ] || fail "cannot tell which file went"
name=$(basename "$gone")
trash="$XDG_DATA_HOME/Trash"
[ -f "$trash/files/$name" ] || fail "$name is not in $trash/files: $(ls -A "$trash/files" 2>&1)"
grep -q "^Path=" "$trash/info/$name.trashinfo" || fail "no .trashinfo for $name"
echo "trashed: $gone"
after="Trovix - Search results for \"quasar\", found $((n - 1))"
wait_for "the row to leave" '[ -n "$(windows_named "$after")" ]' || fail "the window does not say '$after'"
screenshot "$artifacts/after-trash.png"

# Space previews the selected row in the program's own preview window (titled with the file's name, to
# which Qt adds the program's); Escape closes it.
preview() {
  for f in .quasar-hidden QuasarReport.md "my quasar song.ogg" quasar-notes.txt; do windows_named "$f — Trovix"; done
}
# Without a window manager nobody gives the focus back when the question closes.
xdotool windowfocus --sync "$(windows_named "$after" | cut -d' ' -f1)"
xdotool key space
wait_for "the preview" '[ -n "$(preview)" ]' || fail "no preview window; visible: $(for w in $(xdotool search --onlyvisible --class trovix); do xdotool getwindowname $w; done | tr "\n" "|")"
sleep 0.5
screenshot "$artifacts/preview.png"
xdotool key Escape
wait_for "the preview to close" '[ -z "$(preview)" ]' || fail "Escape did not close the preview"
echo "PASS"
