#!/usr/bin/env bash
# `kolvari sign` (the plug-in through dlopen, OpenSSL doing the host's hashing and signing) against OpenSSL's
# CMS verifier: the PEM form, CRLs carried in the message, batches on several threads, and malformed values of
# the repeatable options.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
make_test_ca "Kolvari Interop CA"
make_signer rsa "/C=DE/O=Kolvari Interop/CN=rsa signer" rsa:2048
make_signer p256 "/C=DE/O=Kolvari Interop/CN=p256 signer" ec:P-256
make_signer p384 "/C=DE/O=Kolvari Interop/CN=p384 signer" ec:P-384

printf 'a short text to be signed\n' > content.txt

# The PEM form, attached, with the CA in the certificate set: OpenSSL verifies it and gives back the content;
# a changed byte of the embedded content fails. (Every signer, digest and detached or attached DER form, and
# a changed detached content: the rows of matrix.sh; the same bytes for a fixed --time: large_content.sh.)
"$KOLVARI" sign --key p384.key --cert p384.pem --chain ca.pem --digest sha512 --attached --pem --out attached.pem \
  content.txt || fail "kolvari sign --attached --pem"
openssl cms -verify -binary -inform PEM -in attached.pem -CAfile ca.pem -out extracted.txt 2>verify.err &&
  cmp -s extracted.txt content.txt || fail "the attached PEM signature: $(cat verify.err)"
openssl base64 -d -in attached.pem -out attached.der
flip attached.der "$(grep -boa 'a short text' attached.der | cut -d: -f1)"
if verifies attached.der; then fail "an attached signature verified changed content"; fi

# CRLs travel in the message: OpenSSL's CRL check finds them there. A CRL that revokes the signer makes the
# same check fail.
. "$here/../support/loopback_services.sh"  # make_loopback_crl, without the services
: > index.txt
make_loopback_crl 30 && mv ca.crl.pem clean.crl
"$KOLVARI" sign --key p256.key --cert p256.pem --crl clean.crl --out crl.der content.txt
openssl cms -verify -binary -crl_check -inform DER -in crl.der -content content.txt -CAfile ca.pem -out /dev/null \
  2>verify.err || { cat verify.err >&2; fail "the CRL carried in the message was not found"; }
openssl ca -config ca.cnf -revoke p256.pem 2>/dev/null
make_loopback_crl 30 && mv ca.crl.pem revoked.crl
"$KOLVARI" sign --key p256.key --cert p256.pem --crl clean.crl --crl revoked.crl \
  --out two.der content.txt
[ "$(openssl cms -cmsout -print -inform DER -in two.der | grep -c 'lastUpdate:')" -eq 2 ] || \
  fail "the two CRLs are not both in the message"
"$KOLVARI" sign --key p256.key --cert p256.pem --crl revoked.crl --out revoked.der \
  content.txt
if openssl cms -verify -binary -crl_check -inform DER -in revoked.der -content content.txt -CAfile ca.pem \
  -out /dev/null 2>/dev/null; then fail "a revoked signer was verified"; fi

# A batch on four threads writes the same bytes as on one, and names its failures in the order of the files
# (RSA PKCS #1 v1.5 signatures are deterministic; the time is fixed). The extra attribute's type is one the
# library has no name for, so its encoding depends on the OID converter's state between the threads' calls.
for i in $(seq 1 40); do printf 'batch document %s\n' "$i" > "batch$i.txt"; done
batch=(batch1.txt missing1.txt batch{2..20}.txt content.txt missing2.txt batch{21..40}.txt)
while IFS='|' read -r options; do
  for jobs in 1 4; do
    rm -rf "jobs$jobs" && mkdir "jobs$jobs"
    # shellcheck disable=SC2086  # options are words
    if "$KOLVARI" sign --key rsa.key --cert rsa.pem --chain ca.pem $options \
      --time 20240229120000Z --jobs "$jobs" --out-dir "jobs$jobs" "${batch[@]}" 2>"jobs$jobs.err"; then
      fail "--jobs $jobs $options: missing files gave status 0"
    fi
    sed -i "s/jobs$jobs/DIR/" "jobs$jobs.err"
  done
  diff -r jobs1 jobs4 >/dev/null || fail "--jobs 4 $options: outputs differ from --jobs 1"
  diff jobs1.err jobs4.err || fail "--jobs 4 $options: messages differ from --jobs 1"
  [ "$(ls jobs4 | wc -l)" -eq 41 ] || fail "--jobs 4 $options: $(ls jobs4 | wc -l) signatures, not 41"
done <<'ROWS'

--attached --pem
--signed-attr 1.3.6.1.4.1.99999.7=0c0474657374 --unsigned-attr 2.999.1=0500
ROWS

# Malformed values of the repeatable options are usage errors (exit 2), before any file is read.
for bad in "--signer rsa.key" "--signer ,rsa.pem" "--signer rsa.key," "--signed-attr 1.2.3=050" \
           "--signed-attr =0500" "--signed-attr 1.2.3" "--unsigned-attr 1.2.3=0G" "--unsigned-attr 1.2.3="; do
  # shellcheck disable=SC2086  # the option and its value are two words
  refused 2 "kolvari sign: ${bad%% *}" none.p7s sign --key rsa.key --cert rsa.pem $bad --out none.p7s content.txt
done

echo "sign and verify: passed"
