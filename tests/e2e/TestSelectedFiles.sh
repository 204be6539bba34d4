#!/bin/sh
# The file managers' "Hide with Trovix" / "Unhide with Trovix" entries end to end: the running tray program
# receives the request as the extensions send it (a signal on the session bus with the paths joined by ", ")
# and hides the files in their folder's .hidden list, or shows them again, dropping one leading point
# without ever replacing a file; then `trovix hide` from a terminal does the same.
# Usage: TestSelectedFiles.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"
seed_settings '"ShowInformationAboutAccessibilityAlerts": false'

send() { # NAME OBJECT
  gdbus emit --session --object-path /com/quorbel/trovix --signal com.quorbel.trovix.DistributedNotification.Notification \
    "$1" "$2" "@a{sv} {}" >/dev/null
}
owned() { gdbus call --session -d org.freedesktop.DBus -o /org/freedesktop/DBus -m org.freedesktop.DBus.NameHasOwner \
  com.quorbel.trovix 2>/dev/null | grep -q true; }

dir="$HOME/Chosen files"
mkdir -p "$dir"
for f in "report one.txt" notes .profile profile .plan; do echo "$f" >"$dir/$f"; done

start_desktop
start_trovix
wait_for "the tray program on the bus" owned || fail "the tray program did not take its bus name"

send AppSyncExtensionWantsToHideSelectedFiles "$dir/report one.txt, $dir/notes"
wait_for ".hidden list" '[ "$(cat "$dir/.hidden" 2>/dev/null)" = "$(printf "report one.txt\nnotes")" ]' \
  || fail "the chosen files were not hidden: $(cat "$dir/.hidden" 2>&1)"

send AppSyncExtensionWantsToUnhideSelectedFiles "$dir/notes, $dir/.plan, $dir/.profile"
wait_for "unhide" '[ -f "$dir/plan" ] && [ "$(cat "$dir/.hidden")" = "report one.txt" ]' \
  || fail "unhide did not show the files: $(ls -A "$dir" | tr '\n' ' ') / $(cat "$dir/.hidden")"
[ "$(cat "$dir/profile")" = profile ] && [ "$(cat "$dir/.profile")" = .profile ] || fail "a file was replaced"
grep -q "performSetVisibility.*File exists" "$artifacts/trovix.log" || fail "the refused rename was not logged"

# Not a string: ignored.
gdbus emit --session --object-path /com/quorbel/trovix --signal com.quorbel.trovix.DistributedNotification.Notification \
  AppSyncExtensionWantsToHideSelectedFiles "<int32 5>" "@a{sv} {}" >/dev/null 2>&1

(cd "$dir" && "$bin" hide profile) || fail "trovix hide failed"
[ "$(tail -n 1 "$dir/.hidden")" = profile ] || fail "trovix hide did not list the file"
"$bin" unhide "$dir/missing" 2>"$artifacts/unhide.err" && fail "unhiding a missing file succeeded"
grep -q "missing" "$artifacts/unhide.err" || fail "the failure does not name the file"
echo "PASS"
