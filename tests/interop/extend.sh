#!/usr/bin/env bash
# `kolvari extend` on signatures that OpenSSL made (detached RSA, attached EC in BER), at levels T, LT
# and LTA, against the loopback time-stamp authority and OCSP responder (tests/support/loopback_services.sh).
# Each result still verifies with `openssl cms -verify` and with `kolvari verify`; asn1crypto finds the signed
# attributes and the signature bytes unchanged, decodes the new attributes, and computes the archive
# time-stamp's imprint from the decoded fields on its own. A batch on two threads is checked, and the command
# lines it refuses. A time-stamp authority that is down gives one line and no output.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
requires openssl python3:asn1crypto
. "$here/../support/loopback_services.sh"
start_loopback_pki "$work/pki" "Extend Test" <<'EOF'
[tsa]
authorityInfoAccess = OCSP;URI:$base/ocsp
EOF
issue_certificate rsa 1001 signer "/CN=RSA Signer" -algorithm RSA -pkeyopt rsa_keygen_bits:2048
issue_certificate ec 1002 signer "/CN=EC Signer"
for entry in "1001 RSA Signer" "1002 EC Signer" "2001 Extend Test TSA"; do
  printf 'V\t491231235959Z\t\t%s\tunknown\t/CN=%s\n' "${entry%% *}" "${entry#* }"
done > index.txt
make_loopback_crl 1
write_tsa_config "sha256, sha384"
cd "$work"
echo "a document signed long ago, kept verifiable" > doc.txt

# NAME|SIGNER|openssl cms -sign arguments
while IFS='|' read -r name signer args; do
  # shellcheck disable=SC2086  # ARGS are words
  openssl cms -sign -binary -md sha256 -in doc.txt -signer "pki/$signer.pem" -inkey "pki/$signer.key" \
    -outform DER -out "$name.p7s" $args || fail "$name: openssl cms -sign"
  for level in T LT LTA; do
    out=$name-$level.p7s
    content=()
    [ "$name" = attached ] || content=(--content doc.txt)
    "$KOLVARI" extend --level "$level" --tsa "$base/tsa" "${content[@]}" "$name.p7s" --out "$out" 2> err.txt ||
      fail "$out: kolvari extend: $(cat err.txt)"
    openssl cms -verify -binary -inform DER -in "$out" "${content[@]/--content/-content}" -CAfile pki/ca.pem \
      -purpose any -out /dev/null 2> err.txt || fail "$out: openssl cms -verify: $(cat err.txt)"
    "$KOLVARI" verify --trust pki/ca.pem "${content[@]}" "$out" > verify.txt || fail "$out: $(cat verify.txt)"
    grep -q TOTAL_PASSED verify.txt || fail "$out: kolvari verify: $(cat verify.txt)"
    [ "$level" != LTA ] || grep -q 'archive time-stamp.*passed\|passed.*archive time-stamp' verify.txt ||
      fail "$out: no archive time-stamp check: $(cat verify.txt)"
    /usr/bin/python3 - "$name.p7s" "$out" "$level" doc.txt <<'PY' || fail "$out: asn1crypto"
import hashlib, sys
from asn1crypto import cms, core, crl, ocsp, tsp, x509  # tsp: the TSTInfo content type

TOKEN, CERT_VALUES, REVOCATION_VALUES = "1.2.840.113549.1.9.16.2.14", "1.2.840.113549.1.9.16.2.23", "1.2.840.113549.1.9.16.2.24"
ARCHIVE, HASH_INDEX = "0.4.0.1733.2.4", "0.4.0.19122.1.5"

class Hashes(core.SequenceOf):
    _child_spec = core.OctetString

class HashIndex(core.Sequence):  # hashIndAlgorithm DEFAULT sha256 is left out for sha256
    _fields = [("certificates", Hashes), ("crls", Hashes), ("unsigned", Hashes)]

class Certificates(core.SequenceOf):
    _child_spec = x509.Certificate

class Crls(core.SequenceOf):
    _child_spec = crl.CertificateList

class Responses(core.SequenceOf):
    _child_spec = ocsp.BasicOCSPResponse

class RevocationValues(core.Sequence):
    _fields = [("crl_vals", Crls, {"explicit": 0, "optional": True}),
               ("ocsp_vals", Responses, {"explicit": 1, "optional": True})]

before, after = (cms.ContentInfo.load(open(p, "rb").read())["content"] for p in sys.argv[1:3])
level = sys.argv[3]
old, new = before["signer_infos"][0], after["signer_infos"][0]
for field in ("version", "sid", "digest_algorithm", "signed_attrs", "signature_algorithm", "signature"):
    assert old[field].dump() == new[field].dump(), field + " changed"
attributes = list(new["unsigned_attrs"])
types = [a["type"].dotted for a in attributes]
expected = {"T": [TOKEN], "LT": [TOKEN, CERT_VALUES, REVOCATION_VALUES],
            "LTA": [TOKEN, CERT_VALUES, REVOCATION_VALUES, ARCHIVE]}[level]
