#!/usr/bin/env bash
# Unpacks Debian's libraries and headers for another processor, for a cross build: scripts/sysroot.sh ARCHITECTURE FOLDER
# Nothing is installed and none of it is run, so it needs no root, and this machine's own packages stay as they are.
# They come from the servers that this machine's apt knows, of the same release.
set -euo pipefail
case ${1-} in
-h | --help) sed -n '2,4s/^# //p' "$0"; exit 0 ;;
esac
if [ $# != 2 ]; then
    echo "$0: takes an architecture (armhf, arm64) and a folder" >&2
    exit 2
fi
architecture=$1
mkdir -p "$2"
folder=$(cd "$2" && pwd)

packages=(libc6-dev libstdc++6 libqt5core5a libqt5network5 libqt5dbus5 libqt5test5 libdbus-1-dev)
without_dependencies=(qtbase5-dev qt5-qmake) # they are those of a desktop
stamp=$folder/.complete
[ "$(cat "$stamp" 2>/dev/null)" != "$architecture ${packages[*]}" ] || exit 0

# An apt with a database of its own, in which nothing is installed.
state=$folder.apt
rm -rf "$folder" "$state"
mkdir -p "$folder/usr/lib" "$folder/usr/bin" "$state/lists/partial" "$state/archives/partial"
: >"$state/status"
private_apt=(apt-get -qq
    -o "APT::Architecture=$architecture" -o "APT::Architectures=$architecture" -o APT::Install-Recommends=false
    -o "Dir::State=$state" -o "Dir::State::lists=$state/lists" -o "Dir::State::status=$state/status"
    -o "Dir::Cache=$state" -o "Dir::Cache::archives=$state/archives" -o APT::Sandbox::User= -o Acquire::Languages=none)
"${private_apt[@]}" update || echo "Some package lists are missing; going on with the others"
"${private_apt[@]}" install -y --download-only "${packages[@]}" >/dev/null
(cd "$state/archives" && "${private_apt[@]}" download "${without_dependencies[@]}")

# As on a Debian system, /lib is /usr/lib.
ln -s usr/lib "$folder/lib"
for archive in "$state"/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$archive" | tar -x -C "$folder" --keep-directory-symlink --no-same-owner --exclude='./dev/*'
done
# A link to /usr/... means the sysroot's.
find "$folder" -type l -lname '/*' | while read -r link; do
    ln -sfnr "$folder$(readlink "$link")" "$link"
done
# What generates sources runs on this machine.
for tools in "$folder"/usr/lib/qt5/bin "$folder"/usr/lib/*-linux-gnu*/qt5/bin; do
    mkdir -p "${tools%/*}"
    rm -rf "$tools"
    ln -s /usr/lib/qt5/bin "$tools"
done
rm -rf "$state"
echo "$architecture ${packages[*]}" >"$stamp"
