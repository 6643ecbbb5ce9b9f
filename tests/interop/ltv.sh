#!/usr/bin/env bash
# Time-stamped and long-term signatures from `kolvari sign` against loopback services that this script starts
# (tests/interop/ltv_server.py: a time-stamp authority answering with `openssl ts -reply`, an OCSP responder
# answering with `openssl ocsp -index`, the CA's CRL), and always stops, on 127.0.0.1 at a port the system
# picks. The signatures made are held against OpenSSL (`openssl ts -verify` on the embedded token over the
# hash of the signature value, `openssl cms -verify`) and BouncyCastle (which also finds the signer's
# certificate first among the certificate values and the OCSP responses about it), and shown by
# `kolvari inspect`. Each failure case of the table gives one line on standard error and no output file.
set -euo pipefail

. "$(dirname "$0")/../support/interop.sh"
requires openssl javac java ${bc_classpath//:/ } python3:asn1crypto
. "$here/../support/loopback_services.sh"

# ---- the loopback services and the test PKI, in pki/ where the server reads it ----
start_loopback_pki "$work/pki" "LTV Test" <<'EOF'
[signer]
crlDistributionPoints = URI:$base/ca.crl
[crl_only]
keyUsage = critical,digitalSignature,nonRepudiation
authorityInfoAccess = OCSP;URI:$base/ocsp/down
crlDistributionPoints = URI:$base/ca.crl
[no_services]
keyUsage = critical,digitalSignature
EOF
issue_certificate good 1001 signer "/CN=Good Signer"
issue_certificate revoked 1002 signer "/CN=Revoked Signer"
issue_certificate fallback 1003 crl_only "/CN=Fallback Signer"
issue_certificate plain 1004 no_services "/CN=Plain Signer"
now=$(date -u +%y%m%d%H%M%SZ)
printf 'V\t491231235959Z\t\t1001\tunknown\t/CN=Good Signer\n' > index.txt
printf 'R\t491231235959Z\t%s\t1002\tunknown\t/CN=Revoked Signer\n' "$now" >> index.txt
printf 'V\t491231235959Z\t\t1003\tunknown\t/CN=Fallback Signer\n' >> index.txt
make_loopback_crl 1
write_tsa_config "sha256, sha384" "accuracy = secs:1
tsa_name = yes
ess_cert_id_chain = no"
# An OCSP response for the revoked signer, fetched by the openssl command, for the case of a response that
# does not cover the certificate being signed with.
openssl ocsp -issuer ca.pem -cert revoked.pem -url "$base/ocsp" -respout revoked.ocsp -noverify > /dev/null 2>&1 ||
  fail "openssl ocsp could not ask the responder"
cd "$work"
echo "a document to be kept verifiable" > doc.txt

sign() {  # OUT SIGNER ARGS...
  local out=$1 signer=$2
  shift 2
  "$KOLVARI" sign --key "pki/$signer.key" --cert "pki/$signer.pem" --chain pki/ca.pem \
    --out "$out" "$@" doc.txt
}

# ---- signatures that must be made, each checked by every reader ----
# NAME|SIGNER|ARGS|what BouncyCastle reads in the attributes
while IFS='|' read -r name signer args expected; do
  # shellcheck disable=SC2086  # ARGS are words
  sign "$name.p7s" "$signer" $args 2> err.txt || fail "$name: kolvari sign failed: $(cat err.txt)"
  openssl cms -verify -binary -inform DER -in "$name.p7s" -content doc.txt -CAfile pki/ca.pem -purpose any \
    -out /dev/null 2> err.txt || fail "$name: openssl cms -verify: $(cat err.txt)"
  # The signature value and its time-stamp token, cut out by asn1crypto for `openssl ts -verify`.
  /usr/bin/python3 - "$name.p7s" <<'PY' || fail "$name: asn1crypto"
import sys
from asn1crypto import cms
signer = cms.ContentInfo.load(open(sys.argv[1], "rb").read())["content"]["signer_infos"][0]
open(sys.argv[1] + ".sig", "wb").write(signer["signature"].native)
for a in signer["unsigned_attrs"] or []:
    if a["type"].dotted == "1.2.840.113549.1.9.16.2.14":
        open(sys.argv[1] + ".tsr", "wb").write(a["values"][0].dump())
PY
  if [ -f "$name.p7s.tsr" ]; then
    hash=$(openssl ts -reply -token_in -token_out -in "$name.p7s.tsr" -text | awk '/^Hash Algorithm:/ { print $3 }')
    digest=$(openssl dgst "-$hash" -r "$name.p7s.sig" | cut -d' ' -f1)
    openssl ts -verify -digest "$digest" -token_in -in "$name.p7s.tsr" -CAfile pki/ca.pem > err.txt 2>&1 ||
      fail "$name: openssl ts -verify: $(cat err.txt)"
  fi
  [ -d classes ] || { mkdir classes && javac -nowarn -d classes -cp "$bc_classpath" "$here/LtvParse.java"; }
  got=$(java -cp "classes:$bc_classpath" LtvParse "$name.p7s") || fail "$name: BouncyCastle"
  [ "$got" = "$expected" ] || fail "$name: BouncyCastle read '$got', expected '$expected'"
  "$KOLVARI" inspect "$name.p7s" > "$name.txt" || fail "$name: kolvari inspect (text)"
  "$KOLVARI" inspect --json "$name.p7s" > "$name.json" || fail "$name: kolvari inspect"
  /usr/bin/python3 - "$name.json" "$got" <<'PY' || fail "$name: kolvari inspect against BouncyCastle: $(cat "$name.json")"
import json, sys
signer = json.load(open(sys.argv[1]))["signerInfos"][0]
words = sys.argv[2].split()
counts = dict(w.split("=", 1) for w in words if "=" in w and ":" not in w)
tokens = signer["timeStampTokens"]
assert len(tokens) == int(counts["tokens"]), tokens
for t in tokens:
    assert t["imprintMatches"] is True and t["signed"] is False, t
    assert t["nonce"] is not None and t["policy"] == "1.2.3.4.1", t
values = signer["revocationValues"] or {"ocspResponses": [], "crls": []}
assert [r["certStatus"] for r in values["ocspResponses"]] == [w[5:] for w in words if w.startswith("ocsp:")]
assert len(values["crls"]) == int(counts["crls"]) and all(c["issuer"] == "CN=LTV Test CA" for c in values["crls"])
assert len(signer["certificateValues"] or []) == int(counts["certificates"])
PY
done <<EOF
tsa-and-fetched|good|--tsa $base/tsa --fetch-revocation|tokens=1 certificates=2 crls=0 ocsp=1 ocsp:good
tsa-sha384|good|--tsa $base/tsa --tsa-digest sha384|tokens=1 certificates=0 crls=0 ocsp=0
crl-fallback|fallback|--fetch-revocation|tokens=0 certificates=2 crls=1 crl:CN=LTV Test CA ocsp=0
allowed-revoked|revoked|--fetch-revocation --allow-revoked|tokens=0 certificates=2 crls=0 ocsp=1 ocsp:revoked
from-files|revoked|--ocsp-response pki/revoked.ocsp --revocation-crl pki/ca.crl.pem --allow-revoked|tokens=0 certificates=2 crls=1 crl:CN=LTV Test CA ocsp=1 ocsp:revoked
EOF

# ---- failure cases: exit status 1, one line naming the fault, no output file ----
# NAME|SIGNER|ARGS|the message
while IFS='|' read -r name signer args message; do
  # shellcheck disable=SC2086  # ARGS are words
  refused 1 "$message" out.p7s sign out.p7s "$signer" $args
done <<EOF
tsa-refused|good|--tsa $base/tsa --tsa-digest sha512|kolvari sign: the time-stamp authority refused the request (status 2
tsa-http-error|good|--tsa $base/tsa/http500|kolvari sign: time-stamp authority: $base/tsa/http500 answered with HTTP status 500
tsa-timeout|good|--tsa $base/tsa/slow --tsa-timeout 1|kolvari sign: time-stamp authority: no answer from $base/tsa/slow within 1 s
tsa-wrong-nonce|good|--tsa $base/tsa/wrong-nonce|kolvari sign: the time-stamp token's nonce is not the one sent
tsa-wrong-imprint|good|--tsa $base/tsa/wrong-imprint|kolvari sign: the time-stamp token's message imprint is not the hash of the signature value
tsa-no-certificate|good|--tsa $base/tsa/no-certificate|kolvari sign: the time-stamp token carries no certificate although the request asked for one
tsa-not-found|good|--tsa $base/nothing|answered with HTTP status 404
revoked-by-ocsp|revoked|--fetch-revocation|kolvari sign: the OCSP response from $base/ocsp says the signer certificate is revoked
revoked-by-crl|revoked|--revocation-crl pki/ca.crl.pem|kolvari sign: the CRL pki/ca.crl.pem says the signer certificate is revoked
ocsp-for-another|good|--ocsp-response pki/revoked.ocsp|kolvari sign: the OCSP response pki/revoked.ocsp does not cover the signer certificate
no-services|plain|--fetch-revocation|kolvari sign: the signer certificate names no OCSP responder and no CRL distribution point
EOF
echo "ltv: $(find . -maxdepth 1 -name '*.p7s' | wc -l) signatures checked by OpenSSL and BouncyCastle; failure cases passed"
