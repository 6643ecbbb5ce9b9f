#!/usr/bin/env bash
# Long-term PDF signatures against the loopback time-stamp authority and OCSP responder (tests/support/
# loopback_services.sh): `kolvari sign-pdf` at each level (B-B and B-T with an EC signer, B-LT and B-LTA with an
# RSA one), `kolvari extend-pdf` on PDFs signed by kolvari and by poppler's pdfsig, run twice to renew, and
# `kolvari timestamp-pdf`. Each output is held against pdfsig (every signature and time-stamp valid), qpdf
# --check, its input (a prefix of it), and its document security store as qpdf's JSON shows it (the
# certificates, the OCSP responses, a /VRI entry per signature keyed by the SHA-1 of its /Contents), and against
# `kolvari verify` (TOTAL_PASSED, the later revisions named; a week later with the responder stopped, for a
# signer certificate valid for one day, in verify.sh).
# A time-stamp authority that is down gives one line and no file.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
requires pdfsig qpdf openssl python3:asn1crypto
. "$here/../support/loopback_services.sh"
start_loopback_pki "$work/pki" "PDF LTV" <<'EOF'
[down]
keyUsage = critical,digitalSignature,nonRepudiation
authorityInfoAccess = OCSP;URI:$base/ocsp/down
[plain]
keyUsage = critical,digitalSignature
[tsa]
authorityInfoAccess = OCSP;URI:$base/ocsp
EOF
issue_certificate rsa 1001 signer "/CN=RSA Signer" -algorithm RSA -pkeyopt rsa_keygen_bits:2048
issue_certificate ec 1002 signer "/CN=EC Signer"
issue_certificate down 1003 down "/CN=Down Signer"
issue_certificate plain 1004 plain "/CN=Plain Signer"
for s in "1001 RSA Signer" "1002 EC Signer" "1003 Down Signer" "2001 PDF LTV TSA"; do
  printf 'V\t491231235959Z\t\t%s\tunknown\t/CN=%s\n' "${s%% *}" "${s#* }" >> index.txt
done
make_loopback_crl 1
write_tsa_config "sha256"
cd "$work"

/usr/bin/python3 "$here/minimal_pdf.py" classic.pdf
qpdf --object-streams=generate classic.pdf objstm.pdf

# FILE SIGNATURES DOCTIMESTAMPS: pdfsig finds the signatures valid (it has no opinion on document
# time-stamps), `openssl ts -verify` each time-stamp token over its byte range, qpdf --check passes.
check_pdf() {
  pdfsig -nocert "$1" > sig.txt 2>&1 || fail "$1: pdfsig: $(cat sig.txt)"
  [ "$(grep -c '^Signature #' sig.txt)" -eq $(($2 + $3)) ] || fail "$1: not $2 + $3 signatures: $(cat sig.txt)"
  [ "$(grep -c 'Signature is Valid' sig.txt)" -eq "$2" ] || fail "$1: an invalid signature: $(cat sig.txt)"
  qpdf --check "$1" > check.txt 2>&1 || fail "$1: qpdf --check: $(cat check.txt)"
  qpdf --json=2 "$1" > ts.json || [ $? -eq 3 ] || fail "$1: qpdf --json"
  rm -f ts-*.range
  /usr/bin/python3 - "$1" ts.json <<'PY' || fail "$1: the document time-stamps cannot be read"
import json, sys
from asn1crypto import parser
pdf = open(sys.argv[1], "rb").read()
for n, o in enumerate(json.load(open(sys.argv[2]))["qpdf"][1].values()):
    v = o.get("value") if isinstance(o, dict) else None
    if isinstance(v, dict) and v.get("/Type") == "/DocTimeStamp" and v.get("/SubFilter") == "/ETSI.RFC3161":
        a, b, c, d = v["/ByteRange"]
        open("ts-%d.range" % n, "wb").write(pdf[a:a + b] + pdf[c:c + d])
        open("ts-%d.token" % n, "wb").write(b"".join(parser.parse(bytes.fromhex(v["/Contents"][2:]), strict=False)[3:]))
PY
  [ "$(find . -maxdepth 1 -name 'ts-*.range' | wc -l)" -eq "$3" ] || fail "$1: not $3 document time-stamp(s)"
  for range in ts-*.range; do
    [ -e "$range" ] || continue
    openssl ts -verify -data "$range" -in "${range%.range}.token" -token_in -CAfile pki/ca.pem > err.txt 2>&1 ||
      fail "$1: openssl ts -verify: $(cat err.txt)"
  done
}
# FILE INDICATION LATER [OPTIONS...]: `kolvari verify` with the test CA as trust judges the first signature
# so, and names the kinds of the revisions after it (- for none).
check_verify() {
  local file=$1 indication=$2 later=$3
  shift 3
  "$KOLVARI" verify --json --trust pki/ca.pem "$@" "$file" > verify.json 2> err.txt || true
  [ "$(verdict verify.json | cut -d'|' -f1,4)" = "$indication|$later" ] || fail "$file: verify: $(cat verify.json err.txt)"
}

