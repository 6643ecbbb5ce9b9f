#!/usr/bin/env bash
# Signs PDFs from several producers with `kolvari sign-pdf`, once and twice, and holds the results against
# poppler's pdfsig and qpdf: every signature valid, the last one covering the whole file, qpdf --check clean,
# and the input a prefix of the output; a batch of them into --out-dir on two threads.
# `kolvari inspect` lists the signatures of a twice-signed file. A prepared empty signature field is filled
# in place; signed, non-signature and dotted field names are refused. (The update's own arithmetic: the unit
# cases of tests/tools/pdf_update_test.cc.)
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
requires pdfsig qpdf ps2pdf
make_test_ca "Kolvari PDF CA"
make_signer rsa "/O=Kolvari Interop/CN=rsa PDF signer" rsa:2048
make_signer ec "/O=Kolvari Interop/CN=ec PDF signer" ec:P-256

# "table" or "stream": the form of the cross-reference section the file's last startxref points at.
xref_form() {
  python3 -c 'import sys, re; d = open(sys.argv[1], "rb").read(); at = int(re.findall(rb"startxref\s+(\d+)", d)[-1])
print("table" if d[at:].lstrip().startswith(b"xref") else "stream")' "$1"
}

# The producers. A hand-written classic PDF (xref table, offsets counted here) and one with a form field,
# qpdf's object streams and cross-reference stream made from the first, and ghostscript.
python3 - "$here" <<'PY'
import sys
sys.dont_write_bytecode = True  # nothing written into the source tree
sys.path.insert(0, sys.argv[1])
from minimal_pdf import write

text = b"BT /F1 24 Tf 72 760 Td (A hand-written classic PDF) Tj ET"
page = (b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Contents 4 0 R"
        b" /Resources << /Font << /F1 5 0 R >> >>%s >>")
common = [
    b"<< /Type /Catalog /Pages 2 0 R%s >>",
    b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
    page,
    b"<< /Length %d >>\nstream\n%s\nendstream" % (len(text), text),
    b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
]
classic = list(common)
classic[0] %= b""
classic[2] %= b""
write("classic.pdf", classic)
# A form with a text field already: /AcroForm, its /Fields and the page's /Annots all indirect.
form = list(common)
form[0] %= b" /AcroForm 6 0 R"
form[2] %= b" /Annots 8 0 R"
form += [
    b"<< /Fields 7 0 R /DA (/Helv 0 Tf 0 g) >>",
    b"[9 0 R]",
    b"[9 0 R]",
    b"<< /Type /Annot /Subtype /Widget /FT /Tx /T (Comment) /V (kept) /Rect [72 600 300 630] /P 3 0 R >>",
]
write("form.pdf", form)
PY
qpdf --object-streams=generate classic.pdf objstm.pdf
printf '%%!PS\n/Helvetica findfont 20 scalefont setfont 72 700 moveto (Made by ghostscript) show showpage\n' > gs.ps
ps2pdf gs.ps gs.pdf
producers=(classic form objstm gs)
[ "$(xref_form objstm.pdf)" = stream ] || fail "objstm.pdf has a cross-reference table, not a stream"

# pdfsig's verdict on every signature: each valid, the last covering the whole document.
check_signed() {  # file, expected number of signatures
  local file=$1 count=$2
  pdfsig -nocert "$file" >sig.txt 2>&1 || fail "$file: pdfsig exits with $?: $(cat sig.txt)"
  [ "$(grep -c 'Signature is Valid' sig.txt)" -eq "$count" ] || fail "$file: not $count valid signature(s): $(cat sig.txt)"
  [ "$(grep -c '^Signature #' sig.txt)" -eq "$count" ] || fail "$file: not $count signature(s): $(cat sig.txt)"
  grep 'document signed' sig.txt | tail -1 | grep -q 'Total document signed' ||
    fail "$file: the last signature does not cover the whole document: $(cat sig.txt)"
  qpdf --check "$file" >check.txt 2>&1 || fail "$file: qpdf --check: $(cat check.txt)"
}

