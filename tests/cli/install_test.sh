#!/bin/sh
# Installs the build into a temporary prefix and builds a small C host
# against it twice: with CMake's find_package(tolva) and with pkg-config.
# Arguments: build directory, C compiler, extra compiler flags, library
# directory relative to the prefix, CMake generator.
set -eu
build=$1 cc=$2 flags=$3 libdir=$4 generator=$5
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
for f in include/tolva/tolva.h include/tolva/host.h include/tolva/profile.h \
         include/tolva/stream.h include/tolva/raster.h include/tolva/settings.h \
         include/tolva/output.h include/tolva/driver.h bin/tolva share/man/man1/tolva.1 \
         "$libdir/libtolva.so.2" "$libdir/pkgconfig/tolva.pc" \
         "$libdir/cmake/tolva/tolvaConfig.cmake" "$libdir/cmake/tolva/tolvaConfigVersion.cmake"; do
  [ -e "$prefix/$f" ] || { echo "missing after install: $f"; exit 1; }
done
[ -L "$prefix/$libdir/libtolva.so" ] || { echo "libtolva.so is not the development link"; exit 1; }
[ "$(readlink "$prefix/$libdir/libtolva.so.2")" = libtolva.so.2.0.5 ] || {
  echo "the SONAME link does not lead to the library"; exit 1; }

# The installed command finds the installed filter on its own.
"$prefix/bin/tolva" --version | grep -q "filter version 2.0.5"

# pkg-config
mkdir "$work/pc"
PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
export PKG_CONFIG_PATH
# shellcheck disable=SC2046,SC2086
$cc $flags -o "$work/pc/host" "$here/install_host.c" $(pkg-config --cflags --libs tolva) \
  -Wl,-rpath,"$prefix/$libdir"
"$work/pc/host"

# CMake package
mkdir "$work/cm"
cp "$here/install_host.c" "$work/cm/"
cat > "$work/cm/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.16)
project(tolva_host C)
find_package(tolva 2.0 REQUIRED)
add_executable(host install_host.c)
target_link_libraries(host PRIVATE tolva::tolva)
CMAKE
cmake -S "$work/cm" -B "$work/cm/build" -G "$generator" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_COMPILER="$cc" -DCMAKE_C_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >/dev/null
cmake --build "$work/cm/build" >/dev/null
"$work/cm/build/host"
echo "install test passed"
