"""Recordings: read, index, damage, write, and exchange with the steps filesaver and read."""

import numpy as np
import pytest

import scansteps as ss


def test_a_recording_is_indexed(recording, rgb):
    records = ss.read(recording)
    assert len(records) == 5 and records.damage is None
    assert [record["eventType"] for record in records] == [1001, 1002, 1002, 1002, 1003]
    assert np.array_equal(records[1].frame, rgb) and np.array_equal(records[-2].frame, np.roll(rgb, 2, axis=1))
    assert [record["n"] for record in records[1:4]] == [0, 1, 2]
    assert [record["n"] for record in records.frames()] == [0, 1, 2]
    kept = [record.frame for record in records.frames()]
    assert np.array_equal(kept[0], rgb), "a frame that Python holds was reused"
    with pytest.raises(IndexError):
        records[5]


def test_records_are_written_unchanged(recording, tmp_path):
    copy = tmp_path / "copy.rec"
    assert ss.write(copy, ss.read(recording)) == 5
    assert copy.read_bytes() == open(recording, "rb").read()


def test_a_run_is_written_and_played(photo, tmp_path):
    name = tmp_path / "run.rec"
    ss.write(name, ss.run(f"cjread load.name={photo} ! cyuv", frames=2))
    played = list(ss.run(f"read load.name={name}"))
    direct = list(ss.run(f"cjread load.name={photo} ! cyuv", frames=2))
    assert len(played) == 2 and all(np.array_equal(a.frame, b.frame) for a, b in zip(played, direct))


@pytest.mark.parametrize("cut, whole", [(1, 4), (40, 3)])
def test_damage_is_reported_with_its_position(recording, tmp_path, cut, whole):
    data = open(recording, "rb").read()
    damaged = tmp_path / "damaged.rec"
    damaged.write_bytes(data[:-cut])
    records = ss.read(damaged)
    assert len(records) == whole
    read = []
    with pytest.raises(ss.FileError, match=f"damaged at byte {records.damage}"):
        for record in records:
            read.append(record)
    assert len(read) == whole
    with pytest.raises(ss.FileError, match="damaged"):
        records[whole]


def test_a_failed_write_leaves_the_old_file(recording):
    before = open(recording, "rb").read()

    def broken():
        yield ss.Record({"a": 1})
        raise RuntimeError("no more")

    with pytest.raises(RuntimeError):
        ss.write(recording, broken())
    assert open(recording, "rb").read() == before
