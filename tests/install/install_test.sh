#!/usr/bin/env bash
# Installs the build into a scratch prefix, moves the prefix, and builds and runs a consumer both ways.
set -euo pipefail
source_dir=$1
build_dir=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "install test: $*" >&2; exit 1; }

cmake --install "$build_dir" --prefix "$scratch/first" >/dev/null
mv "$scratch/first" "$scratch/a prefix"  # nothing may remember the place it was installed to
prefix="$scratch/a prefix"

# The tree has the shape of the build folder: links of a versioned framework included.
for link in lib/libTovanCore.so lib/tovan/Frameworks/Mervane.framework/{Resources,Frameworks,Versions/Current} \
  lib/tovan/Frameworks/Lumisphere.framework/{Resources,Versions/Current} \
  lib/tovan/Frameworks/Mervane.framework/Frameworks/TovanCore.framework/{TovanCore,Resources,Versions/Current}; do
  [[ -L $prefix/$link && -e $prefix/$link ]] || fail "$link is not a link that leads anywhere"
done
for file in bin/tovanctl share/man/man1/{tovanctl,launchctl}.1 share/man/man8/{mervaned,tovan-exports,tovan-mount}.8 lib/systemd/system/tovan-exports.service lib/libTovanPlatform.so lib/cmake/TovanCore/TovanCoreConfig.cmake lib/pkgconfig/tovancore.pc \
  include/tovan/tovan.h include/plinth/plinth.h include/CoreFoundation/CoreFoundation.h \
  lib/tovan/Frameworks/Mervane.framework/Resources/LumisphereConfig.plist.default \
  lib/tovan/Frameworks/Lumisphere.framework/Resources/LumisphereTranscoder.bundle/Contents/Info.plist; do
  [[ -f $prefix/$file ]] || fail "$file is missing"
done
diff <(cd "$build_dir" && find lib bin | sort) \
  <(cd "$prefix" && find lib bin -not -path 'lib/cmake*' -not -path 'lib/pkgconfig*' -not -path 'lib/systemd*' | sort) ||
  fail "the installed tree and the build tree differ"

mkdir "$scratch/home"
export HOME="$scratch/home"

check() { # check NAME PROGRAM...
  local name=$1
  shift
  local out
  out=$("$@") || fail "the $name consumer failed with status $?"
  grep -q "TovanCore-303" <<<"$out" || fail "the $name consumer printed: $out"
  grep -q "Mervane.framework" <<<"$out" || fail "the $name consumer did not find the framework: $out"
  echo "$name: ok"
}

cmake -S "$source_dir/tests/install/consumer" -B "$scratch/consumer" -G Ninja \
  "-DCMAKE_PREFIX_PATH=$prefix" >"$scratch/log" 2>&1 || { cat "$scratch/log"; fail "find_package"; }
cmake --build "$scratch/consumer" >"$scratch/log" 2>&1 || { cat "$scratch/log"; fail "the CMake consumer does not build"; }
check find_package "$scratch/consumer/consumer"
check find_package-in-C "$scratch/consumer/consumer_in_c"

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
eval "g++ -std=c++20 -o '$scratch/pkg' '$source_dir/tests/install/consumer/consumer.cpp' $(pkg-config --cflags --libs tovancore)" ||
  fail "the pkg-config consumer does not build"
LD_LIBRARY_PATH="$prefix/lib" check pkg-config "$scratch/pkg"
"$prefix/bin/tovanctl" --version | grep -q "TovanCore-303" || fail "the installed tovanctl does not run"
echo "1 passed, 0 failed"
