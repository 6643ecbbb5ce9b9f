#!/bin/bash
# Regenerates the files of this folder, one for each content type the detector reports that the asn1crypto
# fixtures do not already give. Keys and times are made afresh on every run; the detector only looks at the
# leading bytes and the first elements, which the commands fix. Run from this folder; needs openssl, zip and
# ghostscript (ps2pdf, gs).
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Structures written directly from their description (see the comment at the top of each .cnf).
for conf in env119 env119-originator sae116; do
  openssl asn1parse -genconf "$conf.cnf" -out "$conf.der" > /dev/null
done

# 300 bytes of text: enough content for a long-form outer length.
head -c 300 ../asn1crypto/LICENSE > "$work/content.txt"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/key.pem" \
  -out "$work/cert.pem" -subj "/CN=Kolvari Detect Test" -days 3650 2> /dev/null
openssl cms -data_create -in "$work/content.txt" -outform DER -out data.p7
openssl cms -digest_create -in "$work/content.txt" -outform DER -out digested.p7
openssl cms -sign -in "$work/content.txt" -signer "$work/cert.pem" -inkey "$work/key.pem" -outform DER \
  -out detached.p7

# A CRL in PEM, from a minimal CA database.
touch "$work/index.txt"
echo 01 > "$work/crlnumber"
cat > "$work/ca.cnf" <<CONF
[ca]
default_ca = ca_default
[ca_default]
database = $work/index.txt
crlnumber = $work/crlnumber
default_md = sha256
default_crl_days = 3650
certificate = $work/cert.pem
private_key = $work/key.pem
CONF
openssl ca -config "$work/ca.cnf" -gencrl -out crl.pem 2> /dev/null

# A time-stamp token from a TSA key whose certificate has the critical timeStamping usage.
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/tsa.key" \
  -out "$work/tsa.pem" -subj "/CN=Kolvari Detect TSA" -days 3650 \
  -addext "extendedKeyUsage=critical,timeStamping" 2> /dev/null
echo 01 > "$work/tsaserial"
cat > "$work/tsa.cnf" <<CONF
[tsa]
default_tsa = tsa_config
[tsa_config]
serial = $work/tsaserial
signer_cert = $work/tsa.pem
signer_key = $work/tsa.key
signer_digest = sha256
default_policy = 1.2.3.4.1
digests = sha256
ess_cert_id_alg = sha256
CONF
openssl ts -query -data "$work/content.txt" -sha256 -cert -out "$work/query.tsq"
openssl ts -reply -config "$work/tsa.cnf" -queryfile "$work/query.tsq" -token_out -out timestamp-token.der > /dev/null 2>&1

# A PDF and a TIFF of one page of PostScript, and a ZIP archive.
printf '%%!PS\n/Helvetica findfont 12 scalefont setfont 72 720 moveto (Kolvari detect test) show showpage\n' \
  > "$work/page.ps"
ps2pdf "$work/page.ps" page.pdf
gs -q -dBATCH -dNOPAUSE -dSAFER -sDEVICE=tiffg4 -r36 -sOutputFile=page.tif "$work/page.ps"
(cd "$work" && zip -q -X archive.zip content.txt)
cp "$work/archive.zip" archive.zip
