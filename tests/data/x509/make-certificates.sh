#!/bin/bash
# Regenerates the openssl-made files of this folder. Keys are made afresh on every run, so the signatures,
# key identifiers and validity dates change; the tests only rely on what the configuration fixes (names,
# serial numbers, extensions other than the key identifiers). Run from this folder; needs the openssl command.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Structures written directly from their description (see the comment at the top of each .cnf).
for conf in unique-ids unique-ids-primitive trailing-in-tbs ac-v1-base-id ac-v1-entity-name; do
  openssl asn1parse -genconf "$conf.cnf" -out "$conf.der" > /dev/null
done
openssl asn1parse -genconf qc-statements-value.cnf -out "$work/qc.der" > /dev/null
qc_hex=$(xxd -p "$work/qc.der" | tr -d '\n')

# A version-1 self-signed certificate: x509 -req without extensions writes no version field.
openssl req -new -newkey rsa:1024 -nodes -keyout "$work/v1.key" -subj "/CN=Kolvari v1 Test/O=Kolvari" \
  -out "$work/v1.csr" 2> /dev/null
openssl x509 -req -in "$work/v1.csr" -signkey "$work/v1.key" -days 3650 -set_serial 4660 \
  -outform DER -out v1-self-signed.der 2> /dev/null

# A CA whose names are PrintableStrings (string_mask default), and an end-entity certificate it issues with
# a subjectAltName of every form, policies with a CPS qualifier, QC statements and a generation date.
cat > "$work/req.cnf" <<CONF
[req]
distinguished_name = dn
string_mask = default
prompt = no
[dn]
C = DE
O = Kolvari Test
CN = Kolvari  Test  CA
[ca_ext]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[ee_ext]
basicConstraints = CA:FALSE
keyUsage = critical, digitalSignature, nonRepudiation
extendedKeyUsage = emailProtection, clientAuth
subjectAltName = @alt
certificatePolicies = @policy
authorityKeyIdentifier = keyid
1.3.6.1.5.5.7.1.3 = DER:$qc_hex
1.3.36.8.3.1 = DER:180F32303234303130313132303030305A
[alt]
email.1 = signer@Example.org
DNS.1 = signer.example.org
URI.1 = https://signer.example.org/
IP.1 = 192.0.2.1
dirName.1 = alt_dir
otherName.1 = 1.3.6.1.4.1.311.20.2.3;UTF8:signer@example.org
RID.1 = 1.2.3.4
[alt_dir]
CN = Signer Directory Name
[policy]
policyIdentifier = 1.3.36.8.1.1
CPS.1 = https://cps.example.org/
CONF
openssl req -x509 -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/ca.key" \
  -config "$work/req.cnf" -extensions ca_ext -days 3650 -set_serial 1 -out "$work/ca.pem" 2> /dev/null
openssl x509 -in "$work/ca.pem" -outform DER -out ca-printable.der
openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/ee.key" \
  -subj "/C=DE/O=Kolvari Test/CN=Kolvari Signer" -out "$work/ee.csr" 2> /dev/null
openssl x509 -req -in "$work/ee.csr" -CA "$work/ca.pem" -CAkey "$work/ca.key" -set_serial 0x00AB12CD34EF5678 \
  -days 3650 -extfile "$work/req.cnf" -extensions ee_ext -outform DER -out ee-qc.der 2> /dev/null