# FILE CERTIFICATE-NAMES OCSP-SERIALS VRI-COUNT: the store as qpdf decodes it.
check_dss() {
  qpdf --json=2 --json-stream-data=inline --decode-level=generalized "$1" > dss.json ||
    [ $? -eq 3 ] || fail "$1: qpdf --json"
  /usr/bin/python3 - dss.json "$2" "$3" "$4" <<'PY' || fail "$1: the document security store"
import base64, hashlib, json, sys
from asn1crypto import ocsp, parser, x509
objects = json.load(open(sys.argv[1]))["qpdf"][1]
value = lambda v: objects["obj:" + v]["value"] if isinstance(v, str) and v.endswith(" R") else v
data = lambda ref: base64.b64decode(objects["obj:" + ref]["stream"]["data"])
dss = value(value(value(objects["trailer"]["value"]["/Root"])["/DSS"]))
names = sorted(x509.Certificate.load(data(r)).subject.native["common_name"] for r in dss["/Certs"])
assert names == sorted(sys.argv[2].split(",")), names
serials = []
for r in dss.get("/OCSPs", []):
    response = ocsp.OCSPResponse.load(data(r))
    single = response["response_bytes"]["response"].parsed["tbs_response_data"]["responses"][0]
    assert single["cert_status"].name == "good", single["cert_status"].name
    serials.append("%x" % single["cert_id"]["serial_number"].native)
assert sorted(serials) == sorted(sys.argv[3].split(",")), serials
contents = set()
for o in objects.values():
    v = o.get("value") if isinstance(o, dict) else None
    if isinstance(v, dict) and "/ByteRange" in v:
        parts = parser.parse(bytes.fromhex(v["/Contents"][2:]), strict=False)  # the CMS without the padding
        contents.add(hashlib.sha1(b"".join(parts[3:])).hexdigest().upper())
keys = {k[1:] for k in value(dss["/VRI"])}
assert len(keys) == int(sys.argv[4]) and keys - {"KEPT"} <= contents, (keys, contents)
for k in keys:
    assert value(value(dss["/VRI"])["/" + k])["/Cert"], k
PY
}

sign_pdf() {  # SIGNER IN OUT ARGS...
  local signer=$1 in=$2 out=$3
  shift 3
  "$KOLVARI" sign-pdf --key "pki/$signer.key" --cert "pki/$signer.pem" --chain pki/ca.pem \
    "$@" "$in" "$out"
}

# ---- sign-pdf at each level: SIGNER|IN|LEVEL|doc time-stamps|DSS names|OCSP serials|later revisions ----
while IFS='|' read -r signer in level stamps names serials later; do
  out=$signer-$level.pdf
  args=(--level "$level")
  [ "$level" = B-B ] || args+=(--tsa "$base/tsa")
  sign_pdf "$signer" "$in.pdf" "$out" "${args[@]}" 2> err.txt || fail "$out: sign-pdf: $(cat err.txt)"
  is_prefix "$in.pdf" "$out"
  check_pdf "$out" 1 "$stamps"
  [ -z "$names" ] || check_dss "$out" "$names" "$serials" 1
  check_verify "$out" TOTAL_PASSED "$later"
done <<EOF
rsa|classic|B-LT|0|PDF LTV CA,PDF LTV TSA,RSA Signer|1001,2001|DSS update
rsa|objstm|B-LTA|1|PDF LTV CA,PDF LTV TSA,RSA Signer|1001,2001|DSS update,document time-stamp
ec|objstm|B-B|0|||-
ec|classic|B-T|0|||-
EOF
# inspect lists the store: the signer's chain and the TSA, the OCSP responses by serial, the /VRI entry's signature.
"$KOLVARI" inspect --json rsa-B-LTA.pdf > inspect.json || fail "inspect rsa-B-LTA.pdf"
json_holds inspect.json '[sorted(x["subject"] for x in d["dss"]["certificates"]),
  sorted(o["serialNumber"] for o in d["dss"]["ocspResponses"]), [v["signature"] for v in d["dss"]["vri"]],
  len(d["dss"]["vri"][0]["ocspResponses"])] == [["CN=PDF LTV CA", "CN=PDF LTV TSA", "CN=RSA Signer"], ["1001", "2001"],
  ["Signature1"], 2]'

# ---- extend-pdf on a kolvari B-B signature, then again: the renewal covers the first time-stamp ----
extend() {  # IN OUT ARGS...
  local in=$1 out=$2
  shift 2
  "$KOLVARI" extend-pdf --tsa "$base/tsa" "$@" "$in" "$out" 2> err.txt || fail "$out: extend-pdf: $(cat err.txt)"
  is_prefix "$in" "$out"
}
extend ec-B-B.pdf ec-extended.pdf --level B-LTA
check_pdf ec-extended.pdf 1 1
check_dss ec-extended.pdf "EC Signer,PDF LTV CA" 1002 1
check_verify ec-extended.pdf TOTAL_PASSED "DSS update,document time-stamp"
extend ec-extended.pdf ec-renewed.pdf --level B-LTA
check_pdf ec-renewed.pdf 1 2
check_dss ec-renewed.pdf "EC Signer,PDF LTV CA,PDF LTV TSA" 1002,2001 2
# A given response takes the place of the responder the certificate names, which is down.
sign_pdf down classic.pdf down.pdf || fail "down.pdf: sign-pdf"
openssl ocsp -issuer pki/ca.pem -cert pki/down.pem -url "$base/ocsp" -respout down.ocsp -noverify > /dev/null 2>&1 ||
  fail "openssl ocsp could not ask the responder"
