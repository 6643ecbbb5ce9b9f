#!/usr/bin/env bash
# Keys as users keep them, for `kolvari sign` and `kolvari sign-pdf` (which open them with the same code): a
# key that is not the certificate's is refused before anything is written; encrypted keys (traditional PEM,
# PKCS #8 in PEM and DER) open with each --pass form, or a prompt on a terminal; PKCS #12 files give the key,
# the certificate and the chain.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
make_test_ca "Kolvari Keys CA"
make_signer rsa "/CN=rsa keys signer" rsa:2048
make_signer ec "/CN=ec keys signer" ec:P-256
make_signer ec2 "/CN=second ec keys signer" ec:P-256
printf 'a document\n' > doc.txt
/usr/bin/python3 "$here/minimal_pdf.py" doc.pdf

# The encrypted keys: AES-256, the pass phrase "secret"; pass.txt holds it on its first line only.
openssl rsa -in rsa.key -aes256 -traditional -passout pass:secret -out rsa_trad.key 2>/dev/null
openssl pkey -in rsa.key -aes256 -passout pass:secret -out rsa_p8.key
openssl pkcs8 -topk8 -in ec.key -v2 aes-256-cbc -passout pass:secret -outform DER -out ec_p8.der
openssl ec -in ec.key -aes128 -passout pass:secret -out ec_trad.key 2>/dev/null
grep -q 'Proc-Type: 4,ENCRYPTED' rsa_trad.key && grep -q 'ENCRYPTED PRIVATE KEY' rsa_p8.key ||
  fail "openssl did not write the encrypted keys expected"
printf 'secret\nnot the pass phrase\n' > pass.txt
export KOLVARI_TEST_PASS=secret
openssl pkcs12 -export -inkey ec.key -in ec.pem -certfile ca.pem -passout pass:p12secret -out ec.p12
openssl pkcs12 -export -inkey rsa.key -in rsa.pem -passout pass: -out open.p12
openssl pkcs12 -export -inkey ec.key -nocerts -passout pass:p12secret -out keyonly.p12 2>/dev/null

verify() {  # signature, [content]
  verifies "$1" "${2:-doc.txt}" || fail "$1 does not verify: $(cat verify.err)"
}

# Refused before anything is written, each with its message and exit status 1: a key that is not the
# certificate's (whichever signer it is; the signers are loaded once, before any input, for a batch too), a
# wrong or missing pass phrase or one whose source cannot be read, and PKCS #12 files that do not give a key
# with its certificate. sign and sign-pdf open their keys with the same code (openSigner): sign-pdf's row
# shows that it refuses before writing.
while IFS='|' read -r command expected options; do
  # shellcheck disable=SC2086  # options are words
  case $command in
    sign) refused 1 "$expected" out.p7s sign $options --out out.p7s doc.txt ;;
    pdf) refused 1 "$expected" out.pdf sign_pdf $options doc.pdf out.pdf ;;
  esac
done <<'ROWS'
sign|key rsa.key does not belong to certificate ec.pem|--key rsa.key --cert ec.pem
sign|key ec2.key does not belong to certificate ec.pem|--key ec2.key --cert ec.pem
sign|key rsa.key does not belong to certificate ec.pem|--key ec.key --cert ec.pem --signer rsa.key,ec.pem
pdf|key ec.key does not belong to certificate rsa.pem|--key ec.key --cert rsa.pem
sign|wrong pass phrase for rsa_trad.key|--key rsa_trad.key --cert rsa.pem --pass pass:wrong
sign|wrong pass phrase for ec_trad.key|--key ec.key --cert ec.pem --signer ec_trad.key,ec.pem --pass stdin
sign|rsa_p8.key is encrypted and there is no terminal to ask on: give --pass|--key rsa_p8.key --cert rsa.pem
sign|--pass env:KOLVARI_UNSET_PASS: KOLVARI_UNSET_PASS is not set|--key rsa_p8.key --cert rsa.pem --pass env:KOLVARI_UNSET_PASS
sign|--pass file:missing.txt: cannot read missing.txt|--key rsa_p8.key --cert rsa.pem --pass file:missing.txt
sign|wrong pass phrase for ec.p12|--p12 ec.p12 --pass pass:wrong
sign|ec.p12 is encrypted and there is no terminal to ask on|--p12 ec.p12
sign|keyonly.p12 holds no certificate for its key (give --cert)|--p12 keyonly.p12 --pass pass:p12secret
sign|key keyonly.p12 does not belong to certificate rsa.pem|--p12 keyonly.p12 --pass pass:p12secret --cert rsa.pem
sign|rsa.pem is not a PKCS #12 file|--p12 rsa.pem --pass pass:x
ROWS

