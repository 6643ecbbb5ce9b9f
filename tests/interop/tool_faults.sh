#!/usr/bin/env bash
# What a new user of `kolvari` runs into: a directory or a device as input (alone and in an --out-dir batch),
# signing times the calendar does not have, an output that exists or is the input itself, and the order of
# the signed attributes in the tool's default signature (checked with `openssl asn1parse`).
set -euo pipefail
: "${KOLVARI:?path of the kolvari tool}"
: "${KOLVARI_PLUGIN:?path of the plug-in}"
here=$(cd "$(dirname "$0")" && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }
checks=0

. "$here/../support/test_pki.sh"
make_test_ca "Kolvari Faults CA"
serial=100
make_signer p256 "/CN=faults signer" ec -pkeyopt ec_paramgen_curve:P-256
sign() { "$KOLVARI" sign --plugin "$KOLVARI_PLUGIN" --key p256.key --cert p256.pem "$@"; }
sign_pdf() { "$KOLVARI" sign-pdf --plugin "$KOLVARI_PLUGIN" --key p256.key --cert p256.pem "$@"; }
verifies() {  # signature (DER), content
  openssl cms -verify -binary -inform DER -in "$1" -content "$2" -CAfile ca.pem -out /dev/null 2>verify.err
}
status_of() { if "$@" >out.txt 2>err.txt; then echo 0; else echo $?; fi; }
printf 'first\n' > a.txt
printf 'second\n' > b.txt
mkdir dir.txt
python3 "$here/minimal_pdf.py" in.pdf

# ---- a directory or a device as input: one line naming it, status 1, never an abort ----
while IFS='|' read -r expected args; do
  # shellcheck disable=SC2086  # the arguments are words
  status=$(status_of "$KOLVARI" $args)
  [ "$status" -eq 1 ] || fail "kolvari $args: exit status $status, not 1"
  [ "$(cat err.txt)" = "$expected" ] || fail "kolvari $args: says '$(cat err.txt)', not '$expected'"
  checks=$((checks + 1))
done <<ROWS
kolvari sign: dir.txt: is a directory|sign --plugin $KOLVARI_PLUGIN --key p256.key --cert p256.pem dir.txt
kolvari sign: dir.txt: is a directory|sign --plugin $KOLVARI_PLUGIN --key dir.txt --cert p256.pem a.txt
kolvari sign: /dev/null: is a device|sign --plugin $KOLVARI_PLUGIN --key p256.key --cert p256.pem /dev/null
kolvari sign-pdf: dir.txt: is a directory|sign-pdf --plugin $KOLVARI_PLUGIN --key p256.key --cert p256.pem dir.txt out.pdf
kolvari der: dir.txt: is a directory|der dir.txt
kolvari cert: dir.txt: is a directory|cert dir.txt
kolvari inspect: dir.txt: is a directory|inspect dir.txt
kolvari detect: dir.txt: is a directory|detect dir.txt
kolvari der: /dev/null: is a device|der /dev/null
ROWS
[ ! -e out.pdf ] || fail "sign-pdf of a directory wrote out.pdf"

# In a batch the directory is reported and skipped; the files around it are signed.
mkdir out
status=$(status_of sign --out-dir out a.txt dir.txt b.txt)
[ "$status" -eq 1 ] || fail "batch with a directory: exit status $status, not 1"
grep -qx 'kolvari sign: dir.txt: is a directory' err.txt || fail "batch: the directory is not named: $(cat err.txt)"
grep -q '1 of 3 files not signed' err.txt || fail "batch: no summary: $(cat err.txt)"
for f in a b; do verifies out/$f.txt.p7s $f.txt || fail "batch: $f.txt not signed: $(cat verify.err)"; done
[ ! -e out/dir.txt.p7s ] || fail "batch: a signature for the directory"
checks=$((checks + 1))

# ---- --time: the two forms of the help, the calendar checked, what is wrong said ----
while IFS='|' read -r time expected; do
  status=$(status_of sign --time "$time" --out t.der a.txt)
  if [ "$expected" = ok ]; then
    [ "$status" -eq 0 ] || fail "--time $time refused: $(cat err.txt)"
    rm -f t.der
  else
    [ "$status" -eq 2 ] || fail "--time $time: exit status $status, not 2"
    [ "$(head -1 err.txt)" = "kolvari sign: --time $time: $expected" ] || fail "--time $time says: $(head -1 err.txt)"
    [ ! -e t.der ] || fail "--time $time wrote a signature"
  fi
  checks=$((checks + 1))
done <<'ROWS'
20241301000000Z|month 13
20240001000000Z|month 0
20240230256199Z|day 30 of February 2024
20230229120000Z|day 29 of February 2023
19000229120000Z|day 29 of February 1900
20240431000000Z|day 31 of April 2024
20240100000000Z|day 0 of January 2024
20240101240000Z|hour 24
20240101236000Z|minute 60
20240101235960Z|second 60
241301000000Z|month 13
2024010112000Z|not YYYYMMDDhhmmssZ or YYMMDDhhmmssZ
20240101120000|not YYYYMMDDhhmmssZ or YYMMDDhhmmssZ
2024010112000+Z|not YYYYMMDDhhmmssZ or YYMMDDhhmmssZ
20240229120000Z|ok
20000229120000Z|ok
20241231235959Z|ok
ROWS

