#!/bin/sh
# build.sh SOURCES FOLDER LIBRARY GENERATED [OPTION OF cmake]...
# Installs LIBRARY and the layer's headers (those of the proxies are in GENERATED) as a platform library below FOLDER,
# builds the daemon against it, and looks whether it really takes the platform from there.
set -e
sources=$1
folder=$2
library=$3
generated=$4
shift 4

rm -rf "$folder"
prefix=$folder/prefix
mkdir -p "$prefix/lib" "$prefix/include/kelta"
cp "$library" "$prefix/lib/libKELTA.so.0"
cp "$sources"/core/kelta/*.h "$generated"/*proxy.h "$prefix/include/kelta"

cmake -S "$sources" -B "$folder/daemon" -DKELTA_ROOT="$prefix" -DBUILD_TESTING=OFF -DBUILD_EXAMPLES=OFF "$@" > "$folder/log"
cmake --build "$folder/daemon" >> "$folder/log" 2>&1 || { cat "$folder/log"; exit 1; }

program=$folder/daemon/upnpvelorn
if ! readelf -d "$program" | grep 'NEEDED.*\[libKELTA\.so\.0\]'; then
    echo "The daemon does not need libKELTA.so.0"
    exit 1
fi
if nm --demangle --defined-only "$program" | grep ' T \(kelta::\|RemoteDbusWatcher::\|[A-Za-z]*Proxy::\)'; then
    echo "The daemon has these functions of the platform layer within itself"
    exit 1
fi
