#!/usr/bin/env bash
# Draws the application icon, res/kestrel.ico (committed; run this only to change the design): a
# kestrel with swept wings, orange with a white outline, on a rounded teal square, at 256, 48, 32
# and 16 pixels. Needs ImageMagick.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
convert -size 256x256 xc:none \
  -fill '#0E5A6E' -draw 'roundrectangle 8,8 247,247 48,48' \
  -fill '#F29A2E' -stroke '#FFFFFF' -strokewidth 6 \
  -draw 'polygon 128,44 146,92 236,70 156,128 146,176 168,224 128,206 88,224 110,176 100,128 20,70 110,92' \
  -stroke none -fill '#0E5A6E' -draw 'circle 128,76 128,68' \
  -depth 8 "$work/kestrel-256.png"
convert "$work/kestrel-256.png" -define icon:auto-resize=256,48,32,16 -depth 8 "$here/kestrel.ico"
