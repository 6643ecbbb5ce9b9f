#!/usr/bin/env bash
# The kolvari tool's command line: `--help` for the tool and for every command (a usage line on standard
# output, exit status 0); a wrong command line prints one line naming what is wrong and one pointing at the
# command's help, and exits with 2; an input file that cannot be read is a failure of the work, exit status 1.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"

commands=(info der detect cert inspect log-check sign sign-pdf timestamp-pdf extend-pdf extend verify)

"$KOLVARI" --help >all.txt 2>err.txt || fail "kolvari --help exits with $?"
for c in "${commands[@]}"; do
  grep -q "^  $c " all.txt || fail "kolvari --help does not list $c"
  "$KOLVARI" "$c" --help >out.txt 2>err.txt || fail "kolvari $c --help exits with $?"
  head -1 out.txt | grep -q "^usage: kolvari $c" || fail "kolvari $c --help starts with: $(head -1 out.txt)"
  [ ! -s err.txt ] || fail "kolvari $c --help writes to standard error"
done

# A wrong command line: "kolvari COMMAND: what is wrong" and "see 'kolvari COMMAND --help'" on standard error,
# nothing more, exit status 2. The rules of the shared reader (cli/command_line.cc: unknown options, missing or
# extra FILEs, missing values) once; the rules between one command's options each.
touch empty.txt
while IFS='|' read -r command message args; do
  # shellcheck disable=SC2086  # the arguments are words
  status=$(status_of "$KOLVARI" $args)
  [ "$status" -eq 2 ] || fail "kolvari $args: exit status $status, not 2"
  [ "$(sed -n 1p err.txt)" = "kolvari $command: $message" ] || fail "kolvari $args: says '$(sed -n 1p err.txt)'"
  [ "$(sed -n 2p err.txt)" = "see 'kolvari ${command#kolvari} --help'" ] || [ "$command" = "" ] ||
    fail "kolvari $args: then '$(sed -n 2p err.txt)'"
  [ "$(wc -l <err.txt)" -eq 2 ] || fail "kolvari $args: $(wc -l <err.txt) lines on standard error, not 2"
  [ ! -s out.txt ] || fail "kolvari $args: writes to standard output"
done <<'ROWS'
info|--plugin needs a value|info --plugin
der|FILE is required|der
der|unexpected argument empty.txt|der empty.txt empty.txt
sign|--key KEY with --cert CERT, --p12 FILE or --pkcs11 URI is required|sign --cert c.pem empty.txt
sign|--key excludes --p12|sign --p12 k.p12 --key k.pem --cert c.pem empty.txt
sign|--cert CERT is required|sign --key k.pem empty.txt
sign|more than one FILE needs --out-dir DIR|sign --key k.pem --cert c.pem empty.txt other.txt
sign|--time 2024-05-01: not YYYYMMDDhhmmssZ or YYMMDDhhmmssZ|sign --key k.pem --cert c.pem --time 2024-05-01 empty.txt
sign|--key excludes --pkcs11|sign --key k.pem --cert c.pem --pkcs11 pkcs11:object=k empty.txt
sign|--pkcs11-module requires --pkcs11|sign --pkcs11-module m.so --key k.pem --cert c.pem empty.txt
sign|--out excludes --out-dir|sign --key k.pem --cert c.pem --out x.p7s --out-dir out empty.txt
sign|--digest md5: not sha256, sha384 or sha512|sign --key k.pem --cert c.pem --digest md5 empty.txt
sign|--tsa-timeout 0: not whole seconds from 1 to 600|sign --key k.pem --cert c.pem --tsa-timeout 0 empty.txt
sign-pdf|--visible 1,10,10,0,20: the width and the height must be above 0|sign-pdf --key k.pem --cert c.pem --visible 1,10,10,0,20 empty.txt out.pdf
sign-pdf|--visible 1,10,10: needs PAGE,X,Y,W,H|sign-pdf --key k.pem --cert c.pem --visible 1,10,10 empty.txt out.pdf
sign-pdf|--p12 excludes --pkcs11|sign-pdf --p12 k.p12 --pkcs11 pkcs11:object=k empty.txt out.pdf
sign-pdf|--font requires --visible|sign-pdf --key k.pem --cert c.pem --font f.ttf empty.txt out.pdf
sign-pdf|--field a.b: a field name cannot hold a period: it joins the names of nested fields|sign-pdf --key k.pem --cert c.pem --field a.b empty.txt out.pdf
log-check|--library requires --host|log-check --library lib.so
sign-pdf|unknown option --fetch-revocation|sign-pdf --key k.pem --cert c.pem --fetch-revocation empty.txt out.pdf
ROWS

# No command, or one the tool does not have: the list of commands, or a pointer to it; exit status 2.
status=$(status_of "$KOLVARI")
[ "$status" -eq 2 ] && grep -q '^usage: kolvari COMMAND' err.txt || fail "kolvari without a command: $status"
status=$(status_of "$KOLVARI" no-such-command)
[ "$status" -eq 2 ] && [ "$(head -1 err.txt)" = "kolvari: unknown command 'no-such-command'" ] ||
  fail "kolvari no-such-command: $status, $(head -1 err.txt)"

# An input that cannot be read: exit status 1, not the usage (a directory as any command's input: tool_faults.sh).
while read -r args; do
  # shellcheck disable=SC2086
  [ "$(status_of "$KOLVARI" $args)" -eq 1 ] || fail "kolvari $args: exit status $status for a missing file, not 1"
done <<'ROWS'
der missing.der
der -- -missing.der
sign --key missing.key --cert missing.pem empty.txt
ROWS

echo "help: passed"
