#!/bin/sh
# Keeps the folders layered: a file under src/ includes headers of its own folder's layer or below, never
# above, and never a sibling subsystem's; below gui nothing includes or links Qt Gui or Qt Widgets.
#   check-layers.sh SRC_DIR QT_HEADERS_DIR
# Prints each offending file and include; exits 1 when there is one.
set -u
src=${1:?usage: check-layers.sh SRC_DIR QT_HEADERS_DIR}
qt=${2:?usage: check-layers.sh SRC_DIR QT_HEADERS_DIR}
cd "$src" || exit 2

# Every header Qt Gui and Qt Widgets install, by the name a file includes.
ui_headers=$(ls "$qt/QtGui" "$qt/QtWidgets" 2>/dev/null | grep -v ':$' | sort -u)
[ -n "$ui_headers" ] || { echo "check-layers: no Qt Gui or Widgets headers under $qt" >&2; exit 2; }

# One pass over every include and every CMake link line; awk knows the layers.
out=$( {
  printf '%s\n' "$ui_headers" | sed 's/^/UI\t/'
  find . -type f \( -name '*.h' -o -name '*.cpp' \) -exec grep -H '^[[:space:]]*#[[:space:]]*include' {} + | sed 's/^/INC\t/'
  find . -type f \( -name '*.h' -o -name '*.cpp' \) | sed 's/^/FILE\t/'
  find . -type f -name CMakeLists.txt -exec grep -Hn 'Qt6::' {} + | sed 's/^/CMAKE\t/'
} | awk -F '\t' '
  function layer(top) {
    if (top == "util") return 1
    if (top == "platform") return 2
    if (top == "core") return 3
    if (top ~ /^(hidden|search|memory|diskusage|login)$/) return 4
    if (top == "gui" || top == "cli" || top == "launcher") return 5
    if (top == "main.cpp") return 6
    return 0
  }
  function topof(path) { sub(/^\.\//, "", path); split(path, p, "/"); return p[1] }
  function clean(path) { sub(/^\.\//, "", path); return path }
  $1 == "UI" { ui[$2] = 1; next }
  $1 == "FILE" { exists[clean($2)] = 1; f = clean($2); if (layer(topof(f)) == 0) print "src/" f ": lies in no layer"; next }
  $1 == "INC" {
    line = $2; for (i = 3; i <= NF; i++) line = line "\t" $i
    file = clean(substr(line, 1, index(line, ":") - 1)); text = substr(line, index(line, ":") + 1)
    mine = layer(topof(file))
    if (match(text, /"[^"]+"/)) {
      inc = substr(text, RSTART + 1, RLENGTH - 2)
      if (index(inc, "/") == 0) next                      # a header of the file'"'"'s own folder
      split(inc, q, "/"); theirs = layer(q[1])
      if (theirs == 0) { dir = file; sub(/\/[^\/]*$/, "", dir); rel[file "\t" dir "/" inc] = inc; next }
      if (theirs > mine) print "src/" file ": includes \"" inc "\" of a higher layer"
      else if (theirs == mine && q[1] != topof(file)) print "src/" file ": includes \"" inc "\" of another folder of its own layer"
    } else if (match(text, /<[^>]+>/) && mine < 5) {
      inc = substr(text, RSTART + 1, RLENGTH - 2); name = inc; sub(/.*\//, "", name)
      if (inc ~ /^(QtGui|QtWidgets)\//) print "src/" file ": includes <" inc "> below gui"
      else if (index(inc, "/") == 0 && (name in ui)) print "src/" file ": includes <" inc "> (Qt Gui or Widgets) below gui"
    }
    next
  }
  $1 == "CMAKE" {
    split($2, c, ":"); cm = clean(c[1])
    if (layer(topof(cm)) < 5 && match($2, /Qt6::(Gui|Widgets|Svg|OpenGL|Quick)/))
      print "src/" cm ":" c[2] ": links " substr($2, RSTART, RLENGTH) " below gui"
    next
  }
  END {
    for (k in rel) { split(k, r, "\t"); path = r[2]; while (path ~ /\/[^\/]+\/\.\.\//) sub(/\/[^\/]+\/\.\.\//, "/", path)
      if (!(path in exists)) print "src/" r[1] ": includes \"" rel[k] "\" from outside the layers" }
  }' | sort -u )

if [ -n "$out" ]; then
  printf '%s\n' "$out"
  exit 1
fi
echo "check-layers: every include and link keeps to its layer"
