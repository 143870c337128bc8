#!/usr/bin/env bash
# Tries packages in a minimal Debian of their own, made with this machine's package sources: installs them, runs the
# demo, builds the install test against them, removes them and looks for what stayed; the archive runs there too, from
# any folder, where nothing is installed. Needs root and mmdebstrap.
#
#   scripts/package_trial.sh FOLDER     with the .deb files and the .tar.gz
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
packages=$(realpath "$1")
skip() {
    echo "package: not tried in a clean Debian: $*"
    exit 0
}
[ "$(id -u)" = 0 ] || skip "that needs root"
command -v mmdebstrap >/dev/null || skip "no mmdebstrap (scripts/bootstrap.sh packages)"

work=$(mktemp -d "${TMPDIR:-/tmp}/scansteps-debian-XXXXXX")
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
debian=$work/debian
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")

# The sources, keys and settings of this machine's package manager; nothing of them is kept.
sources=()
for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources; do
    [ ! -f "$file" ] || sources+=("$file")
done
options=()
for file in /etc/apt/apt.conf.d/*; do
    grep -q 'Acquire::' "$file" && options+=("--aptopt=$file")
done
mmdebstrap --quiet --variant=minbase "${options[@]}" "$suite" "$debian" "${sources[@]}" 2>"$work/log" ||
    { cat "$work/log" >&2; exit 1; }
inside() {
    # No service of the machine is reachable from there but the network.
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        unshare --mount --pid --fork --kill-child chroot "$debian" bash -euo pipefail -c \
        'mount -t proc proc /proc; cd /root; eval "$0"' "$1"
}
mkdir "$debian/root/packages"
cp "$packages"/*.deb "$packages"/*.tar.gz "$debian/root/packages/"
mkdir "$debian/root/tests"
cp -r tests/install "$debian/root/tests/"
cp -r examples "$debian/root/"
for table in plugins/*/steps.def; do basename "$(dirname "$table")"; done >"$debian/root/plugins"

echo "package: the archive, where nothing is installed"
inside '
    mkdir -p "/opt/a folder"; tar -xzf packages/*.tar.gz -C "/opt/a folder"
    program=$(echo "/opt/a folder"/scansteps-*/bin/scansteps)
    "$program" run --quiet "ccap1 capture.dev_name=test:moving capture.count_max=3 ! ccanny ! cjwrite name=archive0000.jpg" >/dev/null
    test -s archive0002.jpg
    rm -rf /opt/* archive*'

echo "package: the packages"
inside '
    apt-get update -q >/dev/null
    apt-get install -y -q -o Dpkg::Use-Pty=0 ./packages/scansteps_*.deb ./packages/scansteps-doc_*.deb >/dev/null
    cp -r /usr/share/doc/scansteps/examples demo-examples
    mkdir demo; cd demo; cp -r ../demo-examples examples; mkdir out
    scansteps run --quiet examples/edges.json >/dev/null
    pictures=(out/edge*.jpg); echo "package: the demo made ${#pictures[@]} pictures"; test ${#pictures[@]} = 12
    scansteps steps ccanny >/dev/null
    while read -r plugin; do
        scansteps steps -v 2>&1 >/dev/null | grep "plug-in $plugin " || { echo "no plug-in $plugin"; exit 1; }
    done <../plugins
    ls /usr/share/man/man1/scansteps-run.1.gz /usr/share/bash-completion/completions/scansteps >/dev/null
    cd ..; rm -rf demo demo-examples'
inside '
    apt-get install -y -q -o Dpkg::Use-Pty=0 --no-install-recommends ./packages/python3-scansteps_*.deb >/dev/null
    python3 -c "
import numpy, scansteps
print(\"package: from Python\", scansteps.Pipeline(\"cyuv ! ccanny\")(numpy.zeros((48, 64, 3), numpy.uint8)).frame.shape)"'
inside '
    apt-get install -y -q -o Dpkg::Use-Pty=0 --no-install-recommends ./packages/libscansteps-dev_*.deb >/dev/null
    apt-get install -y -q -o Dpkg::Use-Pty=0 --no-install-recommends g++ cmake ninja-build pkg-config >/dev/null
    tests/install/run.sh /usr'
echo "package: the removal"
inside '
    ours=$(dpkg-query -f "\${binary:Package}\n" -W "*scansteps*" | tr "\n" " ")
    dpkg -L $ours | sort -u >files
    dpkg -P $ours >/dev/null
    left=$(while read -r file; do [ -d "$file" ] || ! [ -e "$file" ] || echo "$file"; done <files
           find / -xdev \( -path /proc -o -path /root \) -prune -o -iname "*scansteps*" -print)
    [ -z "$left" ] || { echo "left behind: $left"; exit 1; }
    echo "package: removed $ours"'
