#!/usr/bin/env bash
# `make run`: a fresh copy of the example project, opened in the window.
# The project (a Word chapter, a workbook and a text file, each placed as a
# linked story) is rebuilt from examples/ on every run, so the author's
# experiments never pile up. Without a display it prints the project's link
# status instead. PREPARE_ONLY=1 only builds the project and prints its path.
set -euo pipefail
build_dir=${1:-build/release}
root=$(cd "$(dirname "$0")/.." && pwd)
project="$root/$build_dir/example-project"
cli="$root/$build_dir/src/inkharbour-cli"

rm -rf "$project"
mkdir -p "$project"
cp "$root"/examples/the-lighthouse-keeper.docx "$root"/examples/supply-log.xlsx \
   "$root"/examples/keeper-letters.txt "$project"/
document="$project/The Lighthouse Keeper.inkharbour"
"$cli" new "$document" >/dev/null
"$cli" place "$document" "$project/the-lighthouse-keeper.docx" "$project/supply-log.xlsx" \
  "$project/keeper-letters.txt" >/dev/null

if [ -n "${PREPARE_ONLY:-}" ]; then
  echo "$document"
  exit 0
fi
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "No display to open the window on (neither DISPLAY nor WAYLAND_DISPLAY is set)."
  echo "The example project is $document; its links:"
  "$cli" status "$document" || true
  echo "To see the window without a display: xvfb-run -a $build_dir/src/inkharbour \"$document\""
  exit 0
fi
echo "Opening $document"
exec "$root/$build_dir/src/inkharbour" "$document"
