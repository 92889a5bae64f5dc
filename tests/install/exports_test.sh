#!/usr/bin/env bash
# What the libraries export is what the checked-in lists name, and the lists name what the headers declare.
set -euo pipefail
source_dir=$1
build_dir=$2
fail() { echo "exports test: $*" >&2; exit 1; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

for library in TovanPlatform TovanCore; do
  map=$source_dir/cmake/exports/$library.map
  "$source_dir/scripts/list_exports.py" "$library" >"$scratch/expected.map"
  diff "$scratch/expected.map" "$map" ||
    fail "cmake/exports/$library.map is not what the headers declare: scripts/list_exports.py $library prints it"

  nm -D --defined-only "$build_dir/lib/lib$library.so" | awk '{print $3}' | sed 's/@.*//' | sort -u >"$scratch/exported"
  # Every C name of the list is there.
  grep -oP '^    \K\w+(?=;)' "$map" | sort -u >"$scratch/named"
  missing=$(comm -23 "$scratch/named" "$scratch/exported")
  [[ -z $missing ]] || fail "lib$library.so lacks $missing"
  # Nothing else is, but C++ names of our own namespaces.
  extra=$(comm -13 "$scratch/named" "$scratch/exported" | c++filt |
    grep -vE '^(typeinfo (name )?for |vtable for |VTT for |(non-virtual|virtual) thunk to )?(tovan|plinth|platform)::' || true)
  [[ -z $extra ]] || fail "lib$library.so also exports: $extra"
  [[ $(wc -l <"$scratch/exported") -gt 100 ]] || fail "lib$library.so exports next to nothing"
done
echo "1 passed, 0 failed"
