#!/usr/bin/env bash
# `kolvari verify` on signatures made by other software and by kolvari itself, and on faults made from them:
# each row of a table names a signature, the options, and the indication and sub-indication expected. Where
# `openssl cms -verify` (or poppler's pdfsig) has an opinion, its verdict must agree with ours. The time-stamp
# and OCSP cases use the loopback services of tests/interop/ltv_server.py on 127.0.0.1, always stopped.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
requires openssl certtool python3:asn1crypto
. "$here/../support/loopback_services.sh"

# A copy of IN as OUT with the lowest bit of the byte at OFFSET (negative: from the end) flipped.
flipped() {  # in out offset
  cp "$1" "$2" && flip "$2" "$3"
}
# The offset of the first (or with "last" the last) occurrence of the bytes given in hex.
offset_of() {  # file hex [last]
  python3 -c 'import sys; d = open(sys.argv[1], "rb").read(); h = bytes.fromhex(sys.argv[2])
print(d.rindex(h) if sys.argv[3] else d.index(h))' "$1" "$2" "${3:-}"
}

# ---- the loopback services and the PKI they serve (as in ltv.sh) ----
start_loopback_pki "$work/pki" "Verify Test" <<'EOF2'
[encipher]
keyUsage = critical,keyEncipherment
[ica]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
authorityInfoAccess = OCSP;URI:$base/ocsp
[leaf]
keyUsage = critical,digitalSignature
[tsa]
authorityInfoAccess = OCSP;URI:$base/ocsp
EOF2
openssl req -x509 -newkey rsa:2048 -nodes -keyout other.key -subj "/CN=Other CA" -days 30 -out other.pem 2> /dev/null
issue_certificate rsa 1001 signer "/O=Kolvari/CN=rsa signer" -algorithm RSA -pkeyopt rsa_keygen_bits:2048
issue_certificate ec 1002 signer "/O=Kolvari/CN=ec signer" -algorithm EC -pkeyopt ec_paramgen_curve:P-384
issue_certificate ed 1003 signer "/O=Kolvari/CN=ed25519 signer" -algorithm ED25519
issue_certificate revoked 1004 signer "/O=Kolvari/CN=revoked signer" -algorithm EC -pkeyopt ec_paramgen_curve:P-256
issue_certificate encipher 1005 encipher "/O=Kolvari/CN=encipher only" -algorithm EC -pkeyopt ec_paramgen_curve:P-256
issue_certificate ica 1007 ica "/CN=Verify Test Intermediate"
now=$(date -u +%y%m%d%H%M%SZ)
printf 'V\t491231235959Z\t\t1001\tunknown\t/O=Kolvari/CN=rsa signer\n' > index.txt
printf 'R\t491231235959Z\t%s\t1004\tunknown\t/O=Kolvari/CN=revoked signer\n' "$now" >> index.txt
printf 'R\t491231235959Z\t%s\t1007\tunknown\t/CN=Verify Test Intermediate\n' "$now" >> index.txt
printf 'V\t491231235959Z\t\t2001\tunknown\t/CN=Verify Test TSA\n' >> index.txt
write_tsa_config "sha256, sha384"
cd "$work"
head -c 300000 /dev/urandom > content.bin
printf 'the signed text\n' > content.txt
printf 'another text\n' > other.txt

# ---- signatures made by other software and by kolvari ----
cms_sign() {  # out signer extra-options...
  local out=$1 signer=$2
  shift 2
  openssl cms -sign -binary -in content.bin -signer "pki/$signer.pem" -inkey "pki/$signer.key" -certfile pki/ca.pem \
    -outform DER -out "$out" "$@"
}
cms_sign ossl-rsa-detached.p7s rsa
cms_sign ossl-ec-detached.p7s ec
cms_sign ossl-rsa-attached.p7s rsa -nodetach
cms_sign ossl-ec-stream.p7s ec -nodetach -stream
cms_sign ossl-rsa-pss.p7s rsa -keyopt rsa_padding_mode:pss
openssl cms -sign -binary -in content.bin -signer pki/ec.pem -inkey pki/ec.key -outform PEM -out ossl-ec.pem
certtool --p7-detached-sign --load-privkey pki/rsa.key --load-certificate pki/rsa.pem --infile content.bin \
  --outfile gnutls-rsa.p7s > /dev/null 2>&1
