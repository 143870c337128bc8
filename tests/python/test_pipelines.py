"""Whole pipelines: frames in and records out, Python steps, errors and lifetimes."""

import gc
import os
import pathlib
import pickle
import signal
import subprocess
import sys
import threading
import warnings

import numpy as np
import pytest

import scansteps as ss

BIN = pathlib.Path(ss.__file__).resolve().parents[2] / "bin"
GREY = np.arange(48 * 64, dtype=np.uint16).reshape(48, 64)


def test_a_run_yields_frames_that_stay(photo):
    run = ss.run(f"cjread load.name={photo} ! cyuv ! ccanny2a trl=60 trh=160", frames=2)
    kept = list(run)
    assert len(kept) == run.frames == 2 and run.pipeline.copies == 0
    assert kept[0].frame.dtype == np.uint16 and not np.array_equal(kept[0].frame, kept[1].frame)
    verts = kept[0]["fvertsArray"][0]["verts"]
    assert verts.dtype == np.float32 and verts.shape[1] == 2
    assert kept[0] == next(iter(ss.run(f"cjread load.name={photo} ! cyuv ! ccanny2a trl=60 trh=160", frames=1)))
    assert pickle.loads(pickle.dumps(kept[1])) == kept[1]


def test_a_pipeline_is_called_with_frames(rgb):
    with ss.Pipeline("cyuv ! ccanny", trh=160.0, size=(64, 48)) as edges:
        first = edges(rgb)
        assert first.frame.shape == (48, 64) and first.frame.dtype == np.uint16
        before = first.frame.copy()
        edges.set(trl=1, trh=2)
        second = edges(rgb)
        assert np.array_equal(first.frame, before), "a frame that Python holds was written to"
        assert not np.array_equal(second.frame, before)
        assert edges.frames == 1 and edges.copies == 0
        assert [step.kind for step in edges.steps] == ["cyuv", "ccanny"]
        with pytest.raises(ss.FormatError, match="48 rows of 192 Uchar"):
            edges(GREY)


@pytest.mark.parametrize("pipeline", ["cyuv", "c3f", "cedge", "cpu core=0", "c2ima factor=2", "ccanny"])
def test_input_arrays_are_never_changed(pipeline, rgb):
    frame = rgb if pipeline in ("cyuv", "c3f") else GREY + 32768
    before = frame.copy()
    with ss.Pipeline(pipeline) as steps:
        for _ in range(3):
            out = steps(frame)
            out.frame[:] = 1
            assert np.array_equal(frame, before)
        del steps


def test_strided_and_converted_inputs(rgb):
    with ss.Pipeline("cyuv") as yuv:
        expected = yuv(np.ascontiguousarray(rgb[:, ::-1])).frame
        assert np.array_equal(yuv(rgb[:, ::-1]).frame, expected)
        with pytest.raises(ss.FormatError):
            yuv(rgb.astype(np.float64))
        with pytest.raises(ss.FormatError):
            yuv(rgb[:10])
    with pytest.raises(ss.FormatError, match="uint8"):
        ss.Pipeline("cyuv")(rgb[..., 0])


class Invert(ss.Step):
    def process(self, record):
        record.frame[:] = 65535 - record.frame
        return record


def test_a_python_step_changes_frames_in_place(photo):
    plain = next(ss.run(f"cjread load.name={photo} ! cyuv", frames=1)).frame
    run = ss.run([f"cjread load.name={photo}", "cyuv", Invert(), "cpu core=0"], frames=1)
    assert np.array_equal(next(run).frame, 65535 - plain)
    assert run.pipeline.copies == 0


def test_a_run_as_a_statement_does_its_work(photo):
    seen = []

    class Count(ss.Step):
        def process(self, record):
            seen.append(record.frame.shape)
            return record

    ss.run([f"cjread load.name={photo}", "cyuv", Count(), "clast"], frames=2)
    assert len(seen) == 2


def test_late_writes_of_a_python_step_do_not_reach_the_chain(rgb):
    class Keep(ss.Step):
        def __init__(self):
            self.kept = []

        def process(self, record):
            for frame in self.kept:
                frame[:] = 7
            self.kept.append(record.frame)
            return record

    step = Keep()
    with ss.Pipeline(["cyuv", step, "cpu core=0"]) as steps:
        results = [steps(rgb).frame for _ in range(3)]
        assert steps.copies == 3
    assert all(np.array_equal(result, results[0]) for result in results) and results[0].max() > 7


