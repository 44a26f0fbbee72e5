#!/usr/bin/env bash
# Usage: check_packages.sh DIRECTORY
# Installs the Debian packages of DIRECTORY in an empty Debian root and uses them there: a consumer in C with pkg-config,
# consumers in C and C++ with CMake, the command, the Python module. What they show must be what each other shows, and what
# is left after removing must be nothing.
set -eu
source=$(cd "$(dirname "$0")/../.." && pwd)
packages=$(cd "$1" && pwd)
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
lists=/etc/apt/sources.list
[ -s "$lists" ] || lists=$(ls /etc/apt/sources.list.d/*.sources)
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
# shellcheck disable=SC2086  # there may be several lists
mmdebstrap --quiet --mode=root --variant=minbase --aptopt='Acquire::Check-Valid-Until "false"' \
  --include=gcc,g++,make,cmake,pkg-config "$release" "$root" $lists
mkdir "$root/trial"
cp "$packages"/*.deb "$source/examples/player.c" "$source/samples/demo.mp4" "$source/tests/library/consumer/CMakeLists.txt" \
  "$root/trial"
cp "$source/examples/player.c" "$root/trial/player.cpp"
version=$(sed -n 's/^#define KIVMP4_VERSION "\(.*\)"/\1/p' "$source/include/KivMp4.h")
cat >"$root/trial/run" <<'RUN'
set -eu
cd /trial
apt-get update -qq
# Their dependencies come from Debian; nothing else may be needed.
DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends ./*.deb >apt.log 2>&1 || { cat apt.log; exit 1; }
gcc -std=c99 -pedantic -Wall -Werror player.c $(pkg-config --cflags --libs kivmp4) -o player
./player demo.mp4 >units
[ "$(wc -l <units)" = 433 ] || { echo "the C consumer shows $(wc -l <units) units"; exit 1; }
echo "C with pkg-config: $(wc -l <units) units"
cmake -S . -B consumers -DVERSION="$VERSION" >cmake.log && cmake --build consumers >>cmake.log || { cat cmake.log; exit 1; }
for consumer in c_shared c_static cpp_shared cpp_static; do
  consumers/$consumer demo.mp4 | cmp - units
  echo "CMake, $consumer: the same"
done
[ "$(kivmp4 --version)" = "kivmp4 $VERSION" ]
kivmp4 info demo.mp4
kivmp4 check --deep demo.mp4
kivmp4 report demo.mp4 -o demo.html
kivmp4 sheet demo.mp4 -o demo.png
kivmp4 hash demo.mp4 --algorithm crc32
python3 - <<'PYTHON'
import kivmp4
with kivmp4.open("demo.mp4") as f:
    units = [(unit.track.index, len(unit.payload)) for unit in f.units()]
lines = [tuple(int(word.strip(":")) for word in line.split()[1:3]) for line in open("units")]
assert units == lines, "Python sees other units"
print("Python", kivmp4.library_version(), "shows", len(units), "units, the same")
PYTHON
for file in man/man1/kivmp4.1 bash-completion/completions/kivmp4 kivmp4/schema/info.json; do
  test -s /usr/share/$file || test -s /usr/share/$file.gz || { echo "no /usr/share/$file"; exit 1; }
done
names=$(for package in *.deb; do dpkg-deb -f $package Package; done)
DEBIAN_FRONTEND=noninteractive dpkg --purge $names >purge.log
left=$(find /usr /etc | grep -i kivmp4 || true)
[ -z "$left" ] || { echo "left after removing:" $left; exit 1; }
echo "removed without a trace"
RUN
VERSION=$version chroot "$root" bash /trial/run
