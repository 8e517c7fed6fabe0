# SPDX-License-Identifier: Apache-2.0
# What the checks of a device build share.
import subprocess
import sys
from pathlib import Path

TREE = Path(__file__).resolve().parents[2]


class Fault(Exception):
    pass


def run(*command, cwd=None, input=None, env=None):
    """What a program prints; a Fault with its first complaint when it fails."""
    try:
        done = subprocess.run([str(c) for c in command], cwd=cwd, input=input, capture_output=True,
                              text=True, check=False, env=env)
    except FileNotFoundError as error:
        sys.exit(f"tests/device: {command[0]} is missing; script/bootstrap installs it ({error})")
    if done.returncode != 0:
        complaints = [line for line in (done.stdout + done.stderr).splitlines()
                      if line and not line.startswith(("Note:", "Warning:"))]
        raise Fault(f"{command[0]}: {' / '.join(complaints[:3])}")
    return done.stdout
