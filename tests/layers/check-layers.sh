#!/bin/sh
# Keeps the folders layered: a file under src/ includes headers of its own folder's layer or below, never
# above, and never a sibling subsystem's; below gui nothing includes or links Qt Gui or Qt Widgets.
#   check-layers.sh SRC_DIR QT_HEADERS_DIR
# Prints each offending file and include; exits 1 when there is one.
set -u
src=${1:?usage: check-layers.sh SRC_DIR QT_HEADERS_DIR}
qt=${2:?usage: check-layers.sh SRC_DIR QT_HEADERS_DIR}
cd "$src" || exit 2

# Layer of a top folder of src/; main.cpp sits above everything.
layer() {
  case "$1" in
    util) echo 1 ;;
    platform) echo 2 ;;
    core) echo 3 ;;
    hidden|search|memory|diskusage|login) echo 4 ;;
    gui|cli) echo 5 ;;
    main.cpp) echo 6 ;;
    *) echo 0 ;;
  esac
}

# Every header Qt Gui and Qt Widgets install, by the name a file includes.
ui_headers=$(ls "$qt/QtGui" "$qt/QtWidgets" 2>/dev/null | grep -v ':$' | sort -u)
[ -n "$ui_headers" ] || { echo "check-layers: no Qt Gui or Widgets headers under $qt" >&2; exit 2; }

bad=0
complain() { echo "$1: $2"; bad=1; }

files=$(find . -name '*.h' -o -name '*.cpp' | sed 's|^\./||' | sort)
for f in $files; do
  top=${f%%/*}
  mine=$(layer "$top")
  [ "$mine" -gt 0 ] || { complain "src/$f" "lies in no layer (folder '$top')"; continue; }
  grep -n '^[[:space:]]*#[[:space:]]*include' "$f" | while IFS= read -r line; do
    inc=$(printf '%s\n' "$line" | sed -n 's/.*#[[:space:]]*include[[:space:]]*["<]\([^">]*\)[">].*/\1/p')
    case "$line" in
      *'"'*)
        case "$inc" in
          */*) target=${inc%%/*} ;;
          *) continue ;;  # a header of the file's own folder
        esac
        theirs=$(layer "$target")
        if [ "$theirs" -eq 0 ]; then
          [ -e "$f" ] && [ -e "$(dirname "$f")/$inc" ] && continue
          echo "src/$f: includes \"$inc\" from outside the layers"
        elif [ "$theirs" -gt "$mine" ]; then
          echo "src/$f: includes \"$inc\" of a higher layer"
        elif [ "$theirs" -eq "$mine" ] && [ "$target" != "$top" ]; then
          echo "src/$f: includes \"$inc\" of another folder of its own layer"
        fi
        ;;
      *)
        if [ "$mine" -lt 5 ]; then
          name=${inc##*/}
          case "$inc" in
            QtGui/*|QtWidgets/*) echo "src/$f: includes <$inc> below gui" ;;
            */*) ;;
            *) printf '%s\n' "$ui_headers" | grep -qx "$name" && echo "src/$f: includes <$inc> (Qt Gui or Widgets) below gui" ;;
          esac
        fi
        ;;
    esac
  done
done >"${TMPDIR:-/tmp}/check-layers.$$"

for cm in $(find . -name CMakeLists.txt | sed 's|^\./||' | sort); do
  top=${cm%%/*}
  [ "$(layer "$top")" -lt 5 ] || continue
  grep -n 'Qt6::\(Gui\|Widgets\|Svg\|OpenGL\|Quick\)' "$cm" | sed "s|^\([0-9]*\):.*\(Qt6::[A-Za-z]*\).*|src/$cm:\1: links \2 below gui|"
done >>"${TMPDIR:-/tmp}/check-layers.$$"

if [ -s "${TMPDIR:-/tmp}/check-layers.$$" ]; then
  cat "${TMPDIR:-/tmp}/check-layers.$$"
  bad=1
fi
rm -f "${TMPDIR:-/tmp}/check-layers.$$"
[ $bad -eq 0 ] && echo "check-layers: every include and link keeps to its layer"
exit $bad
