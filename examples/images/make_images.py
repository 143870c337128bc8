#!/usr/bin/env python3
"""Makes the example photographs from the pictures of Debian's python3-skimage package (python3-pil needed).

usage: make_images.py [PICTURES [OUT]]   PICTURES: the folder skimage/data of the package
"""
import os
import sys

from PIL import Image, ImageFilter

PICTURES = sys.argv[1] if len(sys.argv) > 1 else "/usr/lib/python3/dist-packages/skimage/data"
OUT = sys.argv[2] if len(sys.argv) > 2 else os.path.dirname(os.path.abspath(__file__))
FRAMES = 12


def save(image, name, quality):
    image.save(os.path.join(OUT, name), quality=quality, subsampling="4:2:0")


def picture(name, size=None):
    image = Image.open(os.path.join(PICTURES, name)).convert("RGB")
    image.info.clear()
    return image.resize(size, Image.Resampling.LANCZOS) if size else image


def zoom(image, t):
    """One 640x480 frame of a slow zoom, t from 0 to 1: a window with sub-pixel borders, Lanczos filtered."""
    t = t * t * (3 - 2 * t)  # ease in and out
    width = 520 - 120 * t
    height = width * 480 / 640
    x = min(max(290 + 40 * t - width / 2, 0), image.width - width)
    y = min(max(200 - 15 * t - height / 2, 0), image.height - height)
    frame = image.resize((640, 480), Image.Resampling.LANCZOS, box=(x, y, x + width, y + height))
    return frame.filter(ImageFilter.UnsharpMask(1.2, 60, 0))


coffee = picture("coffee.png")
for i in range(FRAMES):
    save(zoom(coffee, i / (FRAMES - 1)), f"img{i:04d}.jpg", 86)
save(coffee, "photo_coffee.jpg", 90)
save(picture("chelsea.png", (640, 426)), "photo_chelsea.jpg", 90)
save(picture("rocket.jpg"), "photo_rocket.jpg", 90)
save(picture("astronaut.png", (640, 640)), "photo_astronaut.jpg", 88)
