#!/bin/sh
# grammar_is_fresh.sh FOLDER: runs qlalr on FOLDER/jsongrammar.g and compares what it writes with the tables
# in FOLDER, byte for byte. Exit status 77 (skipped) where qlalr is not installed.
set -e
folder=$1
if ! command -v qlalr > /dev/null; then
    echo "skipped: qlalr is not installed (Debian: qtbase5-dev-tools)"
    exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$folder/jsongrammar.g" "$work"
(cd "$work" && qlalr --no-lines jsongrammar.g)
for file in jsongrammar_p.h jsongrammar.cpp; do
    cmp "$work/$file" "$folder/$file"
done