assert types == expected, types
stamp = attributes[0]["values"][0]["content"]["encap_content_info"]["content"].parsed
assert stamp["message_imprint"]["hashed_message"].native == hashlib.sha256(new["signature"].native).digest()
if level != "T":
    assert Certificates.load(attributes[1]["values"][0].dump())[0].serial_number == 0x1001 + (sys.argv[1] != "rsa.p7s")
    statuses = [r["tbs_response_data"]["responses"][0]["cert_status"].name
                for r in RevocationValues.load(attributes[2]["values"][0].dump())["ocsp_vals"]]
    assert statuses == ["good", "good"], statuses  # the signer's, the time-stamping authority's
if level != "LTA":
    sys.exit(0)
token = cms.ContentInfo.load(attributes[3]["values"][0].dump())["content"]
index_values = [a["values"][0] for a in token["signer_infos"][0]["unsigned_attrs"] if a["type"].dotted == HASH_INDEX]
assert len(index_values) == 1, "one ats-hash-index-v3 in the token's signer"
index = HashIndex.load(index_values[0].dump())
sha = lambda b: hashlib.sha256(b).digest()
assert [h.native for h in index["certificates"]] == [sha(c.dump()) for c in after["certificates"]]
assert [h.native for h in index["unsigned"]] == [sha(a["type"].dump() + v.dump()) for a in attributes[:3] for v in a["values"]]
encap = after["encap_content_info"]
content = encap["content"].native if encap["content"].native is not None else open(sys.argv[4], "rb").read()
imprint = encap["content_type"].dump() + sha(content)
imprint += b"".join(new[f].dump() for f in ("version", "sid", "digest_algorithm", "signed_attrs", "signature_algorithm", "signature"))
imprint += index.dump()
info = token["encap_content_info"]["content"].parsed
assert info["message_imprint"]["hashed_message"].native == sha(imprint), "the archive imprint differs"
PY
  done
done <<EOF
rsa|rsa|
attached|ec|-nodetach -stream -indef
EOF

# Renewing the archive: a second archive time-stamp over the first, both of which verify.
"$KOLVARI" extend --level LTA --tsa "$base/tsa" --content doc.txt rsa-LTA.p7s --out renewed.p7s 2> err.txt ||
  fail "renewed: $(cat err.txt)"
"$KOLVARI" verify --trust pki/ca.pem --content doc.txt renewed.p7s > verify.txt || fail "renewed: $(cat verify.txt)"
[ "$(grep -c 'passed *archive time-stamp:' verify.txt)" -eq 2 ] || fail "renewed: $(cat verify.txt)"

# Certificate values altered after the archive time-stamp: its hash index no longer names them.
/usr/bin/python3 - rsa-LTA.p7s <<'PY'
import sys
from asn1crypto import cms
data = open(sys.argv[1], "rb").read()
values = cms.ContentInfo.load(data)["content"]["signer_infos"][0]["unsigned_attrs"][1]["values"][0].dump()
at = data.index(values) + len(values) - 1
open("tampered.p7s", "wb").write(data[:at] + bytes([data[at] ^ 1]) + data[at + 1:])
PY
[ "$(status_of "$KOLVARI" verify --trust pki/ca.pem --content doc.txt tampered.p7s)" -eq 1 ] &&
  grep -q 'archive time-stamp: .*unsignedAttrsHashIndex' out.txt || fail "tampered: $(cat out.txt)"

# A batch on two threads into out/, each output named as its input: a broken input is reported in its place
# and skipped, the three signatures are extended to T, and the status is 1. Then the refused command lines.
mkdir out && cp rsa.p7s again.p7s && echo "not a signature" > broken.p7s
[ "$(status_of "$KOLVARI" extend --level T --tsa "$base/tsa" --jobs 2 --out-dir out rsa.p7s broken.p7s \
  attached.p7s again.p7s)" -eq 1 ] && [ "$(wc -l < err.txt)" -eq 2 ] &&
  grep -q "^kolvari extend: broken.p7s: " err.txt && tail -n 1 err.txt | grep -q "1 of 4 files not extended" ||
  fail "batch: $(cat err.txt)"
for name in rsa attached again; do
  content=(-content doc.txt)
  [ "$name" != attached ] || content=()
  openssl cms -verify -binary -inform DER -in "out/$name.p7s" "${content[@]}" -CAfile pki/ca.pem -purpose any \
    -out /dev/null 2> err.txt || fail "batch: out/$name.p7s: $(cat err.txt)"
  openssl cms -cmsout -print -inform DER -in "out/$name.p7s" | grep -q timeStampToken || fail "batch: $name: no token"
done
[ ! -e out/broken.p7s ] || fail "batch: out/broken.p7s was written"
refused 2 "more than one FILE needs --out-dir" two.p7s "$KOLVARI" extend --level T rsa.p7s again.p7s --out two.p7s
refused 2 "--content names the signed file of one FILE" out/doc.txt \
  "$KOLVARI" extend --level LTA --content doc.txt --out-dir out rsa.p7s again.p7s
refused 2 "--out-dir . holds the input rsa.p7s" none "$KOLVARI" extend --level T --out-dir . rsa.p7s

# A time-stamp authority that is down: one line naming its URL and the signer, exit status 1, no output.
stop_loopback_services
refused 1 "$base/tsa" down.p7s "$KOLVARI" extend --level T --tsa "$base/tsa" --content doc.txt rsa.p7s --out down.p7s
grep -qF "CN=RSA Signer" err.txt || fail "TSA down: $(cat err.txt)"
echo "extend: 6 extensions checked by OpenSSL, asn1crypto and kolvari verify; the batch and the failure cases passed"
