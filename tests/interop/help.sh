#!/usr/bin/env bash
# The kolvari tool's command line: `--help` for the tool and for every command (a usage line and an example,
# exit status 0); a wrong command line prints the command's usage and exits with 2; an input file that cannot
# be read is a failure of the work, exit status 1.
set -euo pipefail
: "${KOLVARI:?path of the kolvari tool}"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }
checks=0

commands=(info der detect cert inspect log-check sign sign-pdf)

"$KOLVARI" --help >out.txt 2>err.txt || fail "kolvari --help exits with $?"
for c in "${commands[@]}"; do
  grep -q "^  $c " out.txt || fail "kolvari --help does not list $c"
done
grep -q '^example:' out.txt || fail "kolvari --help shows no example"
checks=$((checks + 1))

for c in "${commands[@]}"; do
  "$KOLVARI" "$c" --help >out.txt 2>err.txt || fail "kolvari $c --help exits with $?"
  head -1 out.txt | grep -q "^usage: kolvari $c" || fail "kolvari $c --help starts with: $(head -1 out.txt)"
  grep -A1 '^example:' out.txt | grep -q "^  kolvari $c " || fail "kolvari $c --help shows no example of $c"
  [ ! -s err.txt ] || fail "kolvari $c --help writes to standard error"
  checks=$((checks + 1))
done

# A wrong command line: the usage on standard error (the command's own, or the tool's), exit status 2.
touch empty.txt
while IFS='|' read -r usage args; do
  # shellcheck disable=SC2086  # the arguments are words
  if "$KOLVARI" $args >out.txt 2>err.txt; then status=0; else status=$?; fi
  [ "$status" -eq 2 ] || fail "kolvari $args: exit status $status, not 2"
  grep -q "^usage: kolvari $usage" err.txt || fail "kolvari $args: no usage on standard error: $(head -2 err.txt)"
  checks=$((checks + 1))
done <<'ROWS'
COMMAND|
COMMAND|no-such-command
info|info --no-such-option
info|info --plugin
der|der
der|der empty.txt empty.txt
detect|detect
detect|detect --no-such-option empty.txt
cert|cert
cert|cert empty.txt empty.txt
inspect|inspect
inspect|inspect --no-such-option empty.txt
log-check|log-check --config
log-check|log-check --no-such-option
sign|sign
sign|sign --key k.pem --cert c.pem
sign|sign --key k.pem --cert c.pem empty.txt other.txt
sign|sign --key k.pem --cert c.pem --no-such-option empty.txt
sign|sign --key k.pem --cert c.pem --time 2024-05-01 empty.txt
sign|sign --key k.pem --cert c.pem --pkcs11 pkcs11:object=k empty.txt
sign|sign --pkcs11-module m.so --key k.pem --cert c.pem empty.txt
sign|sign --key k.pem --cert c.pem --out x.p7s --out-dir out empty.txt
sign-pdf|sign-pdf --key k.pem --cert c.pem empty.txt
sign-pdf|sign-pdf --key k.pem --cert c.pem --visible 1,10,10,0,20 empty.txt out.pdf
ROWS
if "$KOLVARI" sign --key k.pem --cert c.pem --digest md5 empty.txt >out.txt 2>err.txt; then status=0; else status=$?; fi
[ "$status" -eq 2 ] || fail "kolvari sign --digest md5: exit status $status, not 2"
checks=$((checks + 1))

# An input that cannot be read: exit status 1, not the usage.
while read -r args; do
  # shellcheck disable=SC2086
  if "$KOLVARI" $args >out.txt 2>err.txt; then status=0; else status=$?; fi
  [ "$status" -eq 1 ] || fail "kolvari $args: exit status $status for a missing file, not 1"
  checks=$((checks + 1))
done <<'ROWS'
der missing.der
detect missing.bin
cert missing.pem
inspect missing.p7s
sign --key missing.key --cert missing.pem empty.txt
sign-pdf --key missing.key --cert missing.pem empty.txt out.pdf
ROWS

echo "help: $checks checks passed"
