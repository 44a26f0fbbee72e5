#!/bin/sh
# Usage: check_includes.sh SOURCE
# Includes run one way: api - container - io, codec - support - platform. The command, the benchmarks and the examples see
# the public header only, and no header or source includes itself by way of others.
set -eu
cd "$1"
awk '
BEGIN {
    below["platform"] = " "
    below["support"] = " platform "
    below["io"] = below["codec"] = " support platform "
    below["container"] = " codec support platform "
    below["api"] = " container io codec support platform "
}
/^#[ \t]*include[ \t]*"/ {
    split($0, quoted, "\"")
    split(FILENAME, from, "/")
    split(quoted[2], to, "/")
    found[from[1]]++
    if (from[1] != "src")
        wrong = (getline line < ("src/" quoted[2])) >= 0
    else  # containers read boxes from a source of data, whichever it is
        wrong = quoted[2] != "KivMp4.h" && to[1] != from[2] \
                && !(from[2] == "container" && quoted[2] == "io/DataSource.h") && !index(below[from[2]], " " to[1] " ")
    if (wrong) {
        print FILENAME ":" FNR ": includes " quoted[2]
        failed = 1
    }
}
END {
    if (found["src"] < 50) { print "only " found["src"] + 0 " includes found in src"; failed = 1 }
    exit failed
}' $(find src cli bench examples -name '*.h' -o -name '*.cpp' -o -name '*.c')

# A header and the source of its name are one: circles through a source count too. From pairs of one and another that it
# includes tsort names those that form a circle.
grep -r --include='*.h' --include='*.cpp' '^#include "' src |
    sed 's/^\([^:]*\)\.[a-z]*:#include "\(.*\)\.h".*/\1 src\/\2/' | awk '$1 != $2' | tsort >/dev/null
