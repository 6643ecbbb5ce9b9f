#!/usr/bin/env bash
# Time-stamped and long-term signatures from `kolvari sign` against loopback services that this script starts
# (tests/interop/ltv_server.py: a time-stamp authority answering with `openssl ts -reply`, an OCSP responder
# answering with `openssl ocsp -index`, the CA's CRL), and always stops, on 127.0.0.1 at a port the system
# picks. The signatures made are held against OpenSSL (`openssl ts -verify` on the embedded token over the
# hash of the signature value, `openssl cms -verify`), python3 asn1crypto and BouncyCastle, and shown by
# `kolvari inspect`. Each failure case of the table gives one line on standard error and no output file.
set -euo pipefail

bc_classpath=/usr/share/java/bcprov.jar:/usr/share/java/bcpkix.jar:/usr/share/java/bcutil.jar
missing=()
for tool in openssl javac java /usr/bin/python3; do command -v "$tool" > /dev/null || missing+=("$tool"); done
for jar in ${bc_classpath//:/ }; do [ -f "$jar" ] || missing+=("$jar"); done
/usr/bin/python3 -c 'import asn1crypto' 2> /dev/null || missing+=(python3-asn1crypto)
if [ ${#missing[@]} -ne 0 ]; then
  echo "ltv skipped, missing: ${missing[*]} (scripts/deps.sh installs them)"
  exit 77
fi

. "$(dirname "$0")/../support/interop.sh"
. "$here/../support/loopback_services.sh"

# ---- the loopback services and the test PKI, in pki/ where the server reads it ----
start_loopback_pki "$work/pki" "LTV Test" <<'EOF'
[signer]
keyUsage = critical,digitalSignature,nonRepudiation
authorityInfoAccess = OCSP;URI:$base/ocsp
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
  # asn1crypto: the token and the signature value it covers, and the attributes read by their ASN.1 types.
  /usr/bin/python3 - "$name.p7s" "$signer" <<'PY' > "$name.asn1crypto" || fail "$name: asn1crypto"
import sys
from asn1crypto import cms, core, crl, ocsp, tsp, x509  # tsp: the TSTInfo content type

class Crls(core.SequenceOf):
    _child_spec = crl.CertificateList

class Responses(core.SequenceOf):
    _child_spec = ocsp.BasicOCSPResponse

class RevocationValues(core.Sequence):
    _fields = [("crl_vals", Crls, {"explicit": 0, "optional": True}),
               ("ocsp_vals", Responses, {"explicit": 1, "optional": True}),
               ("other_rev_vals", core.Any, {"explicit": 2, "optional": True})]

class Certificates(core.SequenceOf):
    _child_spec = x509.Certificate

signed = cms.ContentInfo.load(open(sys.argv[1], "rb").read())["content"]
signer = signed["signer_infos"][0]
serial = signed["certificates"][0].chosen.serial_number
attributes = {a["type"].dotted: a["values"] for a in signer["unsigned_attrs"]}
open(sys.argv[1] + ".sig", "wb").write(signer["signature"].native)
token = attributes.get("1.2.840.113549.1.9.16.2.14")
if token is not None:
    assert len(token) == 1
    open(sys.argv[1] + ".tsr", "wb").write(token[0].dump())
    info = cms.ContentInfo.load(token[0].dump())["content"]["encap_content_info"]["content"].parsed
    print("token", info["policy"].dotted, info["message_imprint"]["hash_algorithm"]["algorithm"].native)
if "1.2.840.113549.1.9.16.2.23" not in attributes:
    sys.exit(0)
certificates = Certificates.load(attributes["1.2.840.113549.1.9.16.2.23"][0].dump())
assert certificates[0].serial_number == serial, "the signer certificate comes first"
print("certificates", len(certificates), [c.subject.human_friendly for c in certificates])
values = RevocationValues.load(attributes["1.2.840.113549.1.9.16.2.24"][0].dump())
for c in values["crl_vals"] or []:
    print("crl", c["tbs_cert_list"]["issuer"].human_friendly, len(c["tbs_cert_list"]["revoked_certificates"] or []))
for r in values["ocsp_vals"] or []:
    single = r["tbs_response_data"]["responses"][0]
    assert single["cert_id"]["serial_number"].native == serial, "the OCSP response speaks of the signer"
    print("ocsp", single["cert_status"].name)
PY
  if [ -f "$name.p7s.tsr" ]; then
    hash=$(awk '$1 == "token" { print $3 }' "$name.asn1crypto")
    digest=$(openssl dgst "-$hash" -r "$name.p7s.sig" | cut -d' ' -f1)
    openssl ts -verify -digest "$digest" -token_in -in "$name.p7s.tsr" -CAfile pki/ca.pem > err.txt 2>&1 ||
      fail "$name: openssl ts -verify: $(cat err.txt)"
  fi
  [ -d classes ] || { mkdir classes && javac -nowarn -d classes -cp "$bc_classpath" "$here/LtvParse.java"; }
  got=$(java -cp "classes:$bc_classpath" LtvParse "$name.p7s") || fail "$name: BouncyCastle"
  [ "$got" = "$expected" ] || fail "$name: BouncyCastle read '$got', expected '$expected'"
  "$KOLVARI" inspect --json "$name.p7s" > "$name.json" || fail "$name: kolvari inspect"
  "$KOLVARI" inspect "$name.p7s" > "$name.txt" || fail "$name: kolvari inspect (text)"
  /usr/bin/python3 - "$name.json" "$name.asn1crypto" <<'PY' || fail "$name: kolvari inspect against asn1crypto"
import json, sys
signer = json.load(open(sys.argv[1]))["signerInfos"][0]
lines = open(sys.argv[2]).read().splitlines()
tokens = signer["timeStampTokens"]
assert len(tokens) == sum(l.startswith("token ") for l in lines)
for t in tokens:
    assert t["imprintMatches"] is True and t["signed"] is False, t
    assert t["nonce"] is not None and t["policy"] == "1.2.3.4.1", t
values = signer["revocationValues"] or {"ocspResponses": [], "crls": []}
assert [r["certStatus"] for r in values["ocspResponses"]] == [l.split()[1] for l in lines if l.startswith("ocsp ")]
assert len(values["crls"]) == sum(l.startswith("crl ") for l in lines)
for c in values["crls"]:
    assert c["issuer"] == "CN=LTV Test CA", c
assert [str(len(signer["certificateValues"]))] == [l.split()[1] for l in lines if l.startswith("certificates ")] or \
    (not signer["certificateValues"] and not any(l.startswith("certificates ") for l in lines))
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
  rm -f out.p7s
  status=0
  # shellcheck disable=SC2086  # ARGS are words
  sign out.p7s "$signer" $args 2> err.txt || status=$?
  [ "$status" -eq 1 ] || fail "$name: exit status $status, expected 1"
  [ ! -e out.p7s ] || fail "$name: an output file was written"
  [ "$(wc -l < err.txt)" -eq 1 ] || fail "$name: expected one line, got: $(cat err.txt)"
  grep -qF -- "$message" err.txt || fail "$name: expected '$message', got: $(cat err.txt)"
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
# A PDF with a time-stamped signature (PAdES B-T): poppler finds it valid, and the token covers its value.
if command -v pdfsig > /dev/null; then
  /usr/bin/python3 "$here/minimal_pdf.py" doc.pdf
  "$KOLVARI" sign-pdf --key pki/good.key --cert pki/good.pem --chain pki/ca.pem \
    --tsa "$base/tsa" doc.pdf signed.pdf 2> err.txt || fail "sign-pdf --tsa: $(cat err.txt)"
  pdfsig -nocert signed.pdf > sig.txt 2>&1 && grep -q 'Signature is Valid' sig.txt || fail "sign-pdf --tsa: $(cat sig.txt)"
  "$KOLVARI" inspect --json signed.pdf > pdf.json || fail "sign-pdf --tsa: kolvari inspect"
  /usr/bin/python3 -c 'import json, sys
tokens = json.load(open(sys.argv[1]))["signatures"][0]["cms"]["signerInfos"][0]["timeStampTokens"]
assert len(tokens) == 1 and tokens[0]["imprintMatches"] is True, tokens' pdf.json || fail "sign-pdf --tsa: $(cat pdf.json)"
fi

echo "ltv: $(find . -maxdepth 1 -name '*.p7s' | wc -l) signatures checked by OpenSSL, asn1crypto and BouncyCastle; failure cases passed"
