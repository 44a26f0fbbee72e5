#!/bin/sh
# Usage: check_includes.sh SOURCE
# Includes run one way, in the module: api - container - io, codec - support - platform; and in the command: its own files -
# commands - report, sheet - play - check, print - inspect, with render for report alone. The command, the benchmarks and
# the examples see the public header only, and no header or source includes itself by way of others.
set -eu
cd "$1"
awk '
BEGIN {
    below["src/platform"] = " "
    below["src/support"] = " platform "
    below["src/io"] = below["src/codec"] = " support platform "
    below["src/container"] = " codec support platform "
    below["src/api"] = " container io codec support platform "
    below["cli/inspect"] = below["cli/render"] = " "
    below["cli/check"] = below["cli/print"] = " inspect "
    below["cli/play"] = " check print inspect "
    below["cli/sheet"] = " print inspect "
    below["cli/report"] = " play check print inspect render "
    below["cli/commands"] = " report sheet play check print inspect "
    below["cli"] = " commands print "  # the command line and main
}
/^#[ \t]*include[ \t]*"/ {
    split($0, quoted, "\"")
    split(FILENAME, from, "/")
    split(quoted[2], to, "/")
    found[from[1]]++
    place = from[1] (from[3] ? "/" from[2] : "")
    beside = from[3] ? to[1] == from[2] : !to[2]
    wrong = 0
    if (from[1] != "src")
        wrong = (getline line < ("src/" quoted[2])) >= 0
    if (from[1] == "src" || from[1] == "cli")  # containers read boxes from a source of data, whichever it is
        wrong = wrong || !(place in below) || quoted[2] != "KivMp4.h" && !beside \
                && !(place == "src/container" && quoted[2] == "io/DataSource.h") && !index(below[place], " " to[1] " ")
    if (wrong) {
        print FILENAME ":" FNR ": includes " quoted[2]
        failed = 1
    }
}
END {
    if (found["src"] < 50 || found["cli"] < 50) {
        print "only " found["src"] + 0 " includes found in src, " found["cli"] + 0 " in cli"
        failed = 1
    }
    exit failed
}' $(find src cli bench examples -name '*.h' -o -name '*.cpp' -o -name '*.c')

# A header and the source of its name are one: circles through a source count too. From pairs of one and another that it
# includes tsort names those that form a circle.
for tree in src cli; do
    grep -r --include='*.h' --include='*.cpp' '^#include "' $tree |
        sed 's/^\([^:]*\)\.[a-z]*:#include "\(.*\)\.h".*/\1 '$tree'\/\2/' | awk '$1 != $2' | tsort >/dev/null
done
