#!/bin/sh
# Diagnostic: reports the primary file manager and the hidden-files setting of each one present.

# Run from a file, the library sits beside it. Fed on standard input (sh -s), $0 names the shell, and
# the library is the one installed in the program's Scripts folder.
lib=${0%/*}
[ -f "$lib/HiddenFilesBackends.sh" ] || lib=${XDG_DATA_HOME:-$HOME/.local/share}/trovix/Scripts
. "$lib/HiddenFilesBackends.sh" || exit 2

# Reply: "primary NAME" (when known), then "SETTING true|false" for each setting present.
if fm=$(primary_fm); then echo "primary $fm"; fi
for s in $(present_settings); do
  if v=$(get_value "$s"); then echo "$s $v"; fi
done
exit 0
