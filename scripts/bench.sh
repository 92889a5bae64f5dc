#!/usr/bin/env bash
# Runs the benchmarks of a build, all or those named, and says which targets were met.
# usage: bench.sh BUILD_FOLDER [NAME...]
set -euo pipefail
folder=$1/bench
shift
names=("$@")
if ((${#names[@]} == 0)); then
  for program in "$folder"/*_bench; do names+=("$(basename "$program" _bench)"); done
fi
for name in "${names[@]}"; do
  [[ -x $folder/${name}_bench ]] || { echo "bench: no benchmark called $name in $folder" >&2; exit 2; }
  echo "== $name"
  "$folder/${name}_bench"
done
