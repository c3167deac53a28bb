#!/usr/bin/env bash
# Renders the window's main states to PNG under a virtual display:
#   01-story.png     the example project, the Word chapter open
#   02-modified.png  a co-author's change has arrived: the link shows modified
#   03-merged.png    after Update Link with a conflict: the Story Note
#   04-workbook.png  the workbook's story: a table preview
# usage: scripts/screenshots.sh [BUILD_DIR] [OUT_DIR]   (default build/release, docs/screenshots)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-build/release}
out=${2:-$root/docs/screenshots}
mkdir -p "$out"
document=$(PREPARE_ONLY=1 bash "$root/scripts/run-example.sh" "$build_dir")
project=$(dirname "$document")

display=:97
Xvfb $display -screen 0 1440x900x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
app=""
cleanup() {
  [ -n "$app" ] && kill "$app" 2>/dev/null || true
  kill "$xvfb" 2>/dev/null || true
}
trap cleanup EXIT
export DISPLAY=$display
for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done

"$root/$build_dir/src/inkharbour" "$document" &
app=$!
window=$(xdotool search --sync --onlyvisible --name "Inkharbour" | head -1)
xdotool windowmove "$window" 0 0 windowsize "$window" 1440 900
# No window manager here: give the window the keyboard focus by hand, then
# send real (XTEST) key presses, which Qt's shortcuts take like a user's.
xdotool windowfocus --sync "$window"
sleep 1.5
shot() { import -window root "$out/$1"; echo "$out/$1"; }
shot 01-story.png

# The author begins the first body paragraph anew...
xdotool key ctrl+Home Down Down Home
xdotool type --delay 15 "Long ago, the "
xdotool key shift+ctrl+Right Delete
sleep 0.5
# ...while a co-author rewrites the same paragraph and the title in Word.
python3 - "$project/the-lighthouse-keeper.docx" <<'PY'
import sys, zipfile, shutil, os
path = sys.argv[1]
tmp = path + ".tmp"
with zipfile.ZipFile(path) as src, zipfile.ZipFile(tmp, "w", zipfile.ZIP_DEFLATED) as dst:
    for item in src.infolist():
        data = src.read(item.filename)
        if item.filename == "word/document.xml":
            text = data.decode("utf-8")
            text = text.replace("The Lighthouse Keeper", "The Last Lighthouse Keeper")
            text = text.replace(" meant to keep it burning for ninety more.",
                                " swore to keep it burning for ninety more.")
            data = text.encode("utf-8")
        dst.writestr(item, data)
os.replace(tmp, path)
PY
sleep 3
shot 02-modified.png

xdotool key ctrl+shift+u
sleep 1.5
shot 03-merged.png

# The change review of that merge.
xdotool key ctrl+shift+r
sleep 1
xdotool mousemove 60 729 click 1   # the conflict's row
sleep 0.5
shot 05-review.png

# The table editor (a double-click on the table's preview), then the style mapping sheet.
xdotool mousemove 420 567 click --repeat 2 --delay 80 1
sleep 1
shot 06-table-editor.png
xdotool key Escape
sleep 0.5
xdotool key alt+o
sleep 0.3
xdotool key m
sleep 1
shot 07-style-mapping.png
xdotool key Escape
sleep 0.3

# The workbook is the second story in the stories panel.
xdotool mousemove 40 118 click 1
sleep 1
shot 04-workbook.png
