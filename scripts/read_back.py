#!/usr/bin/env python3
"""Reads property lists with two readers that are not ours and says whether they agree.

usage: read_back.py FILE...

Each file is read by Python's plistlib, and by plistutil (libplist), whose binary output plistlib decodes. Both must
give the same values of the same types. Exit status: 0 when all files agree, 1 otherwise.
"""
import plistlib
import subprocess
import sys
import tempfile


def same(left, right):
    """Equality that keeps booleans, integers and reals apart."""
    if type(left) is not type(right):
        return False
    if isinstance(left, dict):
        return left.keys() == right.keys() and all(same(left[key], right[key]) for key in left)
    if isinstance(left, list):
        return len(left) == len(right) and all(map(same, left, right))
    return left == right


def count(value):
    """How many values a list holds, containers included."""
    if isinstance(value, dict):
        return 1 + sum(count(item) for item in value.values())
    if isinstance(value, list):
        return 1 + sum(count(item) for item in value)
    return 1


def read_back(path):
    with open(path, "rb") as file:
        ours = plistlib.load(file)
    with tempfile.NamedTemporaryFile(suffix=".plist") as binary:
        subprocess.run(["plistutil", "-i", path, "-o", binary.name], check=True, capture_output=True)
        with open(binary.name, "rb") as file:
            if file.read(8) != b"bplist00":
                raise ValueError("plistutil wrote no binary list")
            file.seek(0)
            theirs = plistlib.load(file)
    if not same(ours, theirs):
        raise ValueError(f"plistlib reads {ours!r}, plistutil {theirs!r}")
    return count(ours)


def main(paths):
    if not paths:
        print(__doc__, file=sys.stderr)
        return 2
    failed = 0
    for path in paths:
        try:
            print(f"  same {read_back(path):3d} values in plistlib and plistutil: {path}")
        except (OSError, ValueError, subprocess.CalledProcessError, plistlib.InvalidFileException) as error:
            print(f"  NOT READ BACK: {path}: {error}", file=sys.stderr)
            failed = 1
    return failed


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
