#!/usr/bin/env bash
# The demo: builds the plug-in and the kolvari tool, makes a small test PKI with openssl (root CA,
# intermediate CA, signer), signs a document with `kolvari sign` as a host would, shows the signature with
# `kolvari inspect`, and has every verifier on the machine check it: `openssl cms -verify` always, GnuTLS
# `certtool --p7-verify`, NSS `cmsutil` and python3 asn1crypto (with cryptography) when installed. Ends with
# a summary and the report of `kolvari verify`. The files stay in build/demo. Exit status 1 when the signing
# fails, OpenSSL rejects it or `kolvari verify` does not find it valid.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)

"$root/scripts/deps.sh"

cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$root/build" -j "$jobs" --target kolvari kolvari-pkcs7 >/dev/null
kolvari="$root/build/bin/kolvari"

demo="$root/build/demo"
rm -rf "$demo"
mkdir -p "$demo"
cd "$demo"
section() { printf '\n== %s\n' "$*"; }

section "the plug-in"
"$kolvari" info

section "a test PKI (openssl): root CA, intermediate CA, signer"
days=30
openssl req -x509 -newkey rsa:3072 -nodes -keyout root.key -out root.pem -days "$days" \
  -subj "/C=DE/O=Kolvari Demo/CN=Kolvari Demo Root CA" \
  -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign,cRLSign 2>/dev/null
cat > intermediate.ext <<'EXT'
basicConstraints=critical,CA:TRUE,pathlen:0
keyUsage=critical,keyCertSign,cRLSign
subjectKeyIdentifier=hash
authorityKeyIdentifier=keyid
EXT
cat > signer.ext <<'EXT'
basicConstraints=critical,CA:FALSE
keyUsage=critical,digitalSignature,nonRepudiation
extendedKeyUsage=emailProtection
subjectKeyIdentifier=hash
authorityKeyIdentifier=keyid
EXT
openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-384 -nodes -keyout intermediate.key \
  -out intermediate.csr -subj "/C=DE/O=Kolvari Demo/CN=Kolvari Demo Intermediate CA" 2>/dev/null
openssl x509 -req -in intermediate.csr -CA root.pem -CAkey root.key -set_serial 0x1001 -days "$days" \
  -extfile intermediate.ext -out intermediate.pem 2>/dev/null
openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout signer.key -out signer.csr \
  -subj "/C=DE/O=Kolvari Demo/CN=Demo Signer" 2>/dev/null
openssl x509 -req -in signer.csr -CA intermediate.pem -CAkey intermediate.key -set_serial 0x4660 -days "$days" \
  -extfile signer.ext -out signer.pem 2>/dev/null
for c in root intermediate signer; do
  printf '%-13s %s\n' "$c:" "$(openssl x509 -in $c.pem -noout -subject -nameopt oneline | sed 's/^subject=//')"
done

section "signing document.txt with kolvari sign (detached, SHA-256, ECDSA)"
cat > document.txt <<'DOC'
Kolvari PKCS7 Signature Encoder: demo document.
The library built the signed attributes, the SignerInfo and the SignedData;
OpenSSL, playing the host, hashed this text and signed.
DOC
"$kolvari" sign --key signer.key --cert signer.pem --chain intermediate.pem --out document.p7s document.txt
echo "document.p7s: $(stat -c %s document.p7s) bytes"

section "kolvari inspect document.p7s"
"$kolvari" inspect document.p7s

section "verification"
names=()
results=()
record() {  # name, result
  names+=("$1")
  results+=("$2")
  printf '%-22s %s\n' "$1:" "$2"
}
# Runs a verifier; its output goes to a log named after it, the first line of which is shown on rejection.
check() {  # name, log, command...
  local name=$1 log=$2
  shift 2
  if "$@" >"$log" 2>&1; then
    record "$name" accepted
  else
    local why
    why=$(grep -m1 -iE 'fail|error|invalid|bad|mismatch' "$log" || grep -m1 -v '^[[:space:]]*$' "$log" || true)
    record "$name" "rejected: $(echo "$why" | sed 's/^[[:space:]]*//' | cut -c1-100)"
  fi
}

check "openssl cms -verify" openssl.log \
  openssl cms -verify -binary -inform DER -in document.p7s -content document.txt -CAfile root.pem -out /dev/null
check "kolvari verify" kolvari-verify.log \
  "$kolvari" verify --trust root.pem --content document.txt document.p7s

if command -v certtool >/dev/null; then
  check "GnuTLS certtool" certtool.log certtool --p7-verify --inder --infile document.p7s \
    --load-data document.txt --load-ca-certificate root.pem
