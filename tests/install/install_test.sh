#!/usr/bin/env bash
# Installs the build into a fresh prefix and builds the example application
# against it twice, with find_package(Tovrel) and with pkg-config, and runs
# both.   install_test.sh BUILD-DIR SOURCE-DIR
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" >"$work/install.log"
libdir=$(dirname "$(find "$prefix" -name 'libtovrel.so' | head -1)")
for f in bin/tov include/tovrel/tovrel.h share/bash-completion/completions/tov share/man/man1/tov.1; do
  [[ -e "$prefix/$f" ]] || { echo "not installed: $f"; exit 1; }
done
for lib in libtovrel.so.2 libtovplatform.so.2 libqdxengine.so; do
  [[ -e "$libdir/$lib" ]] || { echo "not installed: $lib"; exit 1; }
done

bash -n "$prefix/share/bash-completion/completions/tov"
grep -q ' capture convert ' "$prefix/share/bash-completion/completions/tov"

cmake -S "$source/examples" -B "$work/with-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >"$work/cmake.log"
cmake --build "$work/with-cmake" >>"$work/cmake.log"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
c++ -std=c++17 "$source/examples/card.cpp" $(pkg-config --cflags --libs tovrel) -Wl,-rpath,"$libdir" \
  -o "$work/with-pkg-config"

cd "$work"
for program in with-cmake/card ./with-pkg-config; do
  rm -f card.png
  output=$("$program")
  echo "$program: $output"
  [[ "$output" == *"card.png is 320x240, 8 bits"* ]] || { echo "unexpected output"; exit 1; }
done
"$prefix/bin/tov" --version