certtool --p7-detached-sign --p7-time --load-privkey pki/ed.key --load-certificate pki/ed.pem --infile content.bin \
  --outfile gnutls-ed25519.p7s > /dev/null 2>&1
ksign() {  # out signer extra-options...
  local out=$1 signer=$2
  shift 2
  "$KOLVARI" sign --key "pki/$signer.key" --cert "pki/$signer.pem" --chain pki/ca.pem \
    --out "$out" "$@" content.bin 2> err.txt || fail "kolvari sign $out: $(cat err.txt)"
}
ksign kolvari-rsa-attached.pem rsa --attached --pem
ksign kolvari-tsa.p7s ec --tsa "$base/tsa"
ksign kolvari-ocsp.p7s rsa --fetch-revocation
ksign kolvari-revoked.p7s revoked --fetch-revocation --allow-revoked
ksign kolvari-encipher.p7s encipher
# A time-stamp over other data: the token of kolvari-tsa.p7s, whose imprint covers that signature's value,
# given to another signature as its signature time-stamp.
token=$(/usr/bin/python3 - kolvari-tsa.p7s <<'PY'
import sys
from asn1crypto import cms
signer = cms.ContentInfo.load(open(sys.argv[1], "rb").read())["content"]["signer_infos"][0]
for a in signer["unsigned_attrs"]:
    if a["type"].dotted == "1.2.840.113549.1.9.16.2.14":
        print(a["values"][0].dump().hex())
PY
)
ksign kolvari-foreign-token.p7s ec --unsigned-attr "1.2.840.113549.1.9.16.2.14=$token"

# Two signers in one SignedData: both judged, both pass.
openssl cms -sign -binary -in content.bin -signer pki/rsa.pem -inkey pki/rsa.key -signer pki/ec.pem -inkey pki/ec.key \
  -outform DER -out ossl-two-signers.p7s
# A certificate flood: 300 certificates beside the signer's.
for i in $(seq 300); do
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout /dev/null -subj "/CN=flood $i" \
    -days 1 2> /dev/null
done > flood.pem
cms_sign ossl-flood.p7s ec -certfile flood.pem
# A loop of issuers: A issued by B, B issued by A, the signer issued by A; no trust anchor is reached.
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out loop-a.key
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out loop-b.key
openssl req -x509 -new -key loop-a.key -subj "/CN=Loop A" -days 30 -config pki/x509.cnf -extensions ca -out loop-a0.pem
loop_issue() {  # out subject-key subject issuer-cert issuer-key section
  openssl req -new -key "$2" -subj "$3" -config pki/x509.cnf |
    openssl x509 -req -CA "$4" -CAkey "$5" -set_serial "0x$RANDOM" -days 30 -extfile pki/x509.cnf -extensions "$6" \
      -out "$1" 2> /dev/null
}
loop_issue loop-b.pem loop-b.key "/CN=Loop B" loop-a0.pem loop-a.key ca
loop_issue loop-a.pem loop-a.key "/CN=Loop A" loop-b.pem loop-b.key ca
loop_issue loop-signer.pem pki/ec.key "/CN=looped signer" loop-a.pem loop-a.key signer
cat loop-a.pem loop-b.pem > loop-chain.pem
# A signer under a revoked intermediate CA, which names its OCSP responder; the signer names none.
loop_issue ica-signer.pem pki/ec.key "/CN=signer under the intermediate" pki/ica.pem pki/ica.key leaf
openssl cms -sign -binary -in content.bin -signer ica-signer.pem -inkey pki/ec.key -certfile pki/ica.pem \
  -outform DER -out ossl-ica.p7s
openssl cms -sign -binary -in content.bin -signer loop-signer.pem -inkey pki/ec.key -certfile loop-chain.pem \
  -outform DER -out ossl-loop.p7s
"$KOLVARI" verify --json --trust pki/ca.pem --content content.bin ossl-two-signers.p7s > two.json ||
  fail "ossl-two-signers.p7s: $(cat two.json)"
