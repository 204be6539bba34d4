#!/bin/sh
# The layer check itself: a small tree with one fault of each kind must fail naming each, and the same
# tree mended must pass.
#   TestCheckLayers.sh CHECK_SCRIPT QT_HEADERS_DIR
set -u
check=$1 qt=$2
tree=$(mktemp -d "${TMPDIR:-/tmp}/layers.XXXXXX") || exit 2
trap 'rm -rf "$tree"' EXIT
mkdir -p "$tree/util" "$tree/platform/linux" "$tree/core" "$tree/search" "$tree/memory" "$tree/gui/shell" "$tree/cli"
printf '#pragma once\n' >"$tree/util/Clock.h"
printf '#include "linux/Proc.h"\n#include "util/Clock.h"\n' >"$tree/platform/Info.h"
printf '#pragma once\n' >"$tree/platform/linux/Proc.h"
printf '#include "core/Texts.h"\n#include <QString>\n' >"$tree/search/Walker.cpp"
printf '#pragma once\n' >"$tree/core/Texts.h"
printf '#include "gui/shell/Panel.h"\n#include <QWidget>\n' >"$tree/core/Settings.cpp"
printf '#include "search/Walker.h"\n' >"$tree/memory/Purge.cpp"
printf '#include "cli/Commands.h"\n#include <QWidget>\n' >"$tree/gui/shell/Panel.cpp"
mkdir -p "$tree/misc"
printf '#pragma once\n' >"$tree/misc/Stray.h"
printf '#include "nowhere/Missing.h"\n' >"$tree/util/Clock.cpp"
printf 'add_library(x STATIC a.cpp)\ntarget_link_libraries(x PUBLIC Qt6::Core Qt6::Widgets)\n' >"$tree/search/CMakeLists.txt"
printf 'target_link_libraries(y PUBLIC Qt6::Widgets)\n' >"$tree/gui/CMakeLists.txt"

fail=0
out=$("$check" "$tree" "$qt") && { echo "FAIL: a faulty tree passed"; fail=1; }
for want in \
  'src/core/Settings.cpp: includes "gui/shell/Panel.h" of a higher layer' \
  'src/core/Settings.cpp: includes <QWidget> (Qt Gui or Widgets) below gui' \
  'src/memory/Purge.cpp: includes "search/Walker.h" of another folder of its own layer' \
  'src/gui/shell/Panel.cpp: includes "cli/Commands.h" of another folder of its own layer' \
  'src/search/CMakeLists.txt:2: links Qt6::Widgets below gui' \
  'src/misc/Stray.h: lies in no layer' \
  'src/util/Clock.cpp: includes "nowhere/Missing.h" from outside the layers'; do
  printf '%s\n' "$out" | grep -qxF "$want" || { echo "FAIL: missing line: $want"; fail=1; }
done
lines=$(printf '%s\n' "$out" | wc -l)
[ "$lines" -eq 7 ] || { echo "FAIL: expected 7 complaints, got $lines:"; printf '%s\n' "$out"; fail=1; }

rm -r "$tree/core/Settings.cpp" "$tree/memory/Purge.cpp" "$tree/search/CMakeLists.txt" "$tree/misc" "$tree/util/Clock.cpp"
printf '#include "core/Texts.h"\n#include <QWidget>\n' >"$tree/gui/shell/Panel.cpp"
"$check" "$tree" "$qt" >/dev/null || { echo "FAIL: a clean tree failed:"; "$check" "$tree" "$qt"; fail=1; }
[ $fail -eq 0 ] && echo "1 passed, 0 failed"
exit $fail
