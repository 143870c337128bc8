"""Folders of pictures for the tests of batch, and comparisons of what came out."""
import json
import os
import random


def picture(path, seed, width=320, height=240):
    """A PPM picture with edges in it."""
    chance = random.Random(seed)
    rows = [bytearray(3 * width) for _ in range(height)]
    for _ in range(12):
        x, y, w, h = (chance.randrange(1, n) for n in (width, height, width, height))
        colour = bytes(chance.randrange(256) for _ in range(3))
        for row in rows[y:y + h]:
            n = len(row[3 * x:3 * (x + w)]) // 3
            row[3 * x:3 * (x + n)] = colour * n
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(b"P6\n%d %d\n255\n" % (width, height) + b"".join(rows))


def letters(number):
    """A name without digits, which would be counted as part of the number of a picture."""
    return chr(ord("a") + number // 26 % 26) + chr(ord("a") + number % 26)


def contents(folder):
    found = {}
    for place, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(place, name)
            with open(path, "rb") as file:
                found[os.path.relpath(path, folder)] = file.read()
    return found


def check_same(wanted, got):
    assert set(wanted) == set(got), f"missing {sorted(set(wanted) - set(got))[:5]}, too many {sorted(set(got) - set(wanted))[:5]}"
    different = [name for name in wanted if wanted[name] != got[name]]
    assert not different, f"{len(different)} files differ, the first: {different[0]}"


def journal(folder):
    """Whole lines; a killed batch may have left a part of one."""
    path = os.path.join(folder, "journal.jsonl")
    if not os.path.exists(path):
        return []
    with open(path, "rb") as file:
        return [json.loads(line) for line in file.read().split(b"\n")[:-1]]
