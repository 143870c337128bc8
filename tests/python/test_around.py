"""The cookbook, the type stubs, the wheel, and Dask."""

import os
import pathlib
import shutil
import subprocess
import sys

import pytest

import scansteps as ss

ROOT = pathlib.Path(__file__).resolve().parents[2]
COOKBOOK = ROOT / "examples" / "python"


def run_script(name: str, folder: pathlib.Path, *arguments: str) -> str:
    environment = dict(os.environ, PYTHONPATH=str(pathlib.Path(ss.__file__).resolve().parents[1]))
    ended = subprocess.run([sys.executable, str(COOKBOOK / name), *arguments], cwd=folder, env=environment,
                           capture_output=True, text=True)
    assert ended.returncode == 0, ended.stderr
    return ended.stdout


def test_cookbook(tmp_path, photo, recording):
    assert run_script("tune_thresholds.py", tmp_path, photo).count("%") == 9
    assert "corners in" in run_script("plot_corners.py", tmp_path, photo, "corners.png")
    assert (tmp_path / "corners.png").stat().st_size > 10_000
    assert "6962 triangles" in run_script("write_mesh.py", tmp_path, "waves.ply")
    assert (tmp_path / "waves.ply").read_bytes().startswith(b"ply")
    assert "frame 9: " in run_script("frames_from_anywhere.py", tmp_path)
    if shutil.which("ffmpeg"):
        run_script("recording_to_video.py", tmp_path, recording, "three.mp4")
        assert (tmp_path / "three.mp4").stat().st_size > 500
    assert {path.name for path in COOKBOOK.glob("*.py")} == {
        "frames_from_anywhere.py", "plot_corners.py", "recording_to_video.py", "tune_thresholds.py", "write_mesh.py"}


@pytest.mark.skipif(shutil.which("mypy") is None, reason="mypy is not installed")
def test_types(tmp_path):
    user = tmp_path / "user.py"
    user.write_text("""
import numpy as np
import scansteps as ss

class Half(ss.Step):
    def process(self, record: ss.Record) -> ss.Record:
        assert record.frame is not None
        record.frame[:] = record.frame // 2
        return record

with ss.Pipeline(["cyuv", Half()], size=(4, 4)) as steps:
    record = steps(np.zeros((4, 4, 3), np.uint8))
    reveal_type(record)
reveal_type(ss.read("x.rec")[1:2])
""")
    answer = subprocess.run(["mypy", "--strict", "--cache-dir", str(tmp_path / "cache"), str(ROOT / "python" / "scansteps"), str(user)],
                            capture_output=True, text=True)
    assert answer.returncode == 0, answer.stdout
    assert "Union[scansteps._native.Record, None]" in answer.stdout and "list[scansteps._native.Record]" in answer.stdout


def test_dask(photo, tmp_path):
    distributed = pytest.importorskip("distributed")
    names = []
    for number in range(4):
        names.append(str(tmp_path / f"{number}.rec"))
        ss.write(names[-1], ss.run(f"cjread load.name={photo} ! cyuv", frames=number + 1))
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, host="127.0.0.1", dashboard_address=None) as cluster, \
            distributed.Client(cluster) as client:
        results = client.gather(client.map(edges_of, names))
    assert [len(records) for records in results] == [1, 2, 3, 4]
    assert results[3] == edges_of(names[3])


def edges_of(name: str) -> list:
    """Runs in a worker process; records travel in their stream form."""
    import scansteps
    return list(scansteps.run(f"read load.name={name} ! ccanny"))


@pytest.mark.skipif("SCANSTEPS_TEST_WHEEL" not in os.environ, reason="builds everything: .ci/run python")
def test_pip_install_without_network(tmp_path, photo):
    environment = tmp_path / "environment"
    subprocess.run(["/usr/bin/python3", "-m", "venv", "--system-site-packages", str(environment)], check=True)
    subprocess.run([str(environment / "bin" / "pip"), "install", "--no-index", "--no-build-isolation", str(ROOT)], check=True)
    script = f"import scansteps as ss; print(len(list(ss.run('imread name={photo} ! cyuv'))), ss.__file__)"
    clean = {key: value for key, value in os.environ.items() if key != "PYTHONPATH"}
    answer = subprocess.run([str(environment / "bin" / "python"), "-c", script], cwd=tmp_path, env=clean, capture_output=True, text=True)
    assert answer.stdout.splitlines()[-1].startswith("1 ") and str(environment) in answer.stdout, answer.stderr
