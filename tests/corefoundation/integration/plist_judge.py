"""Reads property lists with plistlib and says what it saw, in the form of test::canonical.

usage: plist_judge.py read FILE...      one line for each file
       plist_judge.py make FOLDER SEED COUNT  writes COUNT random lists as N.xml and N.bin, one line for each
"""
import datetime
import plistlib
import random
import struct
import sys

EPOCH = datetime.datetime(2001, 1, 1)


def canonical(value):
    if value is True:
        return "T"
    if value is False:
        return "F"
    if isinstance(value, int):
        return "i%d" % value
    if isinstance(value, float):
        return "rnan" if value != value else "r%d" % struct.unpack(">Q", struct.pack(">d", value))
    if isinstance(value, str):
        return "s" + value.encode("utf-8").hex()
    if isinstance(value, bytes):
        return "d" + value.hex()
    if isinstance(value, datetime.datetime):
        return "t%d" % ((value - EPOCH) // datetime.timedelta(seconds=1))
    if isinstance(value, dict):
        return "{" + "".join(canonical(k) + ":" + canonical(v) + "," for k, v in value.items()) + "}"
    return "[" + "".join(canonical(v) + "," for v in value) + "]"


def text(source):
    pieces = "aZ0 \t\n&<>\"'é日😀;]"
    return "".join(source.choice(pieces) for _ in range(source.randrange(24)))


def leaf(source):
    choice = source.randrange(7)
    if choice == 0:
        return text(source)
    if choice == 1:
        return source.randrange(-2**63, 2**64) >> source.randrange(64)
    if choice == 2:
        return source.choice([0.1, -2.5e-300, 1e300, float("inf"), float("-inf"), source.random(), -0.0])
    if choice == 3:
        return EPOCH + datetime.timedelta(seconds=source.randrange(-63113904000, 252423993600))
    if choice == 4:
        return source.randbytes(source.randrange(200))
    return source.random() < 0.5


def value(source, depth):
    choice = source.randrange(10) if depth < 6 else 9
    if choice < 2:
        return {text(source): value(source, depth + 1) for _ in range(source.randrange(12))}
    if choice < 3:
        return [value(source, depth + 1) for _ in range(source.randrange(12))]
    return leaf(source)


def make(folder, seed, count):
    source = random.Random(seed)
    for number in range(count):
        made = {"key %d" % i: value(source, 1) for i in range(source.randrange(30))}
        for suffix, form in (("xml", plistlib.FMT_XML), ("bin", plistlib.FMT_BINARY)):
            with open("%s/%d.%s" % (folder, number, suffix), "wb") as file:
                plistlib.dump(made, file, fmt=form, sort_keys=False)
        print(canonical(made))


def read(paths):
    for path in paths:
        with open(path, "rb") as file:
            print(canonical(plistlib.load(file)))


if sys.argv[1] == "make":
    make(sys.argv[2], int(sys.argv[3]), int(sys.argv[4]))
else:
    read(sys.argv[2:])