def test_frames_outlive_their_pipeline_and_late_writes_do_not_reach_it(rgb):
    """Of chains that exchange buffers, and of one that looks back at old frames and therefore copies those held."""
    for pipeline, copies in (("cyuv ! ccanny", 0), ("cyuv ! c2ima factor=2", 3)):
        alone = ss.Pipeline(pipeline)
        expected = [alone(frame).frame.copy() for frame in (rgb, rgb[::-1], rgb)]
        steps, late = ss.Pipeline(pipeline), []
        for frame, right in zip((rgb, rgb[::-1], rgb), expected):
            view = steps(frame).frame[10:20, ::2]
            assert np.array_equal(view, right[10:20, ::2])
            for earlier in late:
                earlier[:] = 7
            late.append(view)
        del steps
        gc.collect()
        assert np.array_equal(late[-1], expected[-1][10:20, ::2]) and (late[0] == 7).all() and alone.copies == 0
        with ss.Pipeline(pipeline) as steps:
            held = [steps(rgb).frame for _ in range(4)]
            assert steps.copies == copies


def test_late_writes_to_arrays_of_a_record_do_not_reach_the_chain(rgb):
    class Keep(ss.Step):
        def process(self, record):
            for view in kept:
                view[:] = -1
            record["n"] = np.arange(4)
            kept.append(record["n"])
            return record

    class Write(ss.Step):
        def process(self, record):
            kept[-1][:] = -1
            return record

    kept: list = []
    with ss.Pipeline(["cyuv", Keep(), Write()]) as steps:
        assert [steps(rgb)["n"].tolist() for _ in range(2)] == [[[0, 1, 2, 3]]] * 2


def test_a_python_step_replaces_drops_and_adds():
    class Odd(ss.Step):
        def init(self, record):
            record["dataX"], record["dataY"] = 8, 4
            return record

        def process(self, record):
            if record["n"] % 2 == 0:
                return None
            return ss.Record({"eventType": 1002, "handle": record["handle"], "odd": np.float64(record["n"])},
                             frame=np.full((4, 8), record["n"], np.uint16))

    with ss.Pipeline([Odd(), "cpu core=0"], size=(64, 48), format="CPU::u_1x16") as steps:
        results = [steps(GREY, {"n": n}) for n in range(4)]
    assert [record is None for record in results] == [True, False, True, False]
    assert results[3]["odd"] == 3.0 and np.array_equal(results[3].frame, np.full((4, 8), 3, np.uint16))


def test_errors_say_where(photo, tmp_path):
    cases = [
        (lambda: ss.run("nosuch"), ss.SettingsError, "nosuch"),
        (lambda: ss.run("cjread load.name=x.jpg ! cyuv trh=1"), ss.SettingsError, "trh"),
        (lambda: ss.Pipeline("ccanny", trh="much"), ss.SettingsError, "trh"),
        (lambda: ss.Pipeline([3]), ss.SettingsError, "int"),
        (lambda: ss.run("cu2f ! cf2u ! cyuv ! cf2u", size=(4, 4), format="CPU::u_1x16"), ss.FormatError, ""),
        (lambda: ss.read(tmp_path / "none.rec"), ss.FileError, "none.rec"),
        (lambda: ss.write(tmp_path / "no" / "x.rec", []), ss.FileError, "x.rec"),
    ]
    for work, error, text in cases:
        with pytest.raises(error, match=text):
            work()
    with pytest.warns(ss.PipelineWarning, match="none.jpg"):
        ss.run(f"cjread load.name={tmp_path}/none.jpg ! cyuv").wait()
    with pytest.raises(ss.FileError, match="none.jpg"):
        ss.run(f"cjread load.name={tmp_path}/none.jpg ! cyuv", strict=True).wait()
    with ss.Pipeline("cu2f", size=(64, 48), format="CPU::u_1x16") as steps, pytest.raises(ss.FormatError):
        steps(GREY.astype(np.float32))


def test_exceptions_of_a_python_step_arrive_as_themselves(rgb):
    with ss.Pipeline(["cyuv", Fails(), "cpu core=0"]) as steps, pytest.raises(ZeroDivisionError, match="in the middle") as caught:
        steps(rgb)
    assert any(entry.name == "process" for entry in caught.traceback)


def test_an_interrupt_flushes_and_stops(tmp_path):
    script = f"""
import scansteps as ss
class Endless(ss.Step):
    def process(self, record):
        print("ready", flush=True)
        return record
with ss.Pipeline([Endless(), "cpu core=0", "filesaver name={tmp_path}/int.rec"], size=(64, 48), format="CPU::u_1x16") as steps:
    import numpy
    while True:
        steps(numpy.zeros((48, 64), numpy.uint16))
"""
    child = subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    assert "ready" in child.stdout.readline()
    child.send_signal(signal.SIGINT)
    _, errors = child.communicate(timeout=30)
    assert "KeyboardInterrupt" in errors and child.returncode != 0
    records = ss.read(tmp_path / "int.rec")
    assert records[-1]["eventType"] == 1003


def resident() -> int:
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


class Fails(ss.Step):
    def process(self, record):
        raise ZeroDivisionError("in the middle")


