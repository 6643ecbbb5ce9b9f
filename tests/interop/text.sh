#!/usr/bin/env bash
# Text that is not ASCII, and what `kolvari cert` and `kolvari inspect` make readable, held against the
# openssl command, NSS (pdfsig) and poppler (pdftotext):
# - names with ü, ö, a comma and a multi-valued RDN, in UTF8String, T61String and BMPString: `cert --json`
#   gives the RFC 4514 string openssl prints (-nameopt RFC2253 without escaping the UTF-8), the text of each
#   attribute and the algorithms by openssl's names; `inspect --json` carries the UTF-8 text;
# - `detect --json` on file names that are UTF-8 and that are not;
# - a PDF signed by NSS (BER with indefinite lengths) inspected with its signer, and a damaged one named;
# - a visible signature of Jürgen drawn as "Jürgen", read back by pdftotext, and
#   Greek and Cyrillic in an embedded TrueType font (--font), with cut font files refused.
# Exit 77 when poppler, the NSS tools or the DejaVu fonts are missing.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
requires pdfsig pdftotext certutil pk12util
export LC_ALL=C.UTF-8 PYTHONIOENCODING=utf-8

# make NAME MASK SUBJECT [KEYOPT]: a self-signed certificate whose strings openssl writes under MASK.
make() {
  printf '[req]\ndistinguished_name=dn\nstring_mask=%s\n[dn]\n' "$2" > "$1.cnf"
  openssl req -x509 -newkey "${4:-rsa:2048}" -nodes -keyout "$1.key" -out "$1.pem" -days 30 -utf8 \
    -config "$1.cnf" -subj "$3" 2> /dev/null || fail "openssl req $1"
}
make utf8 utf8only '/C=DE/O=Müller, Söhne+OU=Büro/CN=Jürgen'
make t61 default '/C=DE/O=Bäckerei #1/CN=Jürgen Groß '
make bmp pkix '/C=FR/CN=Zoë <Ωmega>' ec:<(openssl ecparam -name prime256v1)

# cert --json and inspect --json against openssl.
for name in utf8 t61 bmp; do
  "$KOLVARI" cert --json "$name.pem" > "$name.json" || fail "kolvari cert $name"
  openssl x509 -in "$name.pem" -noout -subject -issuer -nameopt RFC2253,-esc_msb > "$name.names"
  openssl x509 -in "$name.pem" -noout -text > "$name.text"
  python3 - "$name" <<'PY' || fail "cert --json $name: $(cat "$name.json")"
import json, re, sys
name = sys.argv[1]
raw = open(name + ".json", "rb").read()
ours = json.loads(raw)
theirs = dict(line.split("=", 1) for line in open(name + ".names", encoding="utf-8").read().splitlines())

def rdns(text):  # RDNs, and within a multi-valued RDN the attributes as a set (neither side keeps an order)
    parts = re.split(r"(?<!\\),", text)
    return [frozenset(re.split(r"(?<!\\)\+", p)) for p in parts]

for key, label in (("subjectRfc4514", "subject"), ("issuerRfc4514", "issuer")):
    assert rdns(ours[key]) == rdns(theirs[label]), f"{key}: ours {ours[key]!r}, openssl {theirs[label]!r}"
text = open(name + ".text").read()
assert ours["signatureAlgorithmName"] == re.search(r"Signature Algorithm: (\S+)", text).group(1)
assert ours["publicKeyAlgorithm"] == re.search(r"Public Key Algorithm: (\S+)", text).group(1)
curve = re.search(r"ASN1 OID: (\S+)", text)
assert ours["publicKeyParameter"] == (curve.group(1) if curve else None), ours["publicKeyParameter"]
want = {"utf8": "Jürgen", "t61": "Jürgen Groß ", "bmp": "Zoë <Ωmega>"}[name]
cn = [n for n in ours["subjectNames"] if n["oid"] == "2.5.4.3"]
assert cn and cn[0]["text"] == want, cn
assert want.encode() in raw, "the UTF-8 text is not in the output as it is"
PY
done