extend down.pdf down-given.pdf --level B-LT --ocsp-response down.ocsp
check_pdf down-given.pdf 1 0
check_dss down-given.pdf "Down Signer,PDF LTV CA" 1003 1
# A certificate that names no responder: refused below, and with --allow-missing-revocation named in a note.
sign_pdf plain classic.pdf plain.pdf || fail "plain.pdf: sign-pdf"
extend plain.pdf plain-lt.pdf --level B-LT --allow-missing-revocation
grep -q 'note: no revocation data for /CN=Plain Signer' err.txt || fail "plain-lt.pdf: no note: $(cat err.txt)"

# A store the file has already, written inline in the catalog with the CA certificate and a /VRI entry of
# its own: merged into one store, the certificate not stored twice, the entry kept.
openssl x509 -in pki/ca.pem -outform DER -out ca.der
/usr/bin/python3 - "$here" <<'PY'
import sys
sys.path.insert(0, sys.argv[1])
from minimal_pdf import write
ca = open("ca.der", "rb").read()
write("stored.pdf", [b"<< /Type /Catalog /Pages 2 0 R /DSS << /Certs [4 0 R] /VRI << /KEPT << /Cert [4 0 R] >> >> >> >>",
                     b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>", b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] >>",
                     b"<< /Length %d >>\nstream\n%s\nendstream" % (len(ca), ca)])
PY
sign_pdf ec stored.pdf stored-signed.pdf || fail "stored-signed.pdf: sign-pdf"
extend stored-signed.pdf stored-lt.pdf --level B-LT
check_pdf stored-lt.pdf 1 0
check_dss stored-lt.pdf "EC Signer,PDF LTV CA" 1002 2

# ---- extend-pdf on a signature made by poppler (NSS), when this pdfsig can sign ----
mkdir nss
certutil -N -d sql:nss --empty-password > /dev/null 2>&1 || true
openssl pkcs12 -export -inkey pki/rsa.key -in pki/rsa.pem -certfile pki/ca.pem -name poppler -passout pass: \
  -out rsa.p12 2> /dev/null
if pk12util -i rsa.p12 -d sql:nss -W '' > /dev/null 2>&1 &&
  pdfsig -add-signature -nssdir sql:nss -nick poppler classic.pdf poppler.pdf > /dev/null 2>&1; then
  # pdfsig sends the signer's certificate alone: --chain gives its issuer.
  extend poppler.pdf poppler-lta.pdf --level B-LTA --chain pki/ca.pem
  check_pdf poppler-lta.pdf 1 1
  check_dss poppler-lta.pdf "PDF LTV CA,RSA Signer" 1001 1
  check_verify poppler-lta.pdf TOTAL_PASSED "DSS update,document time-stamp"
else
  echo "ltv_pdf: pdfsig cannot sign here; the extend-pdf row on a poppler signature is skipped"
fi

# ---- timestamp-pdf alone, on an unsigned PDF ----
"$KOLVARI" timestamp-pdf --tsa "$base/tsa" classic.pdf stamped.pdf || fail "timestamp-pdf"
is_prefix classic.pdf stamped.pdf
check_pdf stamped.pdf 0 1

# ---- failures: one line naming the URL (and the certificate), no output ----
# NAME|COMMAND ARGS|the message
while IFS='|' read -r _ args message; do
  # shellcheck disable=SC2086  # ARGS are words
  refused 1 "$message" failed.pdf "$KOLVARI" $args failed.pdf
done <<EOF
tsa-down|timestamp-pdf --tsa $base/tsa/http500 classic.pdf|$base/tsa/http500 answered with HTTP status 500
tsa-garbage|extend-pdf --level B-LTA --tsa $base/tsa/wrong-imprint ec-extended.pdf|$base/tsa/wrong-imprint: the time-stamp token's message imprint
responder-down|extend-pdf --level B-LT down.pdf|/CN=Down Signer: OCSP $base/ocsp/down answered with HTTP status 503
no-responder|extend-pdf --level B-LT plain.pdf|/CN=Plain Signer names no OCSP responder
lta-tsa-down|sign-pdf --key pki/ec.key --cert pki/ec.pem --chain pki/ca.pem --level B-LTA --tsa $base/tsa/slow --tsa-timeout 1 classic.pdf|no answer from $base/tsa/slow within 1 s
EOF

echo "ltv_pdf: passed"