json_holds two.json 'sorted(x["signer"] for x in d["signatures"]) == ["CN=ec signer,O=Kolvari", "CN=rsa signer,O=Kolvari"]'

# ---- faults made from them ----
# Changed content inside an attached signature: the content is the last OCTET STRING before the certificates.
flipped ossl-rsa-attached.p7s changed-content.p7s "$(( $(offset_of ossl-rsa-attached.p7s "$(head -c 16 content.bin | od -An -tx1 | tr -d " \n")") + 5 ))"
# A changed signed attribute: a digit of the signing time (the last UTCTime, after the certificates').
flipped ossl-ec-detached.p7s changed-attribute.p7s "$(( $(offset_of ossl-ec-detached.p7s 170d last) + 5 ))"
# A flipped signature byte: the signature value ends the file when there are no unsigned attributes.
flipped ossl-rsa-detached.p7s flipped-signature.p7s -1

# ---- the table: FILE|OPTIONS|INDICATION|SUB-INDICATION|what openssl cms -verify says (pass, fail or -) ----
while IFS='|' read -r file options indication sub openssl_says; do
  # shellcheck disable=SC2086  # OPTIONS are words
  status=$(status_of "$KOLVARI" verify --json $options "$file")
  [ "$(verdict out.txt | cut -d'|' -f1,2)" = "$indication|$sub" ] || fail "$file ($options): $(cat out.txt err.txt)"
  [ "$status" = "$([ "$indication" = TOTAL_PASSED ] && echo 0 || echo 1)" ] || fail "$file ($options): exit status $status"
  if [ "$openssl_says" != - ]; then
    # The same trust, content and time for openssl cms -verify (the options come in pairs).
    theirs=()
    # shellcheck disable=SC2086
    set -- $options
    for ((i = 1; i < $#; i += 2)); do
      name=${*:i:1} value=${*:i+1:1}
      case $name in
        --trust) theirs+=(-CAfile "$value") ;;
        --content) theirs+=(-content "$value") ;;
        --at) theirs+=(-attime "$(date -u -d "${value:0:8} ${value:8:2}:${value:10:2}:${value:12:2}" +%s)") ;;
      esac
    done
    inform=DER
    case "$file" in *.pem|gnutls-*) inform=PEM;; esac
    if openssl cms -verify -binary -inform $inform -in "$file" "${theirs[@]}" -purpose any -out /dev/null 2> /dev/null
    then said=pass; else said=fail; fi
    [ "$said" = "$openssl_says" ] || fail "$file ($options): openssl cms -verify says $said"
  fi
