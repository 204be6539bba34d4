#!/bin/sh
# The disk-usage view in the panel, on a home with known contents: caches, a file in the XDG download
# folder, a trashed file, a song kept twice in two folders and a 25 MB file unused for 200 days.
# `trovix disk --json` measures the home first; then the tray program's panel opens its disk view
# ("Details"), all four categories answer, and every figure the view shows (read back through the
# TROVIX_DISK_VIEW_FIGURES dump) must equal the command's, its texts those of `trovix disk`.
# Screenshots: panel-compact.png, panel-disk-view.png, panel-large-and-old.png (the panel alone) and
# desktop.png.
# Usage: TestDiskView.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"

# fill FILE BYTES [CHAR]: a file of that many bytes of one character (never sparse).
fill() {
  mkdir -p "$(dirname "$1")"
  head -c "$2" /dev/zero | tr '\0' "${3:-x}" >"$1"
}
fill "$XDG_CACHE_HOME/thumbnails/large/0a1b.png" 1500000
fill "$XDG_CACHE_HOME/fontconfig/cache-7" 250000
fill "$XDG_CACHE_HOME/browser/Cache/data_1" 4000000
mkdir -p "$XDG_CONFIG_HOME"
echo 'XDG_DOWNLOAD_DIR="$HOME/Fetched"' >"$XDG_CONFIG_HOME/user-dirs.dirs"
fill "$HOME/Fetched/installer.run" 6000000
fill "$XDG_DATA_HOME/Trash/files/old report.pdf" 2000000
mkdir -p "$XDG_DATA_HOME/Trash/info"
printf '[Trash Info]\nPath=%s\nDeletionDate=2026-01-02T03:04:05\n' "$HOME/Documents/old%20report.pdf" \
  >"$XDG_DATA_HOME/Trash/info/old report.pdf.trashinfo"
fill "$HOME/Music/Album/song.mp3" 3500000 s
fill "$HOME/Backup/song.mp3" 3500000 s
fill "$HOME/Archive/holiday-2025.mkv" 25000000 v
touch -a -m -d "200 days ago" "$HOME/Archive/holiday-2025.mkv"

# The command's answer (the large-and-old scan covers the whole start-up disk, as in the panel).
"$bin" disk --json >"$artifacts/disk.json" 2>"$artifacts/disk.err" || fail "trovix disk --json failed"
"$bin" disk >"$artifacts/disk.txt" 2>>"$artifacts/disk.err" || fail "trovix disk failed"
echo "trovix disk --json: $(cat "$artifacts/disk.json")"

seed_settings
start_desktop
figures="$artifacts/figures.json"
rm -f "$figures"
export TROVIX_DISK_VIEW_FIGURES="$figures"
start_trovix
wait_icon
sleep 0.5
click_at $ix $iy
wait_for "panel" '[ -n "$(panel)" ]' || fail "the panel did not open"
sleep 0.5
set -- $(panel)
px=$2; py=$3; pw=$4; ph=$5
shoot() { import -window root png:- | convert - -crop "${pw}x${ph}+${px}+${py}" +repage "$1"; }
shoot "$artifacts/panel-compact.png"
[ -f "$figures" ] && fail "the compact panel scanned"

# "Details" is the last row's right end: it opens the whole view, which starts the scans.
click_at $(( px + pw - 45 )) $(( py + ph - 24 ))
wait_for "the disk view" '[ "$(panel | awk "{ print \$5 }")" -gt $(( ph + 100 )) ]' \
  || fail "Details did not open the disk view"
E2E_WAIT=240 wait_for "four answers" '[ -s "$figures" ]' || fail "the four categories did not answer"
sleep 0.5
set -- $(panel)
px=$2; py=$3; pw=$4; ph=$5
shoot "$artifacts/panel-disk-view.png"
screenshot "$artifacts/desktop.png"
echo "shown: $(tr -d '\n' <"$figures" | tr -s ' ')"

/usr/bin/python3 - "$artifacts/disk.json" "$artifacts/disk.txt" "$figures" <<'PY' || fail "the view's figures differ from trovix disk"
import json, re, sys
disk = json.load(open(sys.argv[1]))["categories"]
text = open(sys.argv[2]).read()
shown = json.load(open(sys.argv[3]))
# The command's texts come from the same size formatter as the view's.
texts = {
    "junk": re.search(r"^Junk files: +(.+?) \(", text, re.M).group(1),
    "duplicates": re.search(r"^Duplicates: +(.+?) in ", text, re.M).group(1),
    "largeOld": re.search(r"^Large and old files: +(.+?) in ", text, re.M).group(1),
    "applications": re.search(r"^Applications: +(.+?) in ", text, re.M).group(1),
}
total = re.search(r"^Total: +(.+)$", text, re.M).group(1)
bad = []
for key in ("junk", "duplicates", "largeOld", "applications"):
    for field in ("bytes", "count"):
        if shown[key][field] != disk[key][field]:
            bad.append("%s %s: shown %s, trovix disk %s" % (key, field, shown[key][field], disk[key][field]))
    if shown[key]["text"] != texts[key]:
        bad.append("%s: shown %r, trovix disk %r" % (key, shown[key]["text"], texts[key]))
if shown["total"] != total:
    bad.append("total: shown %r, trovix disk %r" % (shown["total"], total))
# What this home holds for sure.
if disk["duplicates"]["count"] != 2 or disk["duplicates"]["bytes"] != 7000000:
    bad.append("duplicates: the song's two copies (7000000 bytes) expected, got %s" % disk["duplicates"])
if disk["largeOld"]["bytes"] < 25000000:
    bad.append("large and old: the 25 MB file is missing (%s)" % disk["largeOld"])
for line in bad:
    print("  " + line)
sys.exit(1 if bad else 0)
PY

# A category's detail page: "Large & Old Files:" is the fourth row from the bottom (above
# "Applications:", the total and the review button).
click_at $(( px + 60 )) $(( py + ph - 94 ))
sleep 0.5
shoot "$artifacts/panel-large-and-old.png"
changed=$(compare -metric AE "$artifacts/panel-disk-view.png" "$artifacts/panel-large-and-old.png" null: 2>&1)
[ "${changed%% *}" -gt 1000 ] 2>/dev/null || fail "the large-and-old page did not open ($changed pixels changed)"
echo "1 passed, 0 failed"
