#!/usr/bin/env bash
# zip-folders.sh DIR: every folder below DIR named X.zip becomes the zip
# archive X.zip of its files (as sites serve it), made by the zip tool with
# fixed times so that the same files always give the same bytes.
set -euo pipefail
find "$1" -depth -type d -name '*.zip' | while read -r dir; do
    tmp=$dir.tmp
    (cd "$dir" && find . -exec touch -h -d '2026-01-01 00:00:00' {} + && find . -type f | sed 's#^\./##' | LC_ALL=C sort |
        zip -q -X -D "$tmp" -@)
    rm -rf "$dir" && mv "$tmp" "$dir"
done
