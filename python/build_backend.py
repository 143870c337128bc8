"""Builds the wheel of the package for pip (PEP 517), with CMake and nothing else."""

from __future__ import annotations

import base64
import hashlib
import os
import pathlib
import re
import subprocess
import sysconfig
import sys
import tarfile
import tempfile
import zipfile
from typing import Any, Optional

ROOT = pathlib.Path(__file__).resolve().parents[1]
NAME = "scansteps"
VERSION = re.search(r"project\(scansteps VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text()).group(1)  # type: ignore[union-attr]
METADATA = f"""Metadata-Version: 2.1
Name: {NAME}
Version: {VERSION}
Summary: Step library for 3D-scanning pipelines
Requires-Python: >=3.9
Requires-Dist: numpy
"""


def _tag() -> str:
    python = f"cp{sys.version_info[0]}{sys.version_info[1]}"
    return f"{python}-{python}-{sysconfig.get_platform().replace('-', '_').replace('.', '_')}"


def get_requires_for_build_wheel(config_settings: Any = None) -> list[str]:
    return []


def get_requires_for_build_sdist(config_settings: Any = None) -> list[str]:
    return []


def build_wheel(wheel_directory: str, config_settings: Any = None, metadata_directory: Optional[str] = None) -> str:
    with tempfile.TemporaryDirectory() as temporary:
        tree = pathlib.Path(temporary)
        subprocess.run(["cmake", "-S", str(ROOT), "-B", str(tree), "-DCMAKE_BUILD_TYPE=Release", "-DSCANSTEPS_TESTS=OFF",
                        "-DSCANSTEPS_PYTHON=ON", f"-DPython3_EXECUTABLE={sys.executable}"], check=True)
        subprocess.run(["cmake", "--build", str(tree), "--parallel", str(os.cpu_count() or 1), "--target",
                        "scansteps_python", "scansteps_python_sources", "scansteps_plugin", "scansteps_bundled_plugins"], check=True)
        files = {f"{NAME}/{path.name}": path.read_bytes() for path in sorted((tree / "python" / NAME).iterdir()) if path.is_file()}
        files[f"{NAME}/lib/libscansteps.so"] = (tree / "bin" / "libscansteps.so").read_bytes()
        for plugin in sorted((tree / "lib" / NAME).glob("*.so")):
            files[f"{NAME}/lib/{NAME}/{plugin.name}"] = plugin.read_bytes()
    info = f"{NAME}-{VERSION}.dist-info"
    files[f"{info}/METADATA"] = METADATA.encode()
    files[f"{info}/WHEEL"] = f"Wheel-Version: 1.0\nGenerator: scansteps\nRoot-Is-Purelib: false\nTag: {_tag()}\n".encode()
    files[f"{info}/LICENSE"] = (ROOT / "LICENSE").read_bytes()
    lines = []
    for name, data in files.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
        lines.append(f"{name},sha256={digest},{len(data)}")
    files[f"{info}/RECORD"] = "\n".join([*lines, f"{info}/RECORD,,", ""]).encode()
    wheel = f"{NAME}-{VERSION}-{_tag()}.whl"
    with zipfile.ZipFile(pathlib.Path(wheel_directory) / wheel, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data in files.items():
            archive.writestr(name, data)
    return wheel


def build_sdist(sdist_directory: str, config_settings: Any = None) -> str:
    base = f"{NAME}-{VERSION}"
    with tarfile.open(pathlib.Path(sdist_directory) / f"{base}.tar.gz", "w:gz") as archive:
        for name in ("CMakeLists.txt", "CMakePresets.json", "LICENSE", "README.md", "pyproject.toml", "cmake", "docs", "examples",
                     "host", "include", "pipeline.schema.json", "plugins", "python", "src", "web"):
            if (ROOT / name).exists():
                archive.add(ROOT / name, f"{base}/{name}", filter=lambda item: None if "__pycache__" in item.name else item)
    return f"{base}.tar.gz"
