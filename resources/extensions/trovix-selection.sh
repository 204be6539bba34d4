#!/bin/sh
# Sends the file manager's selection to Trovix: trovix-selection hide|unhide PATH...
# The running tray program gets the request on the session bus, paths joined by ", "; when it does not run,
# the command line does the work itself.
trovix=@TROVIX@
case "${1:-}" in
  hide) name=AppSyncExtensionWantsToHideSelectedFiles ;;
  unhide) name=AppSyncExtensionWantsToUnhideSelectedFiles ;;
  *) echo "usage: trovix-selection hide|unhide PATH..." >&2; exit 2 ;;
esac
action=$1
shift
[ $# -gt 0 ] || exit 0

# A GVariant string literal: quote and backslash escaped.
quote() { printf "'%s'" "$(printf '%s' "$1" | sed "s/[\\\\']/\\\\&/g")"; }
if gdbus call --session -d org.freedesktop.DBus -o /org/freedesktop/DBus -m org.freedesktop.DBus.NameHasOwner \
     com.quorbel.trovix 2>/dev/null | grep -q true; then
  joined=$1
  shift
  for p in "$@"; do joined="$joined, $p"; done
  gdbus emit --session --object-path /com/quorbel/trovix \
    --signal com.quorbel.trovix.DistributedNotification.Notification \
    "$(quote "$name")" "$(quote "$joined")" "@a{sv} {}" && exit 0
fi
exec "$trovix" "$action" "$@"