# The short form takes the UTCTime century: 24 is 2024 and 99 is 1999, as the signing-time attribute shows.
while IFS='|' read -r time shown; do
  sign --time "$time" --out t.der a.txt 2>err.txt || fail "--time $time: $(cat err.txt)"
  openssl asn1parse -inform DER -in t.der | grep -q "$shown" ||
    fail "--time $time: the signature holds $(openssl asn1parse -inform DER -in t.der | grep -E 'UTCTIME|GENERALIZEDTIME')"
  rm t.der
  checks=$((checks + 1))
done <<'ROWS'
240501090307Z|GENERALIZEDTIME *:20240501090307Z
990501090307Z|GENERALIZEDTIME *:19990501090307Z
491231235959Z|GENERALIZEDTIME *:20491231235959Z
500101000000Z|GENERALIZEDTIME *:19500101000000Z
ROWS

# ---- outputs: an existing one only with --force, the input itself never ----
sign --out a.p7s a.txt 2>err.txt || fail "first --out: $(cat err.txt)"
before=$(cksum < a.p7s)
status=$(status_of sign --out a.p7s b.txt)
[ "$status" -eq 1 ] && grep -qx 'kolvari sign: a.p7s exists (--force replaces it)' err.txt ||
  fail "--out over an existing file: status $status, $(cat err.txt)"
[ "$(cksum < a.p7s)" = "$before" ] || fail "--out replaced an existing file without --force"
sign --force --out a.p7s b.txt 2>err.txt && verifies a.p7s b.txt || fail "--force --out: $(cat err.txt)"
sign_pdf in.pdf signed.pdf 2>err.txt || fail "sign-pdf: $(cat err.txt)"
before=$(cksum < signed.pdf)
status=$(status_of sign_pdf in.pdf signed.pdf)
[ "$status" -eq 1 ] && grep -qx 'kolvari sign-pdf: signed.pdf exists (--force replaces it)' err.txt ||
  fail "sign-pdf over an existing OUT: status $status, $(cat err.txt)"
[ "$(cksum < signed.pdf)" = "$before" ] || fail "sign-pdf replaced an existing OUT without --force"
sign_pdf --force in.pdf signed.pdf 2>err.txt || fail "sign-pdf --force: $(cat err.txt)"
checks=$((checks + 4))

cp in.pdf keep.pdf
ln in.pdf hard-link.pdf
ln -s in.pdf sym-link.pdf
while IFS='|' read -r input output; do
  for force in "" --force; do
    # shellcheck disable=SC2086  # --force or nothing
    if [ "${input##*.}" = pdf ]; then status=$(status_of sign_pdf $force "$input" "$output");
    else status=$(status_of sign $force --out "$output" "$input"); fi
    [ "$status" -eq 1 ] && grep -q "is the input $input itself" err.txt ||
      fail "output $output over input $input $force: status $status, $(cat err.txt)"
    cmp -s in.pdf keep.pdf || fail "output $output over input $input $force changed the input"
    checks=$((checks + 1))
  done
done <<'ROWS'
in.pdf|in.pdf
in.pdf|./in.pdf
in.pdf|hard-link.pdf
in.pdf|sym-link.pdf
ROWS
cp a.txt a-copy.txt
for force in "" --force; do
  # shellcheck disable=SC2086
  status=$(status_of sign $force --out a.txt a.txt)
  [ "$status" -eq 1 ] && cmp -s a.txt a-copy.txt || fail "sign --out over its input $force: $status, $(cat err.txt)"
done

# ---- the default signature: DER order of the signed attributes, accepted by OpenSSL ----
# The signed attributes of a SignerInfo ([0] at depth 5 of a SignedData, the tbsCertificate's version is deeper):
# prints each attribute's DER in hex, one a line, in the order of the file.
signed_attributes() {
  openssl asn1parse -inform DER -in "$1" | python3 -c '
import re, sys
data = open(sys.argv[1], "rb").read()
rows = [tuple(int(x) for x in m.groups()) + (line,) for line in sys.stdin
        for m in [re.match(r"\s*(\d+):d=(\d+)\s+hl=\s*(\d+) l=\s*(\d+)", line)] if m]
start = next(r for r in rows if r[1] == 5 and "cont [ 0 ]" in r[4])
end = start[0] + start[2] + start[3]
for offset, depth, hl, length, _ in rows:
    if depth == 6 and start[0] < offset < end:
        print(data[offset:offset + hl + length].hex())
' "$1"
}
# DER SET OF order: the encodings compared as octet strings, the shorter padded with zero octets.
der_sorted() {
  python3 -c '
import sys
items = [bytes.fromhex(l) for l in sys.stdin.read().split()]
pad = lambda b: b + bytes(max(map(len, items)) - len(b))
sys.exit(0 if len(items) >= 3 and all(pad(a) <= pad(b) for a, b in zip(items, items[1:])) else 1)'
}
sign --out default.der a.txt 2>err.txt && verifies default.der a.txt || fail "default signature: $(cat verify.err err.txt)"
signed_attributes default.der | der_sorted || fail "default signature: signed attributes not in DER order"
sign --der-order --out alias.der a.txt && signed_attributes alias.der | der_sorted ||
  fail "--der-order: signed attributes not in DER order"
sign --document-order --out document.der a.txt && verifies document.der a.txt ||
  fail "--document-order: $(cat verify.err)"
if signed_attributes document.der | der_sorted; then fail "--document-order: the library's order is DER order here"; fi
checks=$((checks + 3))

echo "tool faults: $checks checks passed"