# Each --pass form opens each kind of encrypted key; the signature verifies. Every run has pass.txt on standard
# input and on descriptor 3, for the stdin and fd: forms.
while IFS='|' read -r key cert source; do
  rm -f out.p7s
  sign --key "$key" --cert "$cert" --pass "$source" --out out.p7s doc.txt <pass.txt 3<pass.txt 2>err.txt ||
    fail "$key --pass $source: $(cat err.txt)"
  verify out.p7s
done <<'ROWS'
rsa_trad.key|rsa.pem|pass:secret
rsa_p8.key|rsa.pem|env:KOLVARI_TEST_PASS
ec_p8.der|ec.pem|file:pass.txt
ec_trad.key|ec.pem|fd:3
rsa_p8.key|rsa.pem|stdin
ROWS
# One --pass serves every encrypted key of the run, even from standard input, which can be read only once.
rm -f out.p7s
sign --key rsa_p8.key --cert rsa.pem --signer ec_trad.key,ec.pem --pass stdin --out out.p7s doc.txt <pass.txt ||
  fail "two encrypted keys with --pass stdin"
verify out.p7s

# A --pass that is none of the forms is a usage error.
for bad in secret pass fd:x file: env:; do
  refused 2 "--pass $bad" out2.p7s sign --key rsa_p8.key --cert rsa.pem --pass "$bad" --out out2.p7s doc.txt
done

# On a terminal the pass phrase is asked for and not echoed (the pause lets the prompt turn echo off first).
rm -f out.p7s
shown=$( (sleep "${KOLVARI_PIN_WAIT:-1}"; printf 'secret\r') | script -qec "'$KOLVARI' sign \
  --key rsa_p8.key --cert rsa.pem --out out.p7s doc.txt" /dev/null) || true
grep -q 'Enter pass phrase for rsa_p8.key:' <<<"$shown" && [ -s out.p7s ] || fail "the pass phrase prompt: $shown"
! grep -q secret <<<"$shown" || fail "the pass phrase was echoed: $shown"
verify out.p7s

# PKCS #12: the key, the certificate and the chain from the file; --cert gives the signer certificate of a file
# that holds none.
while IFS='|' read -r certificates options; do
  rm -f out.p7s
  # shellcheck disable=SC2086
  sign $options --out out.p7s doc.txt 2>err.txt || fail "$options: $(cat err.txt)"
  verify out.p7s
  count=$(openssl pkcs7 -inform DER -in out.p7s -print_certs | grep -c '^subject=')
  [ "$count" -eq "$certificates" ] || fail "$options: $count certificates in the SignedData, not $certificates"
done <<'ROWS'
2|--p12 ec.p12 --pass pass:p12secret
1|--p12 open.p12
ROWS
rm -f out.p7s
KOLVARI_TEST_PASS=p12secret sign --p12 keyonly.p12 --pass env:KOLVARI_TEST_PASS --cert ec.pem --out out.p7s doc.txt ||
  fail "a PKCS #12 file without a certificate, with --cert"
verify out.p7s
echo "keys: passed"
