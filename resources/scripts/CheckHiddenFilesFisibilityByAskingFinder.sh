#!/bin/sh
# Tells whether the user's file manager shows hidden files, by listing the home folder as it would.

. "${0%/*}/HiddenFilesBackends.sh" || exit 2

# Reply: the names in the home folder as the primary file manager lists them, one a line: the
# dot-names first (byte order) when its setting shows hidden files, then the other names.
value=$(current_value) || exit 2
cd "$HOME" || { echo "cannot open the home folder" >&2; exit 1; }
nl='
'
if [ "$value" = true ]; then
  for n in .*; do
    case $n in . | .. | *"$nl"*) continue ;; esac
    [ -e "$n" ] || [ -L "$n" ] || continue
    printf '%s\n' "$n"
  done
fi
for n in *; do
  case $n in *"$nl"*) continue ;; esac
  [ -e "$n" ] || [ -L "$n" ] || continue
  # Names listed in .hidden are hidden files too.
  if [ "$value" != true ] && [ -f .hidden ] && grep -Fxq -e "$n" .hidden 2>/dev/null; then continue; fi
  printf '%s\n' "$n"
done
exit 0
