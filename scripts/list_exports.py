#!/usr/bin/env python3
"""Prints the linker's version script of a library: every name that its exported headers declare.

usage: list_exports.py TovanPlatform|TovanCore

cmake/exports/NAME.map is this output, checked in, so that a change of what is exported is a change that a reader sees.
tests/install/exports_test.sh says when the two differ.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def without_comments(text):
    return re.sub(r"/\*.*?\*/|//[^\n]*", "", text, flags=re.S)


def headers(*folders):
    for folder in folders:
        for path in sorted((ROOT / folder).glob("*.h")):
            yield without_comments(path.read_text())


def declared_c_names(texts, marker):
    """The names of functions and objects that are declared with the marker and have C linkage."""
    names = set()
    for text in texts:
        for match in re.finditer(rf"^{marker}\s+(?:extern\s+)?([^;{{]*?);", text, flags=re.S | re.M):
            declaration = " ".join(match[1].split())
            function = re.match(r"[^(]*?(\w+)\s*\(", declaration)
            name = function[1] if function else re.search(r"(\w+)\s*(?:\[\])?$", declaration)[1]
            names.add(name)
    return names


def exported_classes(texts, namespace, marker):
    names = set()
    for text in texts:
        for match in re.finditer(rf"\bclass\s+{marker}\s+(\w+)", text):
            if match[1] != "Name":  # the parameter of the macro that declares the exceptions
                names.add(f"{namespace}::{match[1]}")
        for match in re.finditer(rf"^PLINTH_EXCEPTION\((\w+)\);", text, flags=re.M):
            names.add(f"{namespace}::{match[1]}")
    return names


def exported_functions(texts, namespace, marker):
    names = set()
    for text in texts:
        for match in re.finditer(rf"^{marker}\s+([^;{{(]*?)(operator\S+|\w+)\s*\(", text, flags=re.M):
            names.add(f"{namespace}::{match[2]}")
    return names


def version_script(c_names, cpp_names):
    lines = ["{", "  global:"]
    lines += [f"    {name};" for name in sorted(c_names)]
    lines.append('    extern "C++" {')
    lines += [f"      {name};" for name in cpp_names]
    lines += ["    };", "  local:", "    *;", "};"]
    return "\n".join(lines) + "\n"


def class_patterns(names):
    """Members, and what the compiler makes beside a class: its type information and its table of functions."""
    for name in sorted(names):
        yield f"{name}?*"
        yield f"*for?{name}*"


def function_patterns(names):
    for name in sorted(names):
        yield re.sub(r"[^\w:]", "?", name) + "?*"  # the linker's patterns know no operator signs


def platform():
    system = list(headers("platform/system"))
    return version_script(
        declared_c_names(headers("platform/corefoundation/include/CoreFoundation"), "CF_EXPORT"),
        [*class_patterns(exported_classes(system, "platform", "PLATFORM_EXPORT")),
         *function_patterns(exported_functions(system, "platform", "PLATFORM_EXPORT")),
         "platform::internal::*"])


def core():
    tovan = list(headers("include/tovan"))
    plinth = list(headers("include/plinth"))
    c_linkage = [text for text in tovan if "TOVAN_EXTERN_C_BEGIN" in text or 'extern "C"' in text]
    cpp_only = [text for text in tovan if text not in c_linkage]
    classes = exported_classes(tovan, "tovan", "TOVAN_EXPORT") | exported_classes(plinth, "plinth", "PLINTH_EXPORT")
    functions = (exported_functions(cpp_only, "tovan", "TOVAN_EXPORT") |
                 exported_functions(plinth, "plinth", "PLINTH_EXPORT"))
    return version_script(declared_c_names(c_linkage, r"\s*TOVAN_EXPORT"),
                          [*class_patterns(classes), *function_patterns(functions),
                           "*thunk?to?tovan::*"])  # what tables of classes with several bases point to


SCRIPTS = {"TovanPlatform": platform, "TovanCore": core}

if __name__ == "__main__":
    if len(sys.argv) != 2 or sys.argv[1] not in SCRIPTS:
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    sys.stdout.write(SCRIPTS[sys.argv[1]]())
