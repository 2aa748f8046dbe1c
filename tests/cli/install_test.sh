#!/bin/sh
# Installs the build into a temporary prefix and builds a small C host
# against it: with pkg-config (as a PIE and as a fixed-address executable) and
# with CMake's find_package(tolva).
# Then builds the example host the same way and checks its GIFs with giflib.
# Arguments: build directory, C compiler, extra compiler flags, library
# directory relative to the prefix, CMake generator, the examples folder, the
# picture maker and GIF checker.
set -eu
build=$1 cc=$2 flags=$3 libdir=$4 generator=$5 examples=$6 check=$7
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

# A linked host shares the library's exported data: the library must see
# what the host writes into _debug_color_res, export_szDLLName and the rest,
# whether the host is position-independent or not (a fixed-address
# executable takes copy relocations of them). The library must therefore
# reach its own data through relocations that the loader can point at the
# host's copy.
lib="$prefix/$libdir/libtolva.so.2"
for name in _debug_color_res export_szDLLName lpEMData lpSetup lpRaster lpCommon; do
  readelf -rW "$lib" | grep -q "GLOB_DAT.* $name" || {
    echo "the library binds its own $name: a linked host's copy would not be seen"; exit 1; }
done
run_host() { # executable
  "$1" 2>"$work/stderr" || { cat "$work/stderr"; exit 1; }
}

# pkg-config, position-independent and not
mkdir "$work/pc"
PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
export PKG_CONFIG_PATH
for pie in -pie -no-pie; do
  # shellcheck disable=SC2046,SC2086
  $cc $flags $pie -o "$work/pc/host$pie" "$here/install_host.c" $(pkg-config --cflags --libs tolva) \
    -Wl,-rpath,"$prefix/$libdir"
  run_host "$work/pc/host$pie"
done

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
run_host "$work/cm/build/host"
# The example host: 1:1 exports in bands, indexed and true colour, and a
# cancel that leaves no file.
# shellcheck disable=SC2046,SC2086
$cc $flags -o "$work/example" "$examples/export_host.c" $(pkg-config --cflags --libs tolva) \
  -Wl,-rpath,"$prefix/$libdir"
for picture in "150 130 256" "33 41 7" "64 64 4096"; do
  # shellcheck disable=SC2086
  "$check" make "$work/in.ppm" $picture
  "$work/example" "$work/in.ppm" "$work/out.gif" 2>"$work/stderr" || { cat "$work/stderr"; exit 1; }
  grep -q "100%" "$work/stderr" || { echo "example: no progress for $picture"; exit 1; }
  # shellcheck disable=SC2086
  "$check" compare "$work/out.gif" $picture
done
rm "$work/out.gif"
status=0
"$work/example" -c "$work/in.ppm" "$work/out.gif" 2>/dev/null || status=$?
[ "$status" = 130 ] && [ ! -e "$work/out.gif" ] || {
  echo "example: a cancel gave status $status and left the file as it was"; exit 1; }
echo "install test passed"
