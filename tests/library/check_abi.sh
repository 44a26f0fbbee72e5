#!/bin/sh
# Usage: check_abi.sh SOURCE CC [--write]
# Holds the functions and records of the header against those that are pinned in kivmp4.abi: players that were built
# before must go on working. --write pins what is there now, for a new first version number.
set -eu
source=$1 cc=$2
pinned=$source/tests/library/kivmp4.abi
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$source"
# Functions of the header with any body: what the real ones take is what the header says, or they would not compile.
{
    echo '#include "KivMp4.h"'
    awk '/^KIVMP4_API/ { inside = 1 } inside { ends = sub(";", " { __builtin_trap(); }"); print; inside = !ends }' \
        include/KivMp4.h
} >"$directory/exports.c"
"$cc" -g -O0 "-fdebug-prefix-map=$directory=." -fPIC -shared -Iinclude "$directory/exports.c" -o "$directory/libkivmp4.so" -Wl,-soname,libkivmp4.so.1
if [ "${3-}" = --write ]; then
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs "$directory/libkivmp4.so" >"$pinned"
    exit 0
fi
abidiff --no-show-locs "$pinned" "$directory/libkivmp4.so"
