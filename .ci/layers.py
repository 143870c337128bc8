#!/usr/bin/env python3
"""Fails where a file includes a module that its own may not include. Tables of steps (.def) are exempt."""
import pathlib
import re
import sys

MAY_INCLUDE = {
    "core": "", "pixels": "", "grey": "", "jpeg": "", "recording": "", "flow": "", "plugin": "",
    "edges": "grey", "regions": "grey", "corners": "grey regions", "registration": "grey edges corners regions",
    "images": "pixels jpeg", "capture": "pixels jpeg images", "mesh": "images",
}
wrong = []
for path in sorted(p for top in ("src", "host", "include", "plugins") for p in pathlib.Path(top).rglob("*") if p.suffix in (".h", ".cpp")):
    module = path.parts[1] if path.parts[0] == "src" else ""
    allowed = {"core", "scansteps", module, *MAY_INCLUDE[module].split()} if module else {"scansteps"}
    for folder in re.findall(r'#include "(\w+)/[^"]*\.h"', path.read_text()):
        if folder in {"scansteps", *MAY_INCLUDE} - allowed:
            wrong.append(f"{path}: {module or path.parts[0]} may not include {folder}/")
print("\n".join(wrong) or "layers: every include points downwards")
sys.exit(bool(wrong))
