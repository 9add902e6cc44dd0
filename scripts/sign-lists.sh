#!/usr/bin/env bash
# sign-lists.sh CATALOG KEYDIR DIR...: publishes the product lists of example
# sites and machines with kpmdwld-catalog at run time, so that no signature is
# kept beside the list it signs.
#   X.sig.sign  (in a site's X.zip folder) holds a key's name: written as
#               X.sig, the signature file of X made with KEYDIR/NAME.pem
#   X.keys      (in a machine) key names, one a line: written as X, their
#               public keys (PDListKeys.pem: the keys the agent trusts)
# A key that KEYDIR does not have yet is made there (kpmdwld-catalog keygen)
# and kept, so that the next runs sign with the same key.
set -euo pipefail
catalog=$1 keys=$2
shift 2
mkdir -p "$keys"
key() {  # key NAME: makes the key NAME when it is missing
  [ -f "$keys/$1.pem" ] || "$catalog" keygen "$keys/$1.pem" "$keys/$1.pub" >/dev/null
}
for dir in "$@"; do
  find "$dir" -type f -name '*.sig.sign' -print0 | while IFS= read -r -d '' f; do
    name=$(tr -d ' \r\n' <"$f")
    key "$name"
    "$catalog" sign --key "$keys/$name.pem" "${f%.sig.sign}" >"${f%.sign}"
    rm "$f"
  done
  find "$dir" -type f -name '*.keys' -print0 | while IFS= read -r -d '' f; do
    : >"${f%.keys}"
    while read -r name; do
      name=${name%$'\r'}
      [ -n "$name" ] || continue
      key "$name"
      cat "$keys/$name.pub" >>"${f%.keys}"
    done <"$f"
    rm "$f"
  done
done
