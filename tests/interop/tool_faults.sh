#!/usr/bin/env bash
# What a new user of `kolvari` runs into: a directory or a device as input (alone and in an --out-dir batch),
# a signing time in the short form, an output that exists or is the input itself. (The order of the
# signed attributes, DER by default and --document-order: the rows of matrix.sh, where GnuTLS and
# BouncyCastle accept DER order only.)
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
make_test_ca "Kolvari Faults CA"
make_signer p256 "/CN=faults signer" ec:P-256
signer=(--key p256.key --cert p256.pem)
printf 'first\n' > a.txt
printf 'second\n' > b.txt
mkdir dir.txt
python3 "$here/minimal_pdf.py" in.pdf

# ---- a directory or a device as input: one line naming it, status 1, never an abort ----
while IFS='|' read -r expected args; do
  # shellcheck disable=SC2086  # the arguments are words
  status=$(status_of "$KOLVARI" $args)
  [ "$status" -eq 1 ] || fail "kolvari $args: exit status $status, not 1"
  [ "$(cat err.txt)" = "$expected" ] || fail "kolvari $args: says '$(cat err.txt)', not '$expected'"
done <<ROWS
kolvari sign: dir.txt: is a directory|sign --key p256.key --cert p256.pem dir.txt
kolvari sign: dir.txt: is a directory|sign --key dir.txt --cert p256.pem a.txt
kolvari sign: /dev/null: is a device|sign --key p256.key --cert p256.pem /dev/null
kolvari sign-pdf: dir.txt: is a directory|sign-pdf --key p256.key --cert p256.pem dir.txt out.pdf
kolvari der: dir.txt: is a directory|der dir.txt
ROWS
[ ! -e out.pdf ] || fail "sign-pdf of a directory wrote out.pdf"

# In a batch the directory is reported and skipped; the files around it are signed.
mkdir out
status=$(status_of sign --out-dir out a.txt dir.txt b.txt)
[ "$status" -eq 1 ] || fail "batch with a directory: exit status $status, not 1"
grep -qx 'kolvari sign: dir.txt: is a directory' err.txt || fail "batch: the directory is not named: $(cat err.txt)"
grep -q '1 of 3 files not signed' err.txt || fail "batch: no summary: $(cat err.txt)"
for f in a b; do verifies out/$f.txt.p7s $f.txt || fail "batch: $f.txt not signed: $(cat verify.err)"; done
[ ! -e out/dir.txt.p7s ] || fail "batch: a signature for the directory"

# ---- --time: the short form takes the UTCTime century into the signing-time attribute (the calendar's rules:
# tests/tools/signing_test.cc; a usage error: help.sh) ----
sign --time 990501090307Z --out t.der a.txt 2>err.txt || fail "--time 990501090307Z: $(cat err.txt)"
openssl asn1parse -inform DER -in t.der | grep -q 'GENERALIZEDTIME *:19990501090307Z' ||
  fail "--time 990501090307Z: the signature holds $(openssl asn1parse -inform DER -in t.der | grep -E 'TIME')"

# ---- outputs: an existing one only with --force, the input itself never (tests/tools/signing_test.cc has
# the other names of the input) ----
sign --out a.p7s a.txt 2>err.txt || fail "first --out: $(cat err.txt)"
sign_pdf in.pdf signed.pdf 2>err.txt || fail "sign-pdf: $(cat err.txt)"
cp in.pdf keep.pdf
cp a.txt a-copy.txt
while IFS='|' read -r message output command; do
  before=$(cksum < "$output")
  # shellcheck disable=SC2086  # the command is words
  [ "$(status_of $command)" -eq 1 ] && grep -qx "$message" err.txt || fail "$command: $(cat err.txt)"
  [ "$(cksum < "$output")" = "$before" ] || fail "$command changed $output"
done <<'ROWS'
kolvari sign: a.p7s exists (--force replaces it)|a.p7s|sign --out a.p7s b.txt
kolvari sign-pdf: signed.pdf exists (--force replaces it)|signed.pdf|sign_pdf in.pdf signed.pdf
kolvari sign-pdf: in.pdf is the input in.pdf itself|in.pdf|sign_pdf --force in.pdf in.pdf
kolvari sign: a.txt is the input a.txt itself|a.txt|sign --force --out a.txt a.txt
ROWS
sign --force --out a.p7s b.txt 2>err.txt && verifies a.p7s b.txt || fail "--force --out: $(cat err.txt)"
sign_pdf --force in.pdf signed.pdf 2>err.txt || fail "sign-pdf --force: $(cat err.txt)"

echo "tool faults: passed"
