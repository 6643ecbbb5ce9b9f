#!/usr/bin/env bash
# `kolvari detect` on files made by other software: the Mozilla roots as PEM and DER, the real CMS fixtures,
# and files made here and now by openssl (cms, ts, crl), zip and ghostscript. Each must get its content-type
# code; the JSON form and the handling of unreadable arguments are checked too.
set -euo pipefail
: "${KOLVARI:?path of the kolvari tool}"
: "${KOLVARI_TEST_DATA:?path of tests/data}"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fixtures=$KOLVARI_TEST_DATA/asn1crypto

checked=0
fail() { echo "FAIL: $*" >&2; exit 1; }
# expect CODE FILE...: every file is reported with CODE (hexadecimal, as printed).
expect() {
  local code=$1
  shift
  "$KOLVARI" detect "$@" > "$work/out" || fail "kolvari detect failed on $*"
  [ "$(wc -l < "$work/out")" -eq $# ] || fail "not one line per file for $*"
  local wrong
  wrong=$(awk -v code="$code" '$1 != code' "$work/out")
  [ -z "$wrong" ] || fail "expected $code for: $wrong"
  checked=$((checked + $#))
}

# The Mozilla roots: PEM certificates, and as DER no content type at all.
roots=(/usr/share/ca-certificates/mozilla/*.crt)
[ ${#roots[@]} -gt 100 ] || fail "the Mozilla roots are missing"
expect 0x00000101 "${roots[@]}"
mkdir "$work/der"
for pem in "${roots[@]}"; do openssl x509 -in "$pem" -outform DER -out "$work/der/$(basename "$pem" .crt).der"; done
expect 0x00000001 "$work"/der/*.der

# The fixtures made by other projects' software.
expect 0x00000072 "$fixtures/cms-signed.der" "$fixtures/cms-signed-indefinite-length.der" \
  "$fixtures/pkcs7-signed.der" "$fixtures/smime-signature-generated-by-thunderbird.p7s"
expect 0x00000073 "$fixtures/cms-enveloped.der"
expect 0x00000076 "$fixtures/cms-encrypted.der"
expect 0x40000000 "$fixtures/mozilla-generated-by-openssl.pkcs7.der"
expect 0x00000001 "$fixtures/cms-digested.der" "$fixtures/tsp_response" "$fixtures/ocsp_response" \
  "$fixtures/test-der.crt" "$fixtures/example-attr-cert.der"
expect 0x00001001 "$fixtures/LICENSE" "$fixtures/pkcs7-signed.pem"
tail -n +2 "$fixtures/pkcs7-signed.pem" > "$work/pkcs7-body.b64"  # base64 without its PEM line
expect 0x00000072 "$work/pkcs7-body.b64"
for corpora in "$KOLVARI_TEST_DATA/../../../shared/corpora" /work/shared/corpora; do
  [ -d "$corpora" ] || continue
  expect 0x00000001 "$corpora/asn1crypto/eid2011.crl" "$corpora"/openssl-ocsp/*.ors
  openssl crl -inform DER -in "$corpora/asn1crypto/eid2011.crl" -out "$work/eid2011.pem"
  expect 0x00000102 "$work/eid2011.pem"
  break
done

# Made here by openssl. 300 bytes of content give every structure a long-form outer length.
head -c 300 "$fixtures/LICENSE" > "$work/content.txt"
cd "$work"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout key.pem -out cert.pem \
  -subj "/CN=Kolvari Detect" -days 30 -addext "extendedKeyUsage=critical,timeStamping" 2> /dev/null
openssl cms -data_create -in content.txt -outform DER -out data.p7
openssl cms -digest_create -in content.txt -outform DER -out digested.p7
openssl cms -sign -in content.txt -signer cert.pem -inkey key.pem -outform DER -out detached.p7
openssl cms -sign -in content.txt -signer cert.pem -inkey key.pem -nodetach -outform DER -out attached.p7
openssl cms -encrypt -in content.txt -recip cert.pem -outform DER -out enveloped.p7
openssl cms -EncryptedData_encrypt -in content.txt -aes128 -secretkey 000102030405060708090A0B0C0D0E0F \
  -outform DER -out encrypted.p7
openssl cms -sign -in content.txt -signer cert.pem -inkey key.pem -outform PEM -out detached.pem
expect 0x00000071 data.p7
expect 0x00000075 digested.p7
expect 0x40000000 detached.p7
expect 0x00000072 attached.p7
expect 0x00000073 enveloped.p7
expect 0x00000076 encrypted.p7
expect 0x00001001 detached.pem
printf 'short text' > small.txt
openssl cms -data_create -in small.txt -outform DER -out small.p7  # 30 1F ...: a short outer length
expect 0x00000001 small.p7

echo 01 > tsaserial
cat > tsa.cnf <<CONF
[tsa]
default_tsa = tsa_config
[tsa_config]
serial = $work/tsaserial
signer_cert = $work/cert.pem
signer_key = $work/key.pem
signer_digest = sha256
default_policy = 1.2.3.4.1
digests = sha256
ess_cert_id_alg = sha256
CONF
openssl ts -query -data content.txt -sha256 -cert -out query.tsq 2> /dev/null
openssl ts -reply -config tsa.cnf -queryfile query.tsq -token_out -out token.der > /dev/null 2>&1
openssl ts -reply -config tsa.cnf -queryfile query.tsq -out response.tsr > /dev/null 2>&1
expect 0x20000000 token.der
expect 0x00000001 response.tsr

touch index.txt
echo 01 > crlnumber
cat > ca.cnf <<CONF
[ca]
default_ca = ca_default
[ca_default]
database = $work/index.txt
crlnumber = $work/crlnumber
default_md = sha256
default_crl_days = 30
certificate = $work/cert.pem
private_key = $work/key.pem
CONF
openssl ca -config ca.cnf -gencrl -out crl.pem 2> /dev/null
expect 0x00000102 crl.pem

zip -q archive.zip content.txt cert.pem
expect 0x00001002 archive.zip
printf '%%!PS\n/Helvetica findfont 12 scalefont setfont 72 720 moveto (Kolvari) show showpage\n' > page.ps
ps2pdf page.ps page.pdf
gs -q -dBATCH -dNOPAUSE -dSAFER -sDEVICE=tiffg4 -r36 -sOutputFile=page.tif page.ps
expect 0x00001004 page.pdf
expect 0x00001003 page.tif

# JSON: an array of {"file","code","name"}, in the order of the arguments.
"$KOLVARI" detect --json token.der page.pdf > detect.json
python3 - detect.json <<'PY'
import json, sys
rows = json.load(open(sys.argv[1]))
assert rows == [{"file": "token.der", "code": 0x20000000, "name": "timestamp-token"},
                {"file": "page.pdf", "code": 4100, "name": "pdf"}], rows
PY

# An unreadable argument and a directory: one message each, the other files still reported, exit status 1.
status=0
"$KOLVARI" detect missing.der page.pdf "$work" > listed.txt 2> errors.txt || status=$?
[ "$status" -eq 1 ] || fail "exit status $status for unreadable arguments"
grep -q "missing.der" errors.txt && grep -q "$work" errors.txt || fail "unreadable arguments not named"
[ "$(wc -l < errors.txt)" -eq 2 ] || fail "not one message per unreadable argument"
grep -q "^0x00001004 .*page.pdf$" listed.txt || fail "the readable file was not reported"

echo "kolvari detect named $checked files as expected"