# detect --json: a UTF-8 file name stays as it is, one that is not UTF-8 has U+FFFD and the JSON still parses.
cp utf8.pem "zertifikat-ü.pem"
cp utf8.pem "$(printf 'latin1-\xfc.pem')"
"$KOLVARI" detect --json "zertifikat-ü.pem" "$(printf 'latin1-\xfc.pem')" > detect.json || fail "detect"
python3 -c 'import json; rows = json.load(open("detect.json", encoding="utf-8"));
assert [r["file"] for r in rows] == ["zertifikat-ü.pem", "latin1-\ufffd.pem"], rows' || fail "detect: $(cat -v detect.json)"

# A PDF signed by NSS: BER with indefinite lengths in /Contents.
/usr/bin/python3 "$here/minimal_pdf.py" doc.pdf
mkdir nss
certutil -N -d sql:nss --empty-password
openssl pkcs12 -export -inkey utf8.key -in utf8.pem -name signer -passout pass: -out utf8.p12
pk12util -i utf8.p12 -d sql:nss -W "" > /dev/null
pdfsig -add-signature -nssdir sql:nss -nick signer doc.pdf nss.pdf > /dev/null 2>&1 || fail "pdfsig -add-signature"
grep -aq '/Contents <3080' nss.pdf || fail "pdfsig wrote no indefinite-length CMS; the test needs one"
"$KOLVARI" inspect --json nss.pdf > nss.json 2> nss.err || fail "inspect nss.pdf: $(cat nss.err)"
python3 - <<'PY' || fail "inspect nss.pdf: $(cat nss.json)"
import json
s = json.load(open("nss.json", encoding="utf-8"))["signatures"][0]
assert s["signer"] == "Jürgen" and s["problem"] is None and s["cms"]["type"] == "signedData", s
PY
# The same PDF with its CMS damaged: named with the field and the reason, exit status 1.
LC_ALL=C sed 's|/Contents <3080|/Contents <3180|' nss.pdf > damaged.pdf
status=0
"$KOLVARI" inspect damaged.pdf > /dev/null 2> damaged.err || status=$?
[ "$status" -eq 1 ] || fail "damaged.pdf: exit status $status"
grep -q "damaged.pdf: signature field .*: /Contents does not begin with a whole DER or BER SEQUENCE" damaged.err ||
  fail "damaged.pdf: $(cat damaged.err)"

# A visible signature: the appearance draws the name in WinAnsiEncoding.
sign_pdf --key utf8.key --cert utf8.pem --visible 1,50,50,300,60 \
  doc.pdf visible.pdf 2> /dev/null || fail "sign-pdf --visible"
pdftotext visible.pdf - | grep -q "^Digitally signed by Jürgen$" || fail "visible: $(pdftotext visible.pdf -)"

# Any script with --font: DejaVu Sans embedded as a Type0 font, its text read back through ToUnicode, the
# signature still valid; a cut font refused.
font=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf
[ -r "$font" ] || { echo "SKIP: $font (fonts-dejavu-core) is not installed"; exit 77; }
sign_pdf --key bmp.key --cert bmp.pem --visible 1,50,50,300,60 \
  --font "$font" --name 'Jürgen Δοκιμή Проверка' doc.pdf font.pdf 2> font.err || fail "--font: $(cat font.err)"
pdftotext font.pdf - | grep -qF "Digitally signed by Jürgen Δοκιμή Проверка" || fail "font: $(pdftotext font.pdf -)"
pdfsig font.pdf 2>&1 | grep -q "Signature is Valid" || fail "font.pdf: $(pdfsig font.pdf 2>&1)"
# A cut font is refused with the option named (every cut length: the TrueType reader's unit case).
head -c 100 "$font" > cut.ttf
refused 2 "kolvari sign-pdf: --font cut.ttf: " cut.pdf \
  sign_pdf --key utf8.key --cert utf8.pem --visible 1,50,50,300,60 --font cut.ttf doc.pdf cut.pdf

echo "names, JSON text, BER PDF and appearance text agree"
