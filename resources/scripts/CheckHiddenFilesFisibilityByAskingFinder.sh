#!/bin/sh
# Tells whether the user's file manager shows hidden files, by listing the home folder as it would.

. "${0%/*}/HiddenFilesBackends.sh" || exit 2

# Reply: the names in the home folder as the primary file manager lists it, one a line. When its
# setting shows hidden files the listing begins with the folder's own entries "." and "..", then the
# other dot-names, so the reply proves the display whatever the folder holds (a home with only .ssh,
# or nothing); then the names that are not hidden. Names in byte order, whatever the user's locale.
value=$(current_value) || exit 2
LC_ALL=C
export LC_ALL
nl='
'
if [ "$value" = true ]; then
  printf '%s\n' . ..
fi
# An unreadable home lists nothing more; the setting alone has decided.
cd "$HOME" 2>/dev/null || exit 0
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
