#!/bin/sh
# Usage: check_exports.sh LIBRARY HEADER
# The shared library exports the functions that the header declares and nothing else, and needs the C library alone.
set -eu
exported=$(nm -D --defined-only "$1" | awk '{ print $3 }' | sort)
declared=$(grep -o 'KIVMP4_API .*' "$2" | grep -o 'KivMp4[A-Za-z]*(' | tr -d '(' | sort)
if [ "$exported" != "$declared" ] || [ "$(echo "$exported" | wc -l)" -ne 19 ]; then
    echo "exported:" $exported
    echo "declared:" $declared
    exit 1
fi
needed=$(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -v '^libc\.so\.6$' || true)
if [ -n "$needed" ]; then
    echo "needs" $needed
    exit 1
fi
