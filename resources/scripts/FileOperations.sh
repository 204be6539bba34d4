# What the file-operation scripts (CopyFilesToFolder9a, MoveFilesToFolder9a, RemoveFilesToTrash6) share;
# each sources it from the folder it runs from.
#
# Standard input holds one path per line: for copy and move the destination folder first, then the
# items. Each byte outside [A-Za-z0-9/._-] is written as \0NNN (three octal digits), so a name of any
# bytes survives (not UTF-8, line breaks, quotes, a leading dash). For each item that was not done, one
# line "N<TAB>reason" goes to standard output, N being the item's line counted from 0. Exit status: 0
# when every item was done, 1 when some were not, 2 for a call the script does not know.
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

# Hands each item that still exists to the function $1 as "$src" (item number in $n); the function
# fails the item itself when its tool does.
each_item() {
  n=0
  while IFS= read -r line; do
    decode "$line"
    src=$decoded
    # A relative path would depend on the folder this runs in.
    if [ "${src#/}" = "$src" ]; then
      fail $n "not an absolute path"
    elif ! exists "$src"; then
      fail $n "it no longer exists"
    else
      "$1" "$src"
    fi
    n=$((n + 1))
  done
  return $failed
}

# The same for copy and move: the first line is the destination folder, and each item reaches the
# function $2 as "$src" "$target" only when its name is free there and it is not a folder going into
# itself ($1 is the verb's past participle for that message).
each_item_into_folder() {
  verb=$1
  action=$2
  IFS= read -r line || return $failed
  decode "$line"
  dest=$decoded
  n=1
  while IFS= read -r line; do
    decode "$line"
    src=$decoded
    name=$(basename -- "$src"; printf .)
    name=${name%"$nl".}
    target="${dest%/}/$name"
    if [ "${src#/}" = "$src" ] || [ "${dest#/}" = "$dest" ]; then
      fail $n "not an absolute path"
    elif ! exists "$src"; then
      fail $n "it no longer exists"
    elif [ ! -d "$dest" ]; then
      fail $n "the destination folder does not exist"
    elif exists "$target"; then
      fail $n "an item with the same name is already in the destination folder"
    # The tool would refuse too, but only once it has looked (cp after making part of the copy).
    elif within "$src" "$dest"; then
      fail $n "a folder cannot be $verb into itself"
    else
      "$action" "$src" "$target"
    fi
    n=$((n + 1))
  done
  return $failed
}
