#!/usr/bin/env bash
# The Windows build from a Debian machine: installs the cross compiler and Wine, builds the dependencies once, the
# project, runs every test under Wine, compares the exports of the DLL with the table of steps, and packs
# build/scansteps-windows-x64.zip, which runs where nothing is installed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
tree=$root/build/windows
zip=$root/build/scansteps-windows-x64.zip
wine=$root/scripts/wine.sh

scripts/bootstrap.sh build windows
scripts/windows_deps.sh
cmake --preset windows >/dev/null
cmake --build --preset windows --parallel "$(nproc)"

"$wine" --start
work=$(mktemp -d)
trap 'rm -rf "$work"; "$wine" --stop' EXIT

# An absolute path of this system means nothing to a Windows program without its drive.
[ -z "${GTEST_OUTPUT:-}" ] || export GTEST_OUTPUT=${GTEST_OUTPUT/:\//:Z:/}
ctest --preset windows

# The DLL exports the functions of the table of steps and set_handles, undecorated, and nothing else.
{
    echo set_handles
    sed -n 's/^SCANSTEPS_STEP(\([a-z0-9]*\),.*/create_\1\ngetTypeIn\1\ngetTypeOut\1/p' src/*/steps.def
} | sort >"$work/wanted"
x86_64-w64-mingw32-objdump -p "$tree/bin/scansteps.dll" |
    sed -n '/^\[Ordinal\/Name Pointer\]/,/^$/s/^\t\[ *[0-9]*\] //p' | sort >"$work/exported"
diff -u "$work/wanted" "$work/exported" || { echo "windows: the exports are not those of the table" >&2; exit 1; }
echo "windows: $(wc -l <"$work/exported") exports, those of the table of steps"

# Programs, the compiler's runtime that they ask for, headers and the core for hosts of one's own.
package=$work/scansteps-windows-x64
cmake --install "$tree" --prefix "$package" --strip >/dev/null
copied=1
while [ "$copied" = 1 ]; do
    copied=0
    for name in $(x86_64-w64-mingw32-objdump -p "$package"/bin/* | sed -n 's/.*DLL Name: //p' | sort -u); do
        [ ! -f "$package/bin/$name" ] || continue
        for folder in "$(dirname "$(x86_64-w64-mingw32-gcc-posix -print-libgcc-file-name)")" /usr/x86_64-w64-mingw32/lib; do
            [ -f "$folder/$name" ] && cp "$folder/$name" "$package/bin/" && copied=1 && break
        done
    done
done
cp README.md "$package/"
cp -r docs examples "$package/"
rm -f "$zip"
(cd "$work" && zip -qr "$zip" "$(basename "$package")")

# It runs from the zip alone, on a system that never saw it, in a folder whose name has blanks and other letters.
export SCANSTEPS_WINEPREFIX=$work/prefix SCANSTEPS_WINEPATH=
trap '"$wine" --stop; unset SCANSTEPS_WINEPREFIX; "$wine" --stop; rm -rf "$work"' EXIT
"$wine" --start
place="$work/ein Ordner äöü 目录"
mkdir -p "$place/Bilder ß"
cp examples/images/img000[0-2].jpg "$place/Bilder ß/"
cd "$place"
unzip -q "$zip"
packed() { "$wine" scansteps-windows-x64/bin/scansteps.exe "$@"; }
packed run --quiet "ccap1 capture.dev_name=test:moving capture.count_max=120 ! ccanny ! cjwrite name=edge0000.jpg" >/dev/null
packed run --quiet "cjread load.name='Bilder ß/img0000.jpg' ! cyuv ! ccanny trl=200 trh=500 ! cjwrite name='Bilder ß/目0000.jpg'" >/dev/null
pictures=(edge0000.jpg edge0119.jpg "Bilder ß"/目000[0-2].jpg)
for picture in "${pictures[@]}"; do
    [ -s "$picture" ] || { echo "windows: the packed program left no $picture" >&2; exit 1; }
done
[ ! -e edge0120.jpg ] && [ ${#pictures[@]} = 5 ] || { echo "windows: the packed program left other pictures" >&2; exit 1; }
echo "windows: $zip, $(du -h "$zip" | cut -f1)"
