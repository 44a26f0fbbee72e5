#!/usr/bin/env bash
# Installs into an empty prefix and builds the example against it: check_install.sh SOURCE BUILD CLIP
set -eu
source=$1 build=$2 clip=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name kivmp4.pc)")
export PKG_CONFIG_PATH
libraries=$(pkg-config --variable=libdir kivmp4)
expected=$("$build/examples/example_player" "$clip")
[ -n "$expected" ]

check() {  # NAME PROGRAM
  [ "$("$2" "$clip")" = "$expected" ] || { echo "$1: the example plays something else"; exit 1; }
}

flags="-std=c99 -pedantic -Wall -Wextra -Werror"
cc $flags "$source/examples/player.c" $(pkg-config --cflags --libs kivmp4) -Wl,-rpath,"$libraries" -o "$work/shared"
check "C, pkg-config, shared" "$work/shared"
cc $flags "$source/examples/player.c" $(pkg-config --cflags kivmp4) "$libraries/libkivmp4.a" -pthread -o "$work/static"
check "C, pkg-config, static" "$work/static"
c++ -x c++ -std=c++11 -Wall -Wextra -Werror "$source/examples/player.c" $(pkg-config --cflags --libs kivmp4) \
  -Wl,-rpath,"$libraries" -o "$work/cxx"
check "C++, pkg-config" "$work/cxx"

cat >"$work/CMakeLists.txt" <<TEXT
cmake_minimum_required(VERSION 3.20)
project(Consumer LANGUAGES C)
find_package(KivMp4 1.0 REQUIRED)
add_executable(shared $source/examples/player.c)
target_link_libraries(shared PRIVATE KivMp4::kivmp4)
add_executable(static $source/examples/player.c)
target_link_libraries(static PRIVATE KivMp4::kivmp4_static)
TEXT
cmake -S "$work" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/build" >/dev/null
check "CMake, shared" "$work/build/shared"
check "CMake, static" "$work/build/static"
