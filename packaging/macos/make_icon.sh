#!/bin/sh
# Draws the application's icon in every size that macOS asks for.
#   make_icon.sh ICON.svg OUTPUT.icns
# Needs rsvg-convert (Homebrew: librsvg) and, to put the pictures together, macOS's own iconutil.
set -eu

if [ $# -ne 2 ]; then
  echo "usage: make_icon.sh ICON.svg OUTPUT.icns" >&2
  exit 2
fi
drawing=$1
output=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
iconset="$work/helper.iconset"
mkdir "$iconset"
for size in 16 32 128 256 512; do
  rsvg-convert -w "$size" -h "$size" "$drawing" -o "$iconset/icon_${size}x${size}.png"
  double=$((size * 2))
  rsvg-convert -w "$double" -h "$double" "$drawing" -o "$iconset/icon_${size}x${size}@2x.png"
done
iconutil --convert icns --output "$output" "$iconset"