else
  record "GnuTLS certtool" "not installed (gnutls-bin)"
fi

if command -v cmsutil >/dev/null && command -v certutil >/dev/null; then
  # A throw-away certificate database that trusts the root for e-mail signing.
  mkdir nssdb
  certutil -N -d sql:nssdb --empty-password
  certutil -A -d sql:nssdb -n "demo root" -t ",C," -i root.pem
  check "NSS cmsutil" cmsutil.log cmsutil -D -n -d sql:nssdb -i document.p7s -c document.txt -u 4
else
  record "NSS cmsutil" "not installed (libnss3-tools)"
fi

# python3 asn1crypto parses the message; cryptography checks the message digest and the signature.
python=
for candidate in python3 /usr/bin/python3; do
  if "$candidate" -c 'import asn1crypto, cryptography' 2>/dev/null; then
    python=$candidate
    break
  fi
done
if [ -n "$python" ]; then
  check "python3 asn1crypto" asn1crypto.log "$python" - document.p7s document.txt <<'PY'
import hashlib, sys
from asn1crypto import cms
from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric import ec, padding
from cryptography.x509 import load_der_x509_certificate

info = cms.ContentInfo.load(open(sys.argv[1], 'rb').read())
signed = info['content']
content = open(sys.argv[2], 'rb').read()
signer = signed['signer_infos'][0]
digest_name = signer['digest_algorithm']['algorithm'].native
attributes = {a['type'].native: a['values'][0] for a in signer['signed_attrs']}
if attributes['message_digest'].native != hashlib.new(digest_name, content).digest():
    sys.exit('the message digest does not match the document')
sid = signer['sid'].chosen
certificate = next(c.chosen for c in signed['certificates']
                   if c.chosen.issuer == sid['issuer'] and c.chosen.serial_number == sid['serial_number'].native)
key = load_der_x509_certificate(certificate.dump()).public_key()
# The signature covers the signed attributes with the SET OF tag in place of [0], as they stand.
dtbs = b'\x31' + signer['signed_attrs'].dump()[1:]
hash_algorithm = {'sha256': hashes.SHA256(), 'sha384': hashes.SHA384(), 'sha512': hashes.SHA512()}[digest_name]
signature = signer['signature'].native
if isinstance(key, ec.EllipticCurvePublicKey):
    key.verify(signature, dtbs, ec.ECDSA(hash_algorithm))
else:
    key.verify(signature, dtbs, padding.PKCS1v15(), hash_algorithm)
print('message digest and signature verified for', certificate.subject.human_friendly)
PY
else
  record "python3 asn1crypto" "not installed (python3-asn1crypto, python3-cryptography)"
fi

section "summary"
accepted=()
for i in "${!names[@]}"; do
  [ "${results[$i]}" = accepted ] && accepted+=("${names[$i]}")
done
# The signing time as the signed attribute holds it (GeneralizedTime: tag 18, length, the digits).
time_hex=$("$kolvari" inspect document.p7s | awk '/name: signingTime/ {found = 1} found && /\[1\] 18/ {print $2; exit}')
signing_time=$(printf "$(echo "$time_hex" | sed 's/^18..//; s/../\\x&/g')")
printf 'signed:     %s (%s bytes, SHA-256 %s)\n' "$demo/document.txt" "$(stat -c %s document.txt)" \
  "$(sha256sum document.txt | cut -c1-16)..."
printf 'signature:  %s (%s bytes, detached CMS SignedData in DER)\n' "$demo/document.p7s" "$(stat -c %s document.p7s)"
printf 'signed by:  %s (EC P-256, ECDSA with SHA-256) at %s\n' \
  "$(openssl x509 -in signer.pem -noout -subject -nameopt RFC2253 | sed 's/^subject=//')" "$signing_time"
printf 'chain:      Demo Signer <- Kolvari Demo Intermediate CA <- Kolvari Demo Root CA\n'
printf 'accepted by %d of %d verifiers: %s\n' "${#accepted[@]}" "${#names[@]}" "$(IFS=,; echo "${accepted[*]}" | sed 's/,/, /g')"
if [ "${#accepted[@]}" -lt "${#names[@]}" ]; then
  echo "note:       the signed attributes are in DER SET OF order, as every verifier here expects; the log of"
  echo "            each verifier that rejected the signature is in $demo."
fi
[ "${results[0]}" = accepted ] || { echo "OpenSSL rejected the signature" >&2; exit 1; }

section "kolvari verify --trust root.pem --content document.txt document.p7s"
"$kolvari" verify --trust root.pem --content document.txt document.p7s
