"""Values survive the way into a record, through its byte form and back, whatever their kind."""

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st
from hypothesis.extra import numpy as hnp

import scansteps as ss

DTYPES = ["int8", "uint8", "int16", "uint16", "int32", "uint32", "float16", "float32", "float64"]

scalars = st.one_of(
    st.integers(-2**31, 2**31 - 1),
    st.floats(width=32, allow_nan=False),
    st.text(st.characters(blacklist_characters="\0", blacklist_categories=("Cs",)), max_size=20),
    *[hnp.from_dtype(np.dtype(name), allow_nan=False).map(np.dtype(name).type)
      for name in DTYPES if name not in ("int32", "float32")],
)
arrays = st.sampled_from(DTYPES).flatmap(
    lambda name: hnp.arrays(name, hnp.array_shapes(min_dims=2, max_dims=3, min_side=0, max_side=5),
                            elements={"allow_nan": False} if name.startswith("f") else None))
names = st.text("abcdefgXYZ_0", min_size=1, max_size=8)
values = st.recursive(
    scalars | arrays,
    lambda children: st.dictionaries(names, children, max_size=4) |
    st.lists(st.dictionaries(names, children, max_size=3), max_size=3), max_leaves=8)


def same(a, b) -> bool:
    if isinstance(a, dict):
        return isinstance(b, dict) and a.keys() == b.keys() and all(same(a[key], b[key]) for key in a)
    if isinstance(a, list):
        return isinstance(b, list) and len(a) == len(b) and all(same(x, y) for x, y in zip(a, b))
    if isinstance(a, np.ndarray):
        shape = a.shape[:2] if a.ndim == 3 and a.shape[2] == 1 else a.shape  # one plane has no third dimension
        return a.dtype == b.dtype and b.shape == shape and np.array_equal(a.reshape(shape), b)
    return type(a) is type(b) and a == b


@settings(max_examples=200, deadline=None)
@given(st.dictionaries(names, values, max_size=5))
def test_values_survive_the_byte_form(entries):
    record = ss.Record.from_bytes(ss.Record(entries).to_bytes())
    assert list(record) == sorted(entries, key=lambda name: name.encode())
    for name, value in entries.items():
        assert same(value, record[name]), name


@settings(max_examples=100, deadline=None)
@given(arrays.filter(lambda a: a.size > 0))
def test_any_layout_of_an_array_is_taken(array):
    for variant in (np.asfortranarray(array), array[::-1], array.astype(array.dtype.newbyteorder(">"))):
        assert same(np.ascontiguousarray(variant).astype(array.dtype), ss.Record({"a": variant})["a"])


@pytest.mark.parametrize("value, error", [
    (2**31, OverflowError), (np.int64(2**40), OverflowError), (np.array([2**40]), OverflowError),
    (1j, TypeError), (np.array([1j]), TypeError), ([1, 2], TypeError), ({1: 2}, TypeError), (object(), TypeError),
    (np.zeros((1, 1, 1, 1)), TypeError), (np.datetime64("now"), TypeError), (np.array(["a"]), TypeError),
])
def test_what_a_record_cannot_hold_is_refused(value, error):
    with pytest.raises(error, match="^a"):
        ss.Record({"a": value})


def test_numbers_that_have_a_kind_are_converted():
    record = ss.Record({"flag": True, "long": np.int64(5), "longs": np.arange(3), "mask": np.array([[True, False]])})
    assert record["flag"] == 1 and record["long"] == 5
    assert record["longs"].dtype == np.int32 and record["longs"].shape == (1, 3)
    assert record["mask"].dtype == np.uint8


def test_nesting_is_limited():
    deep: dict = {}
    for _ in range(100):
        deep = {"a": deep}
    with pytest.raises(ValueError, match="nested"):
        ss.Record(deep)


@pytest.mark.parametrize("data", [b"", b"\0" * 16, b"\xff" * 64, ss.Record({"a": 1}).to_bytes() + b"x",
                                  ss.Record({"a": 1}).to_bytes()[:-1]])
def test_bytes_that_are_no_record(data):
    with pytest.raises(ss.FormatError):
        ss.Record.from_bytes(data)
