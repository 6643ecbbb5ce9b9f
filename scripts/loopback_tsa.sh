#!/usr/bin/env bash
# A time-stamp authority and an OCSP responder on 127.0.0.1, for trying `kolvari sign --tsa` and
# `--fetch-revocation` without any network: a throw-away CA, a TSA certificate, an OCSP responder certificate
# and a signer certificate whose Authority Information Access and CRL distribution point name the loopback
# services. The services are the test suite's own (tests/interop/ltv_server.py: `openssl ts -reply` and
# `openssl ocsp -index` behind one HTTP server).
#
# Usage: bash scripts/loopback_tsa.sh [DIR]
#   DIR   where the CA, the signer's key and certificate and the services' files are kept (default: a
#         temporary folder, removed on exit)
# Prints the URLs and a ready-to-run `kolvari sign` command, then serves until interrupted (Ctrl-C) or, with
# KOLVARI_LOOPBACK_SECONDS set, for that many seconds.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
server_script="$root/tests/interop/ltv_server.py"

for tool in openssl /usr/bin/python3; do
  command -v "$tool" > /dev/null || { echo "loopback_tsa: $tool is missing (scripts/deps.sh installs it)" >&2; exit 1; }
done
/usr/bin/python3 -c 'import asn1crypto' 2> /dev/null ||
  { echo "loopback_tsa: python3-asn1crypto is missing (scripts/deps.sh installs it)" >&2; exit 1; }

if [ $# -ge 1 ]; then
  dir=$(mkdir -p "$1" && cd "$1" && pwd)
  keep=1
else
  dir=$(mktemp -d)
  keep=0
fi
server=
stop() {
  if [ -n "$server" ]; then
    kill "$server" 2> /dev/null || true
    wait "$server" 2> /dev/null || true
  fi
  [ "$keep" -eq 1 ] || rm -rf "$dir"
}
trap stop EXIT
trap 'exit 0' INT TERM

rm -f "$dir/port"
/usr/bin/python3 "$server_script" "$dir" "$dir/port" &
server=$!
for _ in $(seq 100); do
  [ -s "$dir/port" ] && break
  kill -0 "$server" 2> /dev/null || { echo "loopback_tsa: the server did not start" >&2; exit 1; }
  sleep 0.1
done
[ -s "$dir/port" ] || { echo "loopback_tsa: the server did not report its port" >&2; exit 1; }
base=http://127.0.0.1:$(cat "$dir/port")

cd "$dir"
cat > x509.cnf <<EOF
[req]
distinguished_name = dn
[dn]
[ca]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
[signer]
keyUsage = critical,digitalSignature,nonRepudiation
authorityInfoAccess = OCSP;URI:$base/ocsp
crlDistributionPoints = URI:$base/ca.crl
[tsa]
keyUsage = critical,digitalSignature
extendedKeyUsage = critical,timeStamping
[ocsp]
keyUsage = critical,digitalSignature
extendedKeyUsage = critical,OCSPSigning
EOF
key() { openssl ecparam -name prime256v1 -genkey -noout -out "$1.key"; }
issue() {  # NAME SERIAL SECTION SUBJECT
  key "$1"
  openssl req -new -key "$1.key" -subj "$4" -config x509.cnf |
    openssl x509 -req -CA ca.pem -CAkey ca.key -set_serial "0x$2" -days 30 -extfile x509.cnf -extensions "$3" \
      -out "$1.pem" 2> /dev/null
}
key ca
openssl req -x509 -new -key ca.key -subj "/CN=Loopback Test CA" -days 30 -config x509.cnf -extensions ca -out ca.pem
issue signer 1001 signer "/CN=Loopback Signer"
issue tsa 2001 tsa "/CN=Loopback TSA"
issue ocsp 2002 ocsp "/CN=Loopback OCSP Responder"
printf 'V\t491231235959Z\t\t1001\tunknown\t/CN=Loopback Signer\n' > index.txt
echo 01 > crlnumber
cat > ca.cnf <<'EOF'
[ca]
default_ca = test
[test]
database = index.txt
crlnumber = crlnumber
default_md = sha256
default_crl_days = 30
certificate = ca.pem
private_key = ca.key
EOF
openssl ca -gencrl -config ca.cnf -out ca.crl.pem 2> /dev/null
openssl crl -in ca.crl.pem -outform DER -out ca.crl
echo 01 > tsaserial
cat > ts.cnf <<'EOF'
[tsa]
default_tsa = tsa_config
[tsa_config]
serial = ./tsaserial
crypto_device = builtin
signer_cert = ./tsa.pem
certs = ./ca.pem
signer_key = ./tsa.key
signer_digest = sha256
default_policy = 1.2.3.4.1
digests = sha256, sha384, sha512
accuracy = secs:1
ordering = no
tsa_name = yes
ess_cert_id_chain = no
ess_cert_id_alg = sha256
EOF

cat <<EOF
time-stamp authority: $base/tsa
OCSP responder:       $base/ocsp
CRL:                  $base/ca.crl
files:                $dir (ca.pem, signer.key, signer.pem, tsa.pem)

try:
  kolvari sign --key $dir/signer.key --cert $dir/signer.pem --chain $dir/ca.pem \\
      --tsa $base/tsa --fetch-revocation --out doc.p7s doc.txt
  kolvari inspect doc.p7s
EOF
echo "ready"

if [ -n "${KOLVARI_LOOPBACK_SECONDS:-}" ]; then
  sleep "$KOLVARI_LOOPBACK_SECONDS" &
  wait $! || true
else
  wait "$server" || true
fi
