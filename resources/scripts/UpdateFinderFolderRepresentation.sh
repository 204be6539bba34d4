#!/bin/sh
# Makes the file managers look again at folders whose hidden files changed: each folder given as an
# argument gets a short-lived entry, so every folder monitor reports a change and open views re-read
# the folder (and its .hidden file). With no argument there is nothing to refresh.
status=0
for dir in "$@"; do
  [ -d "$dir" ] || { echo "not a folder: $dir" >&2; status=1; continue; }
  probe=$(mktemp "$dir/.trovix-refresh.XXXXXX" 2>/dev/null) || { echo "cannot refresh $dir" >&2; status=1; continue; }
  rm -f -- "$probe"
done
exit $status
