#!/usr/bin/env bash
# Extracts the photographs of registration_conditions_bench from Debian packages into a folder: in "held-out" those that
# reports are about, in "tuning" those that parameters may be chosen with. Needs imagemagick. Nothing is installed.
#
#   bench/registration/photographs.sh FOLDER
set -euo pipefail
folder=${1:?usage: photographs.sh FOLDER}
mkdir -p "$folder"/{packages,held-out,tuning}
(cd "$folder/packages" && apt-get download python3-skimage mate-backgrounds)
for package in "$folder"/packages/*.deb; do dpkg -x "$package" "$folder/packages"; done
skimage=$folder/packages/usr/lib/python3/dist-packages/skimage/data
mate=$folder/packages/usr/share/backgrounds/mate
here=$(dirname "${BASH_SOURCE[0]}")

# All cover 960 x 720 pixels. The convert of the package, whatever else comes first in PATH.
convert_to() {
    local target=$1
    shift
    for picture in "$@"; do
        local name
        name=$(basename "$picture")
        /usr/bin/convert "$picture" -resize '960x720^' -gravity center -extent 960x720 -colorspace Gray -quality 95 \
            "$folder/$target/${name%.*}.jpg" 2>/dev/null
    done
}
# The first fifteen have texture everywhere; the last three have little of it.
mkdir -p "$folder/held-out/plain"
convert_to held-out "$skimage"/{brick,camera,coins,grass,gravel,ihc,motorcycle_left,page}.png \
    "$skimage"/{hubble_deep_field,retina}.jpg "$mate"/nature/{Dune,GreenMeadow,RainDrops,Wood}.jpg \
    "$mate"/abstract/Elephants.jpg
convert_to held-out/plain "$skimage"/{moon,text}.png "$mate"/nature/YellowFlower.jpg
convert_to tuning "$mate"/nature/{Blinds,FreshFlower}.jpg "$here"/../../examples/images/photo_*.jpg
