#!/usr/bin/env bash
# Includes of the module run one way: check_includes.sh SOURCE_DIRECTORY
set -eu
cd "$1"

# What the files of a folder may include, besides those of their own folder and the public header.
allowed() {
  case $1 in
    platform) ;;
    support) echo platform ;;
    io | codec) echo support platform ;;
    container) echo io codec support platform ;;
    api) echo container io codec support platform ;;
    *) echo "$1: a folder that this check does not know" >&2; exit 1 ;;
  esac
}

files=0 bad=0
while IFS=: read -r file include; do
  folder=${file%%/*} target=${include%%/*}
  files=$((files + 1))
  case $include in
    KivMp4.h | "$folder"/*) continue ;;
    io/*) [ "$folder" != container ] || [ "$include" = io/DataSource.h ] || target=none ;;
  esac
  case " $(allowed "$folder") " in
    *" $target "*) ;;
    *) echo "src/$file includes $include"; bad=1 ;;
  esac
done < <(grep -rno '^#include "[^"]*"' --include='*.h' --include='*.cpp' . | sed 's|^\./||; s|:[0-9]*:#include "|:|; s|"$||')
[ "$files" -gt 50 ] || { echo "only $files includes were found"; exit 1; }
exit $bad
