#!/usr/bin/env bash
# `kolvari sign --pkcs11` against a real token: SoftHSM2 in a temporary directory holds an RSA and an EC key
# with their certificates; signatures made on it, one per file of a batch, verify with `openssl cms -verify`.
# Each way a token run can go wrong gives its own message and leaves no signature file behind; the batch
# writes no progress line into a pipe and signs on several sessions at once with the bytes of one. (The URI grammar and the r||s conversion: tests/tools/signing_test.cc.)
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
module=/usr/lib/softhsm/libsofthsm2.so
requires softhsm2-util pkcs11-tool "$module"

mkdir tokens
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' "$work" > softhsm2.conf
export SOFTHSM2_CONF=$work/softhsm2.conf
for token in demo bare; do
  softhsm2-util --init-token --free --label "$token" --pin 1234 --so-pin 87654321 >/dev/null
done

# A CA and two signers it issues; the keys go onto the token "demo" with their certificates (ids 01 and 02),
# and one more EC key, without a certificate, onto the token "bare".
make_test_ca "Kolvari Token CA"
put_on_token() {  # token, label, id, with certificate (yes/no), key options of make_signer
  local token=$1 label=$2 id=$3 with_cert=$4; shift 4
  make_signer "$label" "/CN=$label token signer" "$@"
  openssl x509 -in "$label.pem" -outform DER -out "$label.der"
  softhsm2-util --import "$label.key" --token "$token" --label "$label" --id "$id" --pin 1234 >/dev/null
  if [ "$with_cert" = yes ]; then
    pkcs11-tool --module "$module" --token-label "$token" --login --pin 1234 --write-object "$label.der" \
      --type cert --id "$id" --label "$label" >/dev/null 2>&1
  fi
}
put_on_token demo rsa 01 yes rsa:2048
put_on_token demo ec 02 yes ec:P-256
put_on_token bare lonely 03 no ec:P-256
# Without its public key object the token shows no public half of "lonely": whether a certificate belongs to it
# is told by a trial signature.
pkcs11-tool --module "$module" --token-label bare --login --pin 1234 --delete-object --type pubkey --id 03 \
  >/dev/null 2>&1
echo 1234 > pin.txt
for i in 1 2 3; do printf 'document %s\n' "$i" > "doc$i.txt"; done

signer=(--pkcs11-module "$module")

# Signing on the token: each signature verifies against the CA with the signer certificate from the token.
while IFS='|' read -r uri options; do
  rm -rf out
  mkdir out
  # shellcheck disable=SC2086  # options are words
  sign --pkcs11 "$uri" $options --out-dir out doc1.txt doc2.txt doc3.txt 2>err.txt || fail "$uri: $(cat err.txt)"
  for i in 1 2 3; do
    verifies "out/doc$i.txt.p7s" "doc$i.txt" || fail "$uri $options: doc$i does not verify: $(cat verify.err)"
  done
done <<'ROWS'
pkcs11:token=demo;object=rsa?pin-value=1234|
pkcs11:token=demo;object=rsa?pin-value=1234|--digest sha512
pkcs11:token=demo;id=%02?pin-source=file:pin.txt|
pkcs11:token=demo;object=ec;id=%02?pin-value=1234|--digest sha384 --attached
pkcs11:token=bare;object=lonely?pin-value=1234|--cert lonely.der
ROWS

# Each failure: exit status 1, its message, and no signature left behind.
while IFS='|' read -r expected uri options; do
  rm -rf out
  mkdir out
  # shellcheck disable=SC2086
  if sign --pkcs11 "$uri" $options --out-dir out doc1.txt 2>err.txt </dev/null; then status=0; else status=$?; fi
  [ "$status" -eq 1 ] || fail "$uri $options: exit status $status, not 1"
  grep -qF "$expected" err.txt || fail "$uri $options: '$(cat err.txt)', not '$expected'"
  [ -z "$(ls -A out)" ] || fail "$uri $options: left $(ls -A out)"
done <<'ROWS'
C_Login: CKR_PIN_INCORRECT|pkcs11:token=demo;object=rsa?pin-value=9999|
no private key on token demo matches|pkcs11:token=demo;object=missing?pin-value=1234|
cannot load the PKCS#11 module /no/such/module.so|pkcs11:token=demo;object=rsa?pin-value=1234&module-path=/no/such/module.so|--pkcs11-module /no/such/module.so
token bare holds no certificate for the key|pkcs11:token=bare;object=lonely?pin-value=1234|
no token absent present|pkcs11:token=absent;object=rsa?pin-value=1234|
token demo needs a PIN|pkcs11:token=demo;object=rsa|
key rsa on token demo does not belong to certificate ec.der|pkcs11:token=demo;object=rsa?pin-value=1234|--cert ec.der
key ec on token demo does not belong to certificate lonely.der|pkcs11:token=demo;object=ec?pin-value=1234|--cert lonely.der
key lonely on token bare does not belong to certificate ec.der|pkcs11:token=bare;object=lonely?pin-value=1234|--cert ec.der
ROWS

uri='pkcs11:token=demo;object=ec?pin-value=1234'
# --out writes through a symbolic link (as into /dev/stdout) rather than putting a file in its place; the file
# it names exists, so --force is needed.
touch target.p7s && ln -s target.p7s link.p7s
sign --pkcs11 "$uri" --force --out link.p7s doc1.txt 2>err.txt || fail "--out through a link: $(cat err.txt)"
[ -L link.p7s ] || fail "--out replaced the symbolic link"
verifies target.p7s doc1.txt ||
  fail "--out through a link does not verify: $(cat verify.err)"

# Four threads sign on sessions of their own: the same bytes as one thread (RSA on the token is deterministic).
# Into a pipe no progress line is written.
for i in $(seq 1 20); do echo "$i" > "many$i.txt"; done
for jobs in 1 4; do
  rm -rf "jobs$jobs" && mkdir "jobs$jobs"
  sign --pkcs11 'pkcs11:token=demo;object=rsa?pin-value=1234' --time 20240229120000Z --jobs "$jobs" \
    --out-dir "jobs$jobs" many*.txt 2>err.txt || fail "--jobs $jobs: $(cat err.txt)"
  [ ! -s err.txt ] || fail "--jobs $jobs: progress written into a pipe: $(cat err.txt)"
done
diff -r jobs1 jobs4 >/dev/null && [ "$(ls jobs4 | wc -l)" -eq 20 ] || fail "--jobs 4 on the token: not --jobs 1's bytes"

echo "pkcs11: passed"