for producer in "${producers[@]}"; do
  in=$producer.pdf
  "$KOLVARI" sign-pdf --key rsa.key --cert rsa.pem --chain ca.pem \
    --reason "Approved" --location "Berlin" --name "RSA Signer" "$in" "$producer-1.pdf" ||
    fail "$in: sign-pdf exits with $?"
  is_prefix "$in" "$producer-1.pdf"
  check_signed "$producer-1.pdf" 1
  # The update keeps the form of the file's last cross-reference section.
  [ "$(xref_form "$producer-1.pdf")" = "$(xref_form "$in")" ] || fail "$producer-1.pdf: the update changed the xref form"

  # An existing form keeps its field: the rewritten /Fields and /Annots hold the text field and the new one.
  if [ "$producer" = form ]; then
    for array in 7 8; do
      qpdf --show-object=$array "$producer-1.pdf" | grep -Eq '^\[ 9 0 R [0-9]+ 0 R \]$' ||
        fail "form-1.pdf: object $array is $(qpdf --show-object=$array "$producer-1.pdf")"
    done
  fi

  # A second signature, EC and visible, keeps the first one valid.
  "$KOLVARI" sign-pdf --key ec.key --cert ec.pem --chain ca.pem --digest sha384 \
    --visible 1,50,50,220,50 --document-order "$producer-1.pdf" "$producer-2.pdf" ||
    fail "$producer-1.pdf: the second sign-pdf exits with $?"
  is_prefix "$producer-1.pdf" "$producer-2.pdf"
  check_signed "$producer-2.pdf" 2

  # kolvari inspect lists both: fields, signers, byte ranges (only the last covers the file) and the CMS.
  "$KOLVARI" inspect --json "$producer-2.pdf" >inspect.json || fail "$producer-2.pdf: inspect exits with $?"
  json_holds inspect.json '[[s[k] for s in d["signatures"]] for k in ("field", "signer", "coversWholeFile")] == [
    ["Signature1", "Signature2"], ["rsa PDF signer", "ec PDF signer"], [False, True]] and
    all(s["cms"]["type"] == "signedData" and s["subFilter"] == "/ETSI.CAdES.detached" for s in d["signatures"])'
done

# Prepared empty signature fields, one whose widget is merged with the field dictionary and one with a separate
# widget under /Kids, each beside a text field. Signing into one fills it: its dictionary (same number) takes
# /V, its widget stays on the page with its rectangle, and the form lists the same two fields.
python3 - "$here" <<'PY'
import sys
sys.dont_write_bytecode = True
sys.path.insert(0, sys.argv[1])
from minimal_pdf import write

head = [
    b"<< /Type /Catalog /Pages 2 0 R /AcroForm 4 0 R >>",
    b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
    b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Annots [5 0 R 6 0 R] >>",
    b"<< /Fields [%s 6 0 R] /DA (/Helv 0 Tf 0 g) >>",
]
text = b"<< /Type /Annot /Subtype /Widget /FT /Tx /T (Comment) /V (kept) /Rect [72 500 300 530] /P 3 0 R >>"
merged = list(head)
merged[3] %= b"5 0 R"
merged += [b"<< /Type /Annot /Subtype /Widget /FT /Sig /T (Approval) /F 4 /Rect [72 600 272 650] /P 3 0 R >>", text]
write("sigfield-merged.pdf", merged)
kids = list(head)
kids[3] %= b"7 0 R"
kids += [b"<< /Type /Annot /Subtype /Widget /Parent 7 0 R /F 4 /Rect [72 600 272 650] /P 3 0 R >>", text,
         b"<< /FT /Sig /T (Approval) /Kids [5 0 R] >>"]
