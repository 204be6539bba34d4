#!/bin/sh
# Copies items into a folder, never over an item already there: an item whose name is taken is not
# copied, and the others go on. Folders are copied whole, links as links, with modes and times.
#
#     /bin/sh CopyFilesToFolder9a.sh copy_to_folder < LIST
#
# Standard input holds one path per line, the destination folder first, then the items. Each byte
# outside [A-Za-z0-9/._-] is written as \0NNN (three octal digits), so a name of any bytes survives
# (not UTF-8, line breaks, quotes, a leading dash). For each item that was not done, one line
# "N<TAB>reason" goes to standard output, N being the item's line counted from 0. Exit status: 0 when
# every item was done, 1 when some were not, 2 for a call this script does not know.
set -u

failed=0
nl='
'

# The path of one input line, in $decoded. The dot keeps trailing line breaks from $(...).
decode() {
  decoded=$(printf '%b.' "$1")
  decoded=${decoded%.}
}

# One line per failed item; the reason on one line whatever a tool printed.
fail() {
  reason=$(printf '%s' "$2" | tr '\n\t' '  ')
  printf '%s\t%s\n' "$1" "$reason"
  failed=1
}

exists() {
  [ -e "$1" ] || [ -L "$1" ]
}

# Whether folder $2 is the folder $1 or lies inside it, links resolved.
within() {
  [ -d "$1" ] && [ ! -L "$1" ] || return 1
  outer=$(cd -P -- "$1" && pwd -P && printf .) || return 1
  outer=${outer%"$nl".}
  inner=$(cd -P -- "$2" && pwd -P && printf .) || return 1
  inner=${inner%"$nl".}
  case "$inner/" in "${outer%/}"/*) return 0 ;; esac
  return 1
}

# A tool's last line of complaint, without its "tool: " prefix.
complaint() {
  last=$(printf '%s\n' "$1" | tail -n 1)
  printf '%s' "${last#"$2": }"
}

copy_to_folder() {
  n=0
  while IFS= read -r line; do
    decode "$line"
    if [ $n -eq 0 ]; then
      dest=$decoded
      n=1
      continue
    fi
    src=$decoded
    name=$(basename -- "$src"; printf .)
    name=${name%"$nl".}
    target="${dest%/}/$name"
    # Relative paths would depend on the folder this runs in.
    if [ "${src#/}" = "$src" ] || [ "${dest#/}" = "$dest" ]; then
      fail $n "not an absolute path"
    elif ! exists "$src"; then
      fail $n "it no longer exists"
    elif [ ! -d "$dest" ]; then
      fail $n "the destination folder does not exist"
    elif exists "$target"; then
      fail $n "an item with the same name is already in the destination folder"
    # cp would have made part of the copy before it noticed.
    elif within "$src" "$dest"; then
      fail $n "a folder cannot be copied into itself"
    # -n and -T: should an item of that name appear meanwhile, nothing in it is replaced and a folder is
    # never copied into it.
    elif ! err=$(cp -a -n -T -- "$src" "$target" 2>&1); then
      fail $n "$(complaint "$err" cp)"
    fi
    n=$((n + 1))
  done
  return $failed
}

case "${1:-}" in
  copy_to_folder) copy_to_folder ;;
  *) echo "unknown handler \"${1:-}\"" >&2; exit 2 ;;
esac