class Adds(ss.Step):
    """Sends frames of its own, under a handle of its own."""

    def process(self, record):
        return ss.Record({"eventType": 1002}, frame=np.zeros((48, 64), np.uint16))


def drop_one(number, rgb, photo):
    """Leaves a pipeline behind, each time in another state."""
    state = number % 7
    if state == 0:
        next(ss.run(f"cjread load.name={photo} load.ahead=0 ! cyuv"))
    elif state == 1:
        ss.Pipeline("cyuv ! ccanny", size=(64, 48), format="CPU::u_1x8").initialise()
    elif state == 2:
        with pytest.raises(ZeroDivisionError):
            ss.Pipeline(["cyuv", Fails(), "ccanny"])(rgb)
    elif state == 3:
        ss.Pipeline(["cyuv", Adds(), "cpu core=0"])(rgb)
    else:
        steps = ss.Pipeline(["cyuv ! ccanny", "ccanny2a", "cf2u ! cu2f", "cyuv ! c2ima factor=2"][number % 4], types="off",
                            size=(64, 48), format="CPU::f_1x32" if number % 4 == 2 else "CPU::u_1x8")
        held = steps(np.zeros((48, 64), np.float32) if number % 4 == 2 else rgb)
        if state == 5:
            steps.close()
        del steps, held


def test_ten_thousand_dropped_pipelines_free_every_handle(rgb, photo):
    """The host counts what is left in the handle table of every chain that ends, and warns."""
    failed = []

    def work(first: int) -> None:
        try:
            for number in range(first, first + 2500):
                drop_one(number, rgb, photo)
        except BaseException as error:  # would be lost with the thread
            failed.append(error)

    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        for number in range(700):
            drop_one(number, rgb, photo)
        gc.collect()
        before = resident()
        threads = [threading.Thread(target=work, args=(start,)) for start in (0, 2500, 5000)]
        for thread in threads:
            thread.start()
        work(7500)
        for thread in threads:
            thread.join()
        gc.collect()
    assert not failed and not [str(warning.message) for warning in caught]
    assert resident() - before < 8 << 20


@pytest.mark.parametrize("kind", sorted(ss.steps()))
def test_no_step_keeps_handles(kind, rgb, tmp_path, monkeypatch):
    """Dropped after an error or in the middle of its work."""
    monkeypatch.chdir(tmp_path)
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        for frame in (rgb, GREY, GREY.astype(np.float32)):
            try:
                ss.Pipeline([f"{kind}"], size=(64, 48), types="off")(frame)
            except ss.Error:
                pass
    assert not [warning for warning in caught if "handle" in str(warning.message)]


def test_a_step_that_keeps_handles_is_found():
    plugin = BIN / "test_plugins" / "libscansteps-twice.so"
    with pytest.warns(ss.PipelineWarning, match="the steps left 3 handles allocated"):
        ss.Pipeline("twice keeps=3", plugins=[plugin])(None)
        gc.collect()


def test_pipelines_take_turns_in_several_threads(rgb):
    expected = ss.Pipeline("cyuv ! ccanny")(rgb).frame
    wrong = []

    def work():
        with ss.Pipeline("cyuv ! ccanny") as steps:
            for _ in range(50):
                if not np.array_equal(steps(rgb).frame, expected):
                    wrong.append(threading.get_ident())

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not wrong


def test_a_python_step_may_run_another_pipeline(rgb):
    class Inner(ss.Step):
        def __init__(self):
            self.edges = ss.Pipeline("ccanny")

        def process(self, record):
            record["edges"] = self.edges(record.frame).frame.copy()
            return record

    with ss.Pipeline(["cyuv", Inner(), "cpu core=0"]) as outer, ss.Pipeline("cyuv") as yuv, ss.Pipeline("ccanny") as edges:
        frame = yuv(rgb).frame
        for _ in range(2):
            record = outer(rgb)
            assert np.array_equal(record.frame, frame)
            assert np.array_equal(record["edges"].reshape(48, 64), edges(frame).frame)


def test_notebook_display(rgb):
    with ss.Pipeline("cyuv ! ccanny2a") as steps:
        record = steps(rgb)
        assert "data:image/png" in record._repr_html_() and "fvertsArray" in record._repr_html_()
        assert "ccanny2a" in steps._repr_html_()


def test_the_table_of_steps():
    info = ss.steps()["ccanny"]
    assert info.class_name == "CpuCanny" and info.stateless
    assert any(setting["path"] == "OCV.trh" and setting["kind"] == "Float" for setting in info.settings)


def test_import_without_the_library(tmp_path):
    environment = dict(os.environ, SCANSTEPS_LIBRARY=str(tmp_path / "none.so"))
    ended = subprocess.run([sys.executable, "-c", "import scansteps"], env=environment, capture_output=True, text=True)
    assert "ImportError" in ended.stderr and "none.so" in ended.stderr