done <<EOF
ossl-rsa-detached.p7s|--trust pki/ca.pem --content content.bin|TOTAL_PASSED|-|pass
ossl-rsa-attached.p7s|--trust pki/ca.pem|TOTAL_PASSED|-|pass
ossl-ec-stream.p7s|--trust pki/ca.pem|TOTAL_PASSED|-|pass
ossl-rsa-pss.p7s|--trust pki/ca.pem --content content.bin|TOTAL_PASSED|-|pass
ossl-ec.pem|--trust pki/ca.pem --content content.bin|TOTAL_PASSED|-|pass
gnutls-rsa.p7s|--trust pki/ca.pem --content content.bin|TOTAL_PASSED|-|pass
gnutls-ed25519.p7s|--trust pki/ca.pem --content content.bin|TOTAL_PASSED|-|-
kolvari-rsa-attached.pem|--trust pki/ca.pem|TOTAL_PASSED|-|pass
kolvari-tsa.p7s|--trust pki/ca.pem --content content.bin|TOTAL_PASSED|-|pass
kolvari-ocsp.p7s|--trust pki/ca.pem --content content.bin|TOTAL_PASSED|-|pass
kolvari-ocsp.p7s|--trust pki/ca.pem --content content.bin --revocation fetch --timeout 5|TOTAL_PASSED|-|-
ossl-rsa-detached.p7s|--trust pki/ca.pem --content content.bin --revocation fetch --timeout 5|TOTAL_PASSED|-|-
ossl-ica.p7s|--trust pki/ca.pem --content content.bin|TOTAL_PASSED|-|pass
ossl-ica.p7s|--trust pki/ca.pem --content content.bin --revocation fetch --timeout 5|INDETERMINATE|REVOKED_NO_POE|-
changed-content.p7s|--trust pki/ca.pem|TOTAL_FAILED|HASH_FAILURE|fail
changed-attribute.p7s|--trust pki/ca.pem --content content.bin|TOTAL_FAILED|SIG_CRYPTO_FAILURE|fail
flipped-signature.p7s|--trust pki/ca.pem --content content.bin|TOTAL_FAILED|SIG_CRYPTO_FAILURE|fail
ossl-ec-detached.p7s|--trust pki/ca.pem --content other.txt|TOTAL_FAILED|HASH_FAILURE|fail
gnutls-ed25519.p7s|--trust pki/ca.pem --content other.txt|TOTAL_FAILED|HASH_FAILURE|-
gnutls-rsa.p7s|--trust pki/ca.pem --content other.txt|TOTAL_FAILED|SIG_CRYPTO_FAILURE|fail
ossl-rsa-detached.p7s|--trust pki/other.pem --content content.bin|INDETERMINATE|NO_CERTIFICATE_CHAIN_FOUND|fail
ossl-rsa-detached.p7s|--trust pki/ca.pem --content content.bin --at 20991231000000Z|INDETERMINATE|OUT_OF_BOUNDS_NO_POE|fail
kolvari-revoked.p7s|--trust pki/ca.pem --content content.bin|INDETERMINATE|REVOKED_NO_POE|-
kolvari-revoked.p7s|--trust pki/ca.pem --content content.bin --revocation none|TOTAL_PASSED|-|pass
kolvari-foreign-token.p7s|--trust pki/ca.pem --content content.bin|TOTAL_FAILED|HASH_FAILURE|-
kolvari-encipher.p7s|--trust pki/ca.pem --content content.bin|INDETERMINATE|CHAIN_CONSTRAINTS_FAILURE|-
ossl-rsa-detached.p7s|--trust pki/ca.pem|INDETERMINATE|FORMAT_FAILURE|-
ossl-flood.p7s|--trust pki/ca.pem --content content.bin|INDETERMINATE|FORMAT_FAILURE|-
ossl-loop.p7s|--trust pki/ca.pem --content content.bin|INDETERMINATE|NO_CERTIFICATE_CHAIN_FOUND|fail
EOF

# The time-stamp sets the validation time: the time-stamped signature passes and says when it was stamped.
"$KOLVARI" verify --json --trust pki/ca.pem --content content.bin kolvari-tsa.p7s > tsa.json
json_holds tsa.json 'd["signatures"][0]["timestamp"] is not None and
  [c["outcome"] for c in d["signatures"][0]["checks"] if c["name"] == "time-stamp"] == ["passed"]'
# The embedded OCSP response is what passes the revocation check (not a skip for want of data).
"$KOLVARI" verify --json --trust pki/ca.pem --content content.bin kolvari-ocsp.p7s > ocsp.json
json_holds ocsp.json '[c["outcome"] for c in d["signatures"][0]["checks"] if c["name"] == "revocation"] == ["passed"]'