write("sigfield-kids.pdf", kids)
PY
for layout in merged:5 kids:7; do
  in=sigfield-${layout%:*}.pdf field=${layout#*:}
  rm -f filled.pdf
  "$KOLVARI" sign-pdf --key rsa.key --cert rsa.pem --chain ca.pem --field Approval \
    "$in" filled.pdf 2>err.txt || fail "$in: sign-pdf --field Approval exits with $?: $(cat err.txt)"
  is_prefix "$in" filled.pdf
  check_signed filled.pdf 1
  grep -q 'Signature Field Name: Approval' sig.txt || fail "$in: pdfsig names another field: $(cat sig.txt)"
  # The update into a file first: grep -q would end a pipe early and fail tail under pipefail.
  tail -c +"$(($(stat -c %s "$in") + 1))" filled.pdf > update.bin
  grep -aq "^$field 0 obj" update.bin ||
    fail "$in: the field object $field is not rewritten in the update"
  qpdf --show-object="$field" filled.pdf | grep -Eq '/T \(Approval\) .*/V [0-9]+ 0 R|/V [0-9]+ 0 R.*/T \(Approval\)' ||
    fail "$in: field $field is $(qpdf --show-object="$field" filled.pdf)"
  qpdf --show-object=4 filled.pdf | grep -Eq "^<< /DA \(/Helv 0 Tf 0 g\) /Fields \[ $field 0 R 6 0 R \] /SigFlags 3 >>$" ||
    fail "$in: the form is $(qpdf --show-object=4 filled.pdf)"
  qpdf --show-object=3 filled.pdf | grep -q '/Annots \[ 5 0 R 6 0 R \]' || fail "$in: the page's widgets changed"
  qpdf --show-object=5 filled.pdf | grep -q '/Rect \[ 72 600 272 650 \]' || fail "$in: the widget moved"

  # Refused, no output, each with its reason: the field already signed, a text field, a visible box of our
  # own for a field that has its widget (a name with a period: help.sh and the unit cases).
  while IFS='|' read -r source name option status reason; do
    # shellcheck disable=SC2086  # the option and its value are words, or none
    refused "$status" "$reason" out.pdf sign_pdf --key rsa.key --cert rsa.pem --field "$name" $option "$source" out.pdf
  done <<ROWS
filled.pdf|Approval||1|the field Approval is already signed
$in|Comment||1|the field Comment is not a signature field (/FT /Tx)
$in|Approval|--visible 1,10,10,100,40|1|--visible: the field Approval has its own widget
ROWS
done

# Refused inputs, no output file: encrypted, and a file whose cross-reference table is cut off. (A startxref
# out of the file and bytes before the header are unit cases.)
qpdf --encrypt user owner 256 -- classic.pdf encrypted.pdf
head -c 500 classic.pdf > broken.pdf
signer=(--key rsa.key --cert rsa.pem)
refused 1 "kolvari sign-pdf: encrypted.pdf: " out.pdf sign_pdf encrypted.pdf out.pdf
refused 1 "kolvari sign-pdf: broken.pdf: " out.pdf sign_pdf broken.pdf out.pdf

# A batch on two threads into --out-dir: the good PDFs signed under their own names, the two bad ones reported
# in the order given and skipped, then the summary line and exit status 1. Three PDFs without it are refused.
mkdir batch
status=$(status_of sign_pdf --jobs 2 --out-dir batch classic.pdf encrypted.pdf form.pdf broken.pdf gs.pdf)
[ "$status" -eq 1 ] || fail "the batch exits with $status: $(cat err.txt)"
[ "$(cut -d: -f2 err.txt | tr '\n' '|')" = " encrypted.pdf| broken.pdf| 2 of 5 PDFs not signed (each named above); the other 3 signed PDFs are whole in batch|" ] ||
  fail "the batch says: $(cat err.txt)"
for producer in classic form gs; do
  is_prefix "$producer.pdf" "batch/$producer.pdf"
  check_signed "batch/$producer.pdf" 1
done
[ ! -e batch/encrypted.pdf ] && [ ! -e batch/broken.pdf ] || fail "the batch wrote a failed PDF"
refused 2 "kolvari sign-pdf: more than IN.pdf OUT.pdf needs --out-dir DIR" out.pdf sign_pdf classic.pdf gs.pdf out.pdf

echo "sign_pdf: passed"
