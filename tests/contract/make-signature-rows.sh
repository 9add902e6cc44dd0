#!/usr/bin/env bash
# Writes signature_rows.inc: the lists and signature files of the signature
# contract rows, signed with the scenarios' test keys by OpenSSL's command line
# (RSASSA-PKCS1-v1_5, SHA-256), as kpmdwld-catalog signs. Run it again after a
# key or a list changes: tests/contract/make-signature-rows.sh
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
keys=$here/../scenarios/keys
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

printf '<?xml version="1.0" encoding="UTF-8"?>\n<pdlist format="1" serial="41" issued="2026-11-14" validUntil="2026-12-14">\n</pdlist>' >"$tmp/a.xml"
printf '<?xml version="1.0" encoding="UTF-8"?>\n<pdlist format="1" serial="42" issued="2026-11-15" validUntil="2026-12-15">\n</pdlist>' >"$tmp/b.xml"
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out "$tmp/short.pem" 2>/dev/null

# The lists end without a line end: the constants below hold their exact bytes.
# sigfile KEY LIST [BYTES]: the signature file (BYTES: the signature cut to that many bytes).
sigfile() {
  local id sig
  id=$(openssl pkey -in "$1" -pubout -outform DER | sha256sum | cut -c1-64)
  openssl dgst -sha256 -sign "$1" -out "$tmp/sig" "$2"
  [ -n "${3:-}" ] && head -c "$3" "$tmp/sig" >"$tmp/sig.cut" && mv "$tmp/sig.cut" "$tmp/sig"
  sig=$(base64 -w0 "$tmp/sig")
  printf 'format: kpmdwld-list-signature-1\nalgorithm: rsa-pkcs1-sha256\nkey: %s\nsignature: %s\n' "$id" "$sig"
}
# raw NAME TEXT: a C++ raw string constant.
raw() { printf 'constexpr const char* %s = R"KPM(%s)KPM";\n' "$1" "$2"; }

{
  echo "// Written by make-signature-rows.sh: do not edit."
  raw kTestKey "$(openssl pkey -in "$keys/test.pem" -pubout)"
  raw kShortKey "$(openssl pkey -in "$tmp/short.pem" -pubout)"
  raw kListA "$(cat "$tmp/a.xml")"
  raw kListB "$(cat "$tmp/b.xml")"
  raw kSigA "$(sigfile "$keys/test.pem" "$tmp/a.xml")"
  raw kSigB "$(sigfile "$keys/test.pem" "$tmp/b.xml")"
  raw kSigAOther "$(sigfile "$keys/other.pem" "$tmp/a.xml")"
  raw kSigAShort "$(sigfile "$tmp/short.pem" "$tmp/a.xml")"
  raw kSigACut "$(sigfile "$keys/test.pem" "$tmp/a.xml" 200)"
} >"$here/signature_rows.inc"
echo "wrote $here/signature_rows.inc"