# ---- PDFs: kolvari sign-pdf once, twice, time-stamped, then changed ----
python3 "$here/minimal_pdf.py" plain.pdf
spdf() {  # in out signer extra-options...
  local in=$1 out=$2 signer=$3
  shift 3
  "$KOLVARI" sign-pdf --key "pki/$signer.key" --cert "pki/$signer.pem" --chain pki/ca.pem \
    "$@" "$in" "$out" 2> err.txt || fail "kolvari sign-pdf $out: $(cat err.txt)"
}
spdf plain.pdf once.pdf ec
spdf once.pdf twice.pdf rsa
spdf plain.pdf stamped.pdf ec --tsa "$base/tsa"
# A later incremental update that adds an annotation object.
python3 - once.pdf annotated.pdf <<'PY'
import re, sys
d = open(sys.argv[1], "rb").read()
prev = int(re.findall(rb"startxref\s+(\d+)", d)[-1])
out = bytearray(d)
at = len(out)
out += b"100 0 obj\n<< /Type /Annot /Subtype /Text /Rect [0 0 10 10] /Contents (added later) >>\nendobj\n"
xref = len(out)
out += b"xref\n100 1\n%010d 00000 n \ntrailer\n<< /Size 101 /Root 1 0 R /Prev %d >>\nstartxref\n%d\n%%%%EOF\n" % (at, prev, xref)
open(sys.argv[2], "wb").write(out)
PY
# A byte of the signed range changed.
flipped once.pdf changed.pdf 20
# A document time-stamp in one more revision (its token checked by `openssl ts -verify` in ltv_pdf.sh).
"$KOLVARI" timestamp-pdf --tsa "$base/tsa" once.pdf stamped-doc.pdf 2> err.txt || fail "timestamp-pdf: $(cat err.txt)"
flipped stamped-doc.pdf stamped-doc-changed.pdf 20

# FILE|signature (from 1)|INDICATION|SUB-INDICATION|coversWholeFile|kinds of the later revisions|pdfsig says|
# more options
check_pdfs() {
while IFS='|' read -r file index indication sub whole later pdfsig_says options; do
  # shellcheck disable=SC2086  # OPTIONS are words
  "$KOLVARI" verify --json --trust pki/ca.pem $options "$file" > out.json 2> err.txt || true
  [ "$(verdict out.json "$index")" = "$indication|$sub|$whole|$later" ] || fail "$file #$index: $(cat out.json err.txt)"
  if [ "$pdfsig_says" != - ] && command -v pdfsig > /dev/null; then
    pdfsig -nocert "$file" > sig.txt 2>&1 || true
    said=$(awk -v n="$index" '/^Signature #/ {i++} i == n && /Signature Validation:/ {print ($0 ~ /Signature is Valid/) ? "valid" : "invalid"}' sig.txt)
    [ "$said" = "$pdfsig_says" ] || fail "$file #$index: pdfsig says $said: $(cat sig.txt)"
  fi
done
}
check_pdfs <<'EOF'
once.pdf|1|TOTAL_PASSED|-|true|-|valid
twice.pdf|1|TOTAL_PASSED|-|false|signature|valid
twice.pdf|2|TOTAL_PASSED|-|true|-|valid
stamped.pdf|1|TOTAL_PASSED|-|true|-|valid
annotated.pdf|1|TOTAL_PASSED|-|false|annotations|valid
changed.pdf|1|TOTAL_FAILED|HASH_FAILURE|true|-|invalid
stamped-doc.pdf|1|TOTAL_PASSED|-|false|document time-stamp|valid
stamped-doc.pdf|2|TOTAL_PASSED|-|true|-|-
stamped-doc-changed.pdf|2|TOTAL_FAILED|HASH_FAILURE|true|-|-
EOF

# ---- a batch of files under one trust set: each file's report as its single run gives it (the time fixed),
# the same output on 1 and on 4 threads, exit status 1 for the tampered files; a file that is not a
# signature gives exit status 2 and the others are still judged ----
batch=(ossl-rsa-attached.p7s changed-content.p7s once.pdf kolvari-rsa-attached.pem changed.pdf twice.pdf)
hour="--at $(date -u -d '+1 hour' +%Y%m%d%H%M%SZ)"
for f in "${batch[@]}"; do "$KOLVARI" verify --json --trust pki/ca.pem $hour "$f" > "single-$f.json" || true; done
for jobs in 1 4; do
  for form in text json; do
    set +e
    "$KOLVARI" verify --trust pki/ca.pem $hour --jobs $jobs $([ $form = json ] && echo --json) "${batch[@]}" > "batch-$jobs.$form"
    status=$?
    set -e
    [ "$status" = 1 ] || fail "batch --jobs $jobs ($form): exit status $status, expected 1"
  done
