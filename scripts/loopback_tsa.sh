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
fail() { echo "loopback_tsa: $*" >&2; exit 1; }
. "$root/tests/support/loopback_services.sh"
stop() {
  stop_loopback_services
  [ "$keep" -eq 1 ] || rm -rf "$dir"
}
trap stop EXIT
trap 'exit 0' INT TERM

start_loopback_pki "$dir" "Loopback" <<'EOF'
[signer]
crlDistributionPoints = URI:$base/ca.crl
EOF
issue_certificate signer 1001 signer "/CN=Loopback Signer"
printf 'V\t491231235959Z\t\t1001\tunknown\t/CN=Loopback Signer\n' > index.txt
make_loopback_crl 30
write_tsa_config "sha256, sha384, sha512" "accuracy = secs:1
tsa_name = yes
ess_cert_id_chain = no"

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
