#!/usr/bin/env bash
# Builds the plug-in and the kolvari tool, then runs a whole signing session as a host would: a test CA and
# signer are made with openssl, a file is signed through the plug-in, and OpenSSL verifies the signature.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)

"$root/scripts/deps.sh"

cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$root/build" -j "$jobs" --target kolvari kolvari-pkcs7
kolvari="$root/build/bin/kolvari"

demo=$(mktemp -d)
trap 'rm -rf "$demo"' EXIT
cd "$demo"

echo "== the plug-in"
"$kolvari" info

echo "== a test CA and an EC signer (openssl)"
openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -days 30 -subj "/CN=Kolvari Demo CA" 2>/dev/null
openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout signer.key -out signer.csr \
  -subj "/C=DE/O=Kolvari Demo/CN=Demo Signer" 2>/dev/null
openssl x509 -req -in signer.csr -CA ca.pem -CAkey ca.key -set_serial 4660 -days 30 -out signer.pem 2>/dev/null
openssl x509 -in signer.pem -noout -subject -issuer -serial

echo "== signing a document (detached, SHA-256)"
printf 'This document was signed through the Kolvari PKCS7 Signature Encoder.\n' > document.txt
"$kolvari" sign --key signer.key --cert signer.pem --chain ca.pem --out document.p7s document.txt
echo "document.p7s: $(stat -c %s document.p7s) bytes"
"$kolvari" der document.p7s

echo "== verification by OpenSSL"
openssl cms -verify -binary -inform DER -in document.p7s -content document.txt -CAfile ca.pem -out /dev/null
