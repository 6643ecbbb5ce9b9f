#!/usr/bin/env bash
# `kolvari der` against `openssl asn1parse -i`: the same offsets, depths, header lengths and lengths for every
# element of real DER files (the Mozilla roots of the machine, and the CMS, OCSP and certificate fixtures).
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
: "${KOLVARI_TEST_DATA:?path of tests/data}"

# offset depth header-length length, one element per line.
openssl_tree() { openssl asn1parse -inform DER -i -in "$1" | grep -E "^ *[0-9]+:d=" | sed -E 's/^ *([0-9]+):d=([0-9]+) +hl=([0-9]+) +l= *([0-9]+).*/\1 \2 \3 \4/'; }
kolvari_tree() { "$KOLVARI" der "$1" | sed -E 's/^ *([0-9]+):d=([0-9]+) +hl=([0-9]+) +l= *([0-9]+).*/\1 \2 \3 \4/'; }

compared=0
check() {
  openssl_tree "$1" > "$work/expected"
  kolvari_tree "$1" > "$work/actual" || fail "kolvari der failed on $1"
  diff "$work/expected" "$work/actual" > "$work/diff" || fail "element trees differ for $1: $(head -20 "$work/diff")"
  compared=$((compared + 1))
}

for pem in /usr/share/ca-certificates/mozilla/*.crt; do
  openssl x509 -in "$pem" -outform DER -out "$work/root.der"
  check "$work/root.der"
done
# Definite-length fixtures (the reader takes an indefinite length as the rest of the file, unlike asn1parse).
for f in cms-signed.der cms-enveloped.der cms-digested.der cms-signed-digested.der pkcs7-signed.der \
         mozilla-generated-by-openssl.pkcs7.der example-attr-cert.der \
         test-der.crt test-ec-der.crt test-inter-der.crt ocsp_response tsp_response; do
  check "$KOLVARI_TEST_DATA/asn1crypto/$f"
done

# A truncated file: the tree up to the fault is printed and the exit status is non-zero.
head -c 300 "$KOLVARI_TEST_DATA/asn1crypto/test-der.crt" > "$work/cut.der"
! "$KOLVARI" der "$work/cut.der" > "$work/cut.txt" 2>"$work/cut.err" || fail "a truncated file was accepted"
grep -q "malformed DER" "$work/cut.err" || fail "no message for a truncated file"
[ "$(wc -l < "$work/cut.txt")" -gt 5 ] || fail "no tree printed before the fault"

echo "element trees agree with openssl asn1parse for $compared files"
