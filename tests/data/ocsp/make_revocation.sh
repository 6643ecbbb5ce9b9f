#!/usr/bin/env bash
# Revocation data made by the openssl command alone: a CA, an OCSP responder, responses for a good, a
# revoked and an unknown certificate, and a CRL. Usage: make_revocation.sh DIR
set -euo pipefail
dir=${1:?output folder}
mkdir -p "$dir"
cd "$dir"

key() { openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$1" 2>/dev/null; }
key ca.key
openssl req -x509 -new -key ca.key -subj "/C=DE/O=Kolvari Test/CN=Kolvari Revocation CA" -days 3650 \
  -out ca.pem 2>/dev/null
issue() {  # name serial subject [extensions]
  key "$1.key"
  openssl req -new -key "$1.key" -subj "$3" -out "$1.csr" 2>/dev/null
  if [ -n "${4:-}" ]; then
    printf '%s\n' "$4" > "$1.ext"
    openssl x509 -req -in "$1.csr" -CA ca.pem -CAkey ca.key -set_serial "$2" -days 3650 -extfile "$1.ext" \
      -out "$1.pem" 2>/dev/null
  else
    openssl x509 -req -in "$1.csr" -CA ca.pem -CAkey ca.key -set_serial "$2" -days 3650 -out "$1.pem" 2>/dev/null
  fi
}
issue responder 0x0F00 "/CN=Kolvari OCSP Responder" "extendedKeyUsage=OCSPSigning"
issue good 0x1001 "/CN=Kolvari Good"
issue revoked 0x1002 "/CN=Kolvari Revoked"
issue unknown 0x1003 "/CN=Kolvari Unknown"

# The CA database: good valid, revoked since 2024-01-01 12:00:00 for key compromise; 0x1003 is not listed.
printf 'V\t351231235959Z\t\t1001\tunknown\t/CN=Kolvari Good\n' > index.txt
printf 'R\t351231235959Z\t240101120000Z,keyCompromise\t1002\tunknown\t/CN=Kolvari Revoked\n' >> index.txt

for name in good revoked unknown; do
  openssl ocsp -issuer ca.pem -cert "$name.pem" -no_nonce -reqout "$name.req" 2>/dev/null
  openssl ocsp -index index.txt -rsigner responder.pem -rkey responder.key -CA ca.pem -reqin "$name.req" \
    -respout "$name.ocsp" -ndays 7 2>/dev/null
done

cat > ca.cnf <<CNF
[ca]
default_ca = test_ca
[test_ca]
database = index.txt
crlnumber = crlnumber
default_md = sha256
default_crl_days = 30
crl_extensions = crl_ext
[crl_ext]
authorityKeyIdentifier = keyid:always
CNF
echo 01 > crlnumber
openssl ca -gencrl -config ca.cnf -keyfile ca.key -cert ca.pem -out crl.pem 2>/dev/null
openssl crl -in crl.pem -outform DER -out crl.der
openssl x509 -in responder.pem -outform DER -out responder.der
