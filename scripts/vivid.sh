#!/usr/bin/env bash
# Captures from a real Video4Linux driver: boots Debian's kernel in an emulated machine, loads "vivid", the kernel's
# own test camera, captures from it with the program, unplugs it in the middle of a run, and checks here the
# frames that came out. Needs no rights. Where the emulator or the kernel cannot be had it says so and skips.
#
#   scripts/vivid.sh [BIN]              BIN holds the program and the library; without it preset dev is built
#
# SCANSTEPS_VIVID_CACHE (~/.cache/scansteps/vivid) keeps the kernel and its modules between runs.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
cache=${SCANSTEPS_VIVID_CACHE:-$HOME/.cache/scansteps/vivid}
modules=(mc videodev videobuf2-common videobuf2-v4l2 rc-core cec v4l2-dv-timings v4l2-tpg videobuf2-memops
    videobuf2-dma-contig videobuf2-vmalloc vivid)

skip() {
    echo "vivid: skipped, $*"
    exit 0
}
[ "$(uname -m)" = x86_64 ] || skip "the emulated machine is an x86_64"
scripts/bootstrap.sh vivid || skip "the emulator cannot be installed"

bin=${1:-}
if [ -z "$bin" ]; then
    bin=build/dev/bin
    cmake --preset dev >/dev/null
    cmake --build --preset dev --parallel "$(nproc)" --target scansteps_program scansteps_plugin
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The kernel, once.
if [ ! -f "$cache/vivid.ko" ]; then
    kernel=$(apt-cache depends linux-image-amd64 | sed -n 's/.*Depends: //p' | head -1)
    [ -n "$kernel" ] && (cd "$work" && apt-get -q -o APT::Sandbox::User=root download "$kernel" >/dev/null) ||
        skip "the kernel package cannot be had"
    mkdir -p "$work/kernel" "$cache"
    dpkg-deb --fsys-tarfile "$work"/*.deb |
        tar -x -C "$work/kernel" --wildcards './boot/vmlinuz*' './lib/modules/*/kernel/drivers/media/*'
    cp "$work"/kernel/boot/vmlinuz* "$cache/vmlinuz"
    for module in "${modules[@]}"; do
        cp "$(find "$work/kernel" -name "$module.ko")" "$cache/"
    done
fi

# What the machine boots: a shell, the modules, the program with its libraries, and the script that is its all.
root=$work/root
mkdir -p "$root"/{bin,dev,proc,sys,tmp,modules}
cp /bin/busybox "$root/bin/"
cp "$cache"/*.ko "$root/modules/"
cp "$bin/scansteps" "$bin/libscansteps.so" "$root/bin/"
ldd "$bin/scansteps" "$bin/libscansteps.so" | grep -o '/[^ :]*\.so[^ :]*' | grep -v libscansteps | sort -u |
    while read -r library; do
        mkdir -p "$root/$(dirname "$library")"
        cp -L "$library" "$root/$library"
    done
cat >"$root/init" <<'INIT'
#!/bin/busybox sh
/bin/busybox --install /bin
mount -t proc none /proc
mount -t sysfs none /sys
mount -t devtmpfs none /dev
for module in MODULES; do
    arguments=
    [ $module != vivid ] || arguments="n_devs=1 node_types=0x1 num_inputs=1 input_types=0 no_error_inj=1"
    insmod /modules/$module.ko $arguments || echo "no $module"
done
cd /tmp
answer() { echo "answer $1 $2"; }
scansteps devices >devices; answer devices $?
grep -m 3 -e vivid -e YUYV devices
scansteps run --quiet "ccap1 dataX=320 dataY=180 capture.count_max=30 ! filesaver name=run.rec" >log 2>&1; answer run $?
scansteps run --quiet "ccap dataX=333 dataY=222 ! filesaver name=own.rec" --frames 2 >>log 2>&1; answer own $?
scansteps run --quiet "ccap1 capture.dev_name=vivid capture.timeout_ms=60000 ! ccanny ! clast" >unplugged 2>&1 & run=$!
sleep 3
echo -n vivid.0 >/sys/bus/platform/drivers/vivid/unbind
wait $run; answer unplugged $?
grep error log unplugged
tar -cz run.rec own.rec | base64 | sed 's/^/file /'
echo "answer end 0"
poweroff -f
INIT
sed -i "s/MODULES/${modules[*]}/" "$root/init"
chmod +x "$root/init"
(cd "$root" && find . | busybox cpio -o -H newc 2>/dev/null | gzip -1) >"$work/initramfs"

timeout "${VIVID_SECONDS:-170}" qemu-system-x86_64 -M q35 -accel tcg -cpu max -m 512 -nodefaults -display none \
    -no-reboot -kernel "$cache/vmlinuz" -initrd "$work/initramfs" -append "console=ttyS0 quiet panic=-1" \
    -serial stdio </dev/null 2>&1 | tr -d '\r' >"$work/serial" || true
grep -v '^file ' "$work/serial" || true

fail() {
    echo "vivid: $*" >&2
    exit 1
}
for answer in "devices 0" "run 0" "own 0" "unplugged 4" "end 0"; do
    grep -q "^answer $answer\$" "$work/serial" || fail "no \"$answer\" from the emulated machine"
done
grep -q 'unplugged:.*no more frames' "$work/serial" || fail "the unplugged camera is not told"

sed -n 's/^file //p' "$work/serial" | base64 -d | tar -xz -C "$work"
for name in run own; do "$bin/scansteps" inspect --json --data "$work/$name.rec" >"$work/$name.json"; done
python3 - "$work" <<'PYTHON'
import json, sys

def frames(name):
    for line in open(f"{sys.argv[1]}/{name}.json"):
        record = json.loads(line)["record"]
        if record["eventType"] == 1002:
            yield record["data"]["Array"]

run = list(frames("run"))
assert len(run) == 30, f"{len(run)} frames"
for frame in run:
    width, height, channels = frame["dims"]
    assert (width, height, channels) == (320, 180, 1), frame["dims"]
    # The lower part shows eight bars from white to black. Samples are luma + 256 * chroma, Cb in even columns:
    # luma falls; white and black have no colour, blue has much Cb and little Cr.
    row = frame["data"][width * (height - 20):][:width]
    bars = [(width * (2 * bar + 1) // 16) & ~1 for bar in range(8)]
    luma, cb, cr = ([f(x) for x in bars] for f in
                    (lambda x: row[x] & 255, lambda x: row[x] >> 8, lambda x: row[x + 1] >> 8))
    assert all(a > b for a, b in zip(luma, luma[1:])), luma
    assert all(abs(chroma[bar] - 128) <= 2 for chroma in (cb, cr) for bar in (0, 7)), (cb, cr)
    assert cb[6] > 180 > 128 > cr[6] and cr[5] > 180 > 128 > cb[5], (cb, cr)
distinct = len({tuple(frame["data"]) for frame in run})
assert distinct > 20, f"only {distinct} different frames"
width, height, _ = next(frames("own"))["dims"]
print(f"vivid: 30 frames of 320 x 180, {distinct} different; asked for 333 x 222 it chose {width} x {height}")
PYTHON
