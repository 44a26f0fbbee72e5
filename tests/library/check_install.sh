#!/bin/sh
# Usage: check_install.sh BUILD SOURCE GENERATOR TOOLCHAIN C_COMPILER C_FLAGS PLAYER [EMULATOR...]
# What is installed into an empty prefix serves a player: in C by way of pkg-config, in C and C++ by way of CMake, with the
# shared and with the static library. Each of them must show what PLAYER, built beside the library, shows.
set -eu
build=$1 source=$2 generator=$3 toolchain=$4 compiler=$5 flags=$6 player=$7
shift 7
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
clip=$source/samples/demo.mp4
"$@" "$player" "$clip" >"$directory/expected"
[ -s "$directory/expected" ] || { echo "$player shows nothing"; exit 1; }

# shows WHAT PROGRAM EMULATOR...
shows() {
    what=$1 program=$2
    shift 2
    LD_LIBRARY_PATH=$libraries "$@" "$program" "$clip" >"$directory/shown"
    cmp "$directory/expected" "$directory/shown" || { echo "$what: other units than $player"; exit 1; }
}

cmake --install "$build" --prefix "$directory/prefix" >/dev/null
# Moved afterwards: nothing installed may name the place where it was put first.
mv "$directory/prefix" "$directory/moved"
export PKG_CONFIG_LIBDIR
PKG_CONFIG_LIBDIR=$(dirname "$(find "$directory/moved" -name kivmp4.pc)")
libraries=$(dirname "$PKG_CONFIG_LIBDIR")
version=$(sed -n 's/^#define KIVMP4_VERSION "\(.*\)"/\1/p' "$source/include/KivMp4.h")
[ "$(pkg-config --modversion kivmp4)" = "$version" ] || { echo "kivmp4.pc is not of version $version"; exit 1; }

strict="-std=c99 -pedantic -Wall -Wextra -Werror"
# shellcheck disable=SC2086,SC2046  # flags are several words
"$compiler" $flags $strict "$source/examples/player.c" $(pkg-config --cflags --libs kivmp4) -o "$directory/shared"
shows "C with pkg-config" "$directory/shared" "$@"
# shellcheck disable=SC2086,SC2046
"$compiler" $flags $strict "$source/examples/player.c" $(pkg-config --cflags kivmp4) \
    $(pkg-config --static --libs kivmp4 | sed 's/-lkivmp4/-l:libkivmp4.a/') -o "$directory/static"
shows "C with pkg-config, static" "$directory/static" "$@"

cp "$source/tests/library/consumer/CMakeLists.txt" "$source/examples/player.c" "$directory"
cp "$directory/player.c" "$directory/player.cpp"
cmake -S "$directory" -B "$directory/build" -G "$generator" -DCMAKE_PREFIX_PATH="$directory/moved" -DVERSION="$version" \
      ${toolchain:+--toolchain "$toolchain"} >/dev/null
cmake --build "$directory/build" >"$directory/log" || { cat "$directory/log"; exit 1; }
for program in c_shared c_static cpp_shared cpp_static; do
    shows "$program with CMake" "$directory/build/$program" "$@"
done
if [ -e "$build/kivmp4" ]; then
    "$@" "$directory/moved/bin/kivmp4" --version | grep -q "$version" || { echo "the command is not installed"; exit 1; }
    [ -s "$directory/moved/share/man/man1/kivmp4.1" ] || { echo "the manual page is not installed"; exit 1; }
fi
