#!/usr/bin/env bash
# checker_cases.sh KPMDWLD_CHECK ROOT [CASE...]
# The checker's cases as data (tests/checker/CASE): case.txt names the base
# machine folder, the arguments and the exit code; the case's machine/ is
# copied over the base; expected.txt is the report. Each case must also
# leave its machine folder exactly as it found it. KPM_REFRESH=1 rewrites
# expected.txt (read the diff).
set -u
check=$1 root=$2
shift 2
cases=("$@")
[ ${#cases[@]} -gt 0 ] || cases=($(cd "$root/tests/checker" && ls -d */ | tr -d /))
work=$(mktemp -d /tmp/kpm-checker.XXXXXX)
trap 'rm -rf "$work"' EXIT
fingerprint() { (cd "$1" && find . -type f -print0 | sort -z | xargs -0 md5sum | md5sum); }
failures=0
for name in "${cases[@]}"; do
  dir=$root/tests/checker/$name
  field() { sed -n "s/^$1=//p" "$dir/case.txt" | tr -d '\r'; }
  machine=$work/$name
  cp -r "$root/$(field machine)" "$machine"
  [ -d "$dir/machine" ] && cp -r "$dir/machine/." "$machine/"
  before=$(fingerprint "$machine")
  # shellcheck disable=SC2046
  "$check" $(field args) "$machine" >"$work/$name.out" 2>"$work/$name.err"
  rc=$?
  problems=()
  [ "$rc" = "$(field exit)" ] || problems+=("exit code $rc, expected $(field exit); stderr: $(head -c 400 "$work/$name.err")")
  [ "$(fingerprint "$machine")" = "$before" ] || problems+=("the machine folder changed")
  if [ -n "${KPM_REFRESH:-}" ]; then
    cp "$work/$name.out" "$dir/expected.txt"
  elif ! diff -u "$dir/expected.txt" "$work/$name.out" >"$work/$name.diff"; then
    problems+=("the report differs (- expected, + got):" "$(head -n 40 "$work/$name.diff")")
  fi
  if [ ${#problems[@]} -eq 0 ]; then
    echo "ok   $name"
  else
    echo "FAIL $name"; printf '     %s\n' "${problems[@]}"
    failures=$((failures + 1))
  fi
done
echo "${#cases[@]} cases, $failures failed"
[ "$failures" = 0 ]
