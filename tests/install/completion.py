#!/usr/bin/env python3
"""Types into real, interactive shells and looks at what Tab makes of it: completion.py PREFIX, of an installation."""
import os
import pty
import select
import shutil
import sys
import tempfile
import time

prefix = os.path.abspath(sys.argv[1])
failures = 0

# What is typed before Tab, and what the line ends with then. A shell may add a blank.
CASES = [
    ("scansteps ru", "scansteps run"),
    ("scansteps run --ty", "scansteps run --types"),
    ("scansteps run --types er", "--types error"),
    ("scansteps steps ccorn", "scansteps steps ccorner5"),
    ("scansteps help rec", "scansteps help receive"),
    ("scansteps inspect some_f", "scansteps inspect some_file.rec"),
    ('scansteps run "cjr', '"cjread'),
    ('scansteps run "cjread load.name=some_f', 'load.name=some_file.rec'),
    ('scansteps run "cjread ! ccanny trh', 'ccanny trh='),
    ('scansteps run "cjread ! ccanny trh=', 'ccanny trh=900'),
    ('scansteps run "cjread ! ccanny OCV.trl', 'ccanny OCV.trl='),
    ('scansteps run "ccap1 capture.dev_name=test:m', 'capture.dev_name=test:moving'),
    ("scansteps run 'cdown1 fac", "'cdown1 factor="),
    ("scansteps run 'ccanny ! clast' --set OCV.ord", "--set OCV.order="),
    ("scansteps run 'ccanny ! clast' --set OCV.trh=", "--set OCV.trh=900"),
]
SHELLS = {
    "bash": (["bash", "--norc", "-i"], f"source {prefix}/share/bash-completion/completions/scansteps"),
    "zsh": (["zsh", "-f", "-i"],
            f"fpath=({prefix}/share/zsh/site-functions $fpath); autoload -U compinit; compinit -u -D"),
}


def read(terminal, patience):
    text, end = b"", time.monotonic() + patience
    while time.monotonic() < end and select.select([terminal], [], [], end - time.monotonic())[0]:
        try:
            text += os.read(terminal, 65536)
        except OSError:
            break
    return text.decode(errors="replace").replace("\a", "")


def until(terminal, wanted, patience=20):
    """Reads until the text has come and nothing follows it any more."""
    text, end = "", time.monotonic() + patience
    while wanted not in text and time.monotonic() < end:
        text += read(terminal, 0.2)
    return text + read(terminal, 0.2)


def judge(shell, typed, wanted, line):
    global failures
    if not line.rstrip().endswith(wanted):
        failures += 1
        print(f"completion: {shell}: {typed!r} became {line!r}, not {wanted!r}", file=sys.stderr)


def interactive(shell, folder):
    command, setup = SHELLS[shell]
    child, terminal = pty.fork()
    if child == 0:
        os.chdir(folder)
        os.environ.update(TERM="dumb", PS1="$ ", COLUMNS="200", HISTFILE="", PATH=f"{prefix}/bin:{os.environ['PATH']}")
        os.execvp(command[0], command)
    os.write(terminal, f"PS1='$ '; {setup}; echo re''ady\n".encode())
    until(terminal, "ready")
    for typed, wanted in CASES:
        os.write(terminal, f"{typed}\t".encode())
        judge(shell, typed, wanted, until(terminal, wanted, 5))
        os.write(terminal, b"\x15")
        read(terminal, 0.2)
    # Two kinds fit: the second Tab lists them.
    os.write(terminal, b"scansteps steps ccap\t\t")
    if "ccap1" not in until(terminal, "ccap1", 5):
        judge(shell, "ccap, twice", "a list", "")
    os.close(terminal)
    os.waitpid(child, 0)


def fish(folder):
    """fish says what it would offer without a terminal."""
    for typed, wanted in CASES:
        script = f"source {prefix}/share/fish/vendor_completions.d/scansteps.fish; complete -C $argv[1]"
        pipe = os.popen(f"cd {folder} && PATH={prefix}/bin:$PATH HOME={folder} fish --no-config -c "
                        f"'{script}' {quoted(typed)}")
        offered = [line.split("\t")[0] for line in pipe.read().splitlines()]
        pipe.close()
        if not any(offer.endswith(wanted.split()[-1].lstrip("\"'")) for offer in offered):
            judge("fish", typed, wanted, str(offered))


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


with tempfile.TemporaryDirectory(prefix="scansteps-tab-") as folder:
    open(os.path.join(folder, "some_file.rec"), "w", encoding="utf-8").close()
    tried = []
    for shell in [*SHELLS, "fish"]:
        if not shutil.which(shell):
            print(f"completion: no {shell} here, not tried")
            continue
        fish(folder) if shell == "fish" else interactive(shell, folder)
        tried.append(shell)
print(f"completion: {len(CASES)} lines in {', '.join(tried)}, {failures} wrong")
sys.exit(failures != 0)
