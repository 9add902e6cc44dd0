#!/usr/bin/env bash
# The publisher's walk-through of docs/third-party.md with kpmdwld-catalog:
# a key, a product's installer element, the list checked, published, and the
# archive verified as the agent verifies it (and refused where it must be).
# Usage: catalog_tool.sh KPMDWLD_CATALOG SOURCE_DIR
set -u
tool=$1 src=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
expect() {  # expect WHAT EXIT_CODE TEXT COMMAND...: the command's exit code and a line of its output
  local what=$1 code=$2 text=$3 out rc
  shift 3
  out=$("$@" 2>&1); rc=$?
  [ "$rc" = "$code" ] || fail "$what: exit code $rc, expected $code: $out"
  grep -qF -- "$text" <<<"$out" || fail "$what: no '$text' in: $out"
}
cd "$work"
list=$src/tests/scenarios/bases/tp-world/sites/dc/updates/wblist/pdlist.zip

expect "keygen" 0 "key " "$tool" keygen publisher.pem publisher.pub
[ "$(stat -c %a publisher.pem)" = 600 ] || fail "the private key is readable by others"
printf 'MZ the new installer\r\n' >"New App 2.0.exe"
expect "installer element" 0 'size="22"' "$tool" installer "New App 2.0.exe" "https://vendor.example/New%20App%202.0.exe"
expect "installer element" 0 'md5="' "$tool" installer "New App 2.0.exe" "https://vendor.example/a.exe"
expect "check a good list" 0 "vendors: 6, products: 6, refused: 0" "$tool" check "$list/PDList.xml"
expect "check a list with refused entries" 1 "refused: product" "$tool" check \
  "$src/tests/scenarios/tppatch/refused-entries/sites/dc/updates/wblist/pdlist.zip/PDList.xml"
expect "publish" 0 "signed serial 42" "$tool" publish --key publisher.pem --serial 42 --issued 2026-11-15 \
  --valid-until 2026-12-15 --auoptions "$list/AUOptions.xml" "$list/PDList.xml" pdlist.zip
expect "verify as the agent" 0 "accepted: serial 42, issued 2026-11-15, valid until 2026-12-15" \
  "$tool" verify --keys publisher.pub --today 2026-11-16 --last-serial 41 pdlist.zip
expect "the same serial again" 0 "accepted" "$tool" verify --keys publisher.pub --today 2026-12-15 --last-serial 42 pdlist.zip
expect "a key not trusted" 1 "refused: signed by a key that is not trusted" "$tool" verify --today 2026-11-16 pdlist.zip
expect "expired" 1 "refused: expired: valid until 2026-12-15" "$tool" verify --keys publisher.pub --today 2026-12-16 pdlist.zip
expect "rolled back" 1 "refused: rolled back: serial 42 is lower than serial 43" \
  "$tool" verify --keys publisher.pub --today 2026-11-16 --last-serial 43 pdlist.zip
# The list inside the archive changed after signing.
mkdir tampered && (cd tampered && unzip -q ../pdlist.zip && sed -i 's/serial="42"/serial="43"/' PDList.xml &&
  zip -q ../tampered.zip PDList.xml PDList.xml.sig)
expect "a changed list" 1 "refused: signature does not verify" "$tool" verify --keys publisher.pub --today 2026-11-16 tampered.zip
expect "a bad serial" 1 "--serial" "$tool" publish --key publisher.pem --serial 0 --issued 2026-11-15 \
  --valid-until 2026-12-15 "$list/PDList.xml" x.zip
[ "$failures" = 0 ] && echo "catalog tool: all cases passed"
exit "$failures"