done
cmp -s batch-1.text batch-4.text && cmp -s batch-1.json batch-4.json || fail "batch: --jobs 1 and --jobs 4 differ"
[ "$(grep '^file ' batch-1.text)" = "$(printf 'file %s:\n' "${batch[@]}")" ] || fail "batch headings: $(cat batch-1.text)"
json_holds batch-1.json "[f['file'] for f in d['files']] == '${batch[*]}'.split() and
  all(f['signatures'] == json.load(open('single-%s.json' % f['file']))['signatures'] for f in d['files'])"
status=$(status_of "$KOLVARI" verify --json --trust pki/ca.pem --jobs 2 once.pdf content.txt ossl-rsa-attached.p7s)
mv out.txt unreadable.json
[ "$status" = 2 ] && grep -q "content.txt is not a CMS SignedData" err.txt || fail "unreadable in a batch: $status $(cat err.txt)"
json_holds unreadable.json '[len(x["signatures"]) for x in d["files"]] == [1, 0, 1] and "error" in d["files"][1] and
  d["files"][2]["signatures"][0]["indication"] == "TOTAL_PASSED"'

# Long-term validation: a signer certificate valid for one day, its OCSP response and the CA in a DSS update
# (extend-pdf --level B-LT), then a document time-stamp (B-LTA); judged a week later with the responder
# stopped. The time-stamp is a proof of existence for the signature, the DSS's response shows it unrevoked
# then; without them there is no proof.
(cd pki && days=1 issue_certificate short 1006 signer "/O=Kolvari/CN=short-lived signer" &&
  printf 'V\t491231235959Z\t\t1006\tunknown\t/O=Kolvari/CN=short-lived signer\n' >> index.txt)
spdf plain.pdf short-t.pdf short --tsa "$base/tsa"
spdf plain.pdf short-b.pdf short
for level in t b; do
  for lt in lt lta; do
    "$KOLVARI" extend-pdf --tsa "$base/tsa" --level "B-${lt^^}" "short-$level.pdf" "short-$level-$lt.pdf" 2> err.txt ||
      fail "extend-pdf short-$level-$lt.pdf: $(cat err.txt)"
  done
done
stop_loopback_services
week="--at $(date -u -d '+7 days' +%Y%m%d%H%M%SZ)"
check_pdfs <<EOF
short-t-lta.pdf|1|TOTAL_PASSED|-|false|DSS update,document time-stamp|-|$week
short-t-lta.pdf|2|TOTAL_PASSED|-|true|-|-|$week
short-t.pdf|1|INDETERMINATE|OUT_OF_BOUNDS_NO_POE|true|-|-|$week
short-b-lta.pdf|1|TOTAL_PASSED|-|false|DSS update,document time-stamp|-|$week
short-b-lt.pdf|1|INDETERMINATE|OUT_OF_BOUNDS_NO_POE|false|DSS update|-|$week
EOF
"$KOLVARI" verify --json --trust pki/ca.pem stamped.pdf > stamped.json
json_holds stamped.json 'd["signatures"][0]["timestamp"]'
"$KOLVARI" verify --json --trust pki/ca.pem stamped-doc.pdf > stamped-doc.json
json_holds stamped-doc.json '[d["signatures"][1][k] for k in ("kind", "signer")] == ["document time-stamp",
  "CN=Verify Test TSA"] and d["signatures"][1]["timestamp"]'

# ---- command lines and files that are not what verify reads: exit status 2, one line naming the fault ----
while IFS='|' read -r options message; do
  # shellcheck disable=SC2086
  refused 2 "$message" nothing "$KOLVARI" verify $options
done <<'EOF'
--trust pki/ca.pem content.txt|content.txt is not a CMS SignedData
--trust pki/ca.pem missing.p7s|missing.p7s: No such file or directory
--revocation maybe ossl-ec.pem|--revocation maybe
--at 20241301000000Z ossl-ec.pem|--at 20241301000000Z
--trust missing.pem ossl-ec.pem|missing.pem
--content missing.bin ossl-ec-detached.p7s|--content missing.bin
--content content.bin ossl-ec-detached.p7s ossl-rsa-detached.p7s|--content names the signed file of one FILE
--jobs 65 ossl-ec.pem|--jobs 65: not a whole number from 1 to 64
EOF

echo "verify: passed"
