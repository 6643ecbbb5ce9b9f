#!/usr/bin/env bash
# `kolvari detect` on files made by other software (the Mozilla roots, CMS, OCSP and the files
# of tests/data/detect), each with its content-type code (the refined signedData kinds are unit cases); the
# JSON form, and unreadable arguments.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
: "${KOLVARI_TEST_DATA:?path of tests/data}"
checked=0
# expect CODE FILE...: every file is reported with CODE (hexadecimal, as printed).
expect() {
  local code=$1 wrong
  shift
  "$KOLVARI" detect "$@" > "$work/out" || fail "kolvari detect failed on $*"
  [ "$(wc -l < "$work/out")" -eq $# ] || fail "not one line per file for $*"
  wrong=$(awk -v code="$code" '$1 != code' "$work/out")
  [ -z "$wrong" ] || fail "expected $code for: $wrong"
  checked=$((checked + $#))
}

# The Mozilla roots: PEM certificates (as DER a certificate has no content type: test-der.crt below).
roots=(/usr/share/ca-certificates/mozilla/*.crt)
[ ${#roots[@]} -gt 100 ] || fail "the Mozilla roots are missing"
expect 0x00000101 "${roots[@]}"

f=$KOLVARI_TEST_DATA/asn1crypto
tail -n +2 "$f/pkcs7-signed.pem" > "$work/pkcs7-body.b64"  # base64 without its PEM line
printf 'short text' > "$work/small.txt"
openssl cms -data_create -in "$work/small.txt" -outform DER -out "$work/small.p7"  # 30 1F ...: a short outer length
cd "$KOLVARI_TEST_DATA/detect"
while read -r code files; do
  # shellcheck disable=SC2086  # the files are words
  expect "$code" $files
done <<TABLE
0x00000072 $f/cms-signed.der $f/cms-signed-indefinite-length.der $f/pkcs7-signed.der $work/pkcs7-body.b64
0x00000072 $f/smime-signature-generated-by-thunderbird.p7s
0x00000073 $f/cms-enveloped.der
0x00000076 $f/cms-encrypted.der
0x00000001 $f/cms-digested.der $f/tsp_response $f/ocsp_response $f/test-der.crt $f/example-attr-cert.der $work/small.p7
0x00000001 $f/eid2011.crl $KOLVARI_TEST_DATA/ocsp/openssl/*.ors
0x00001001 $f/LICENSE $f/pkcs7-signed.pem
0x00000071 data.p7
0x00000075 digested.p7
0x00000102 crl.pem
0x00001002 archive.zip
0x00001004 page.pdf
0x00001003 page.tif
TABLE

# JSON: an array of {"file","code","name"}, in the order of the arguments.
"$KOLVARI" detect --json timestamp-token.der page.pdf > "$work/detect.json"
python3 -c 'import json, sys; rows = json.load(open(sys.argv[1])); assert rows == [{"file": "timestamp-token.der",
  "code": 0x20000000, "name": "timestamp-token"}, {"file": "page.pdf", "code": 4100, "name": "pdf"}], rows' "$work/detect.json"

# An unreadable argument and a directory: one message each, the other files still reported, exit status 1.
status=0
"$KOLVARI" detect missing.der page.pdf "$work" > "$work/listed.txt" 2> "$work/errors.txt" || status=$?
[ "$status" -eq 1 ] || fail "exit status $status for unreadable arguments"
grep -q "missing.der" "$work/errors.txt" && grep -q "$work" "$work/errors.txt" || fail "unreadable arguments not named"
[ "$(wc -l < "$work/errors.txt")" -eq 2 ] || fail "not one message per unreadable argument"
grep -q "^0x00001004 .*page.pdf$" "$work/listed.txt" || fail "the readable file was not reported"

echo "kolvari detect named $checked files as expected"
