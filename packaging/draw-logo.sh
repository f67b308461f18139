#!/bin/bash
# Draws the logo, packaging/xvrm-logo.png: a parcel, half open, with an arrow going in. To be run again
# after a change here; the picture is committed, so that no build needs ImageMagick.
#
# The middle is light: the screen of the refresh has its text there, dark and in front of the logo.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

light='#78aeed'
middle='#3584e4'
dark='#1a5fb4'
tape='#f6d32d'
tape_shade='#e5a50a'
inside='#cfe2f8'
arrow='#f8a53a'

# Drawn four times as large and made smaller, which smooths the edges.
convert -size 1024x1024 xc:none -stroke none \
    -fill "$inside" -draw 'polygon 128,448 512,288 896,448 512,608' \
    -fill "$light" -draw 'polygon 128,448 512,608 432,720 48,560' \
    -fill "$light" -draw 'polygon 896,448 512,608 592,720 976,560' \
    -fill "$middle" -draw 'polygon 128,593 432,720 512,608 512,976 128,816' \
    -fill "$dark" -draw 'polygon 896,593 592,720 512,608 512,976 896,816' \
    -fill "$tape" -draw 'polygon 290,661 370,694 370,917 290,884' \
    -fill "$tape_shade" -draw 'polygon 734,661 654,694 654,917 734,884' \
    -fill "$arrow" -draw 'roundrectangle 464,48 560,320 24,24' \
    -fill "$arrow" -draw 'polygon 352,288 672,288 512,488' \
    -filter Lanczos -resize 256x256 -strip -define png:compression-level=9 xvrm-logo.png
