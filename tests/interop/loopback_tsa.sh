#!/usr/bin/env bash
# The README's offline way of trying time stamps and revocation: scripts/loopback_tsa.sh serves a time-stamp
# authority and an OCSP responder on 127.0.0.1; `kolvari sign --tsa ... --fetch-revocation` with the signer it
# made must give a signature that `openssl cms -verify` accepts and whose token `openssl ts -verify` accepts.
# The script is always stopped, and it stops by itself after a bounded time as well.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
services=
trap '[ -z "$services" ] || { kill "$services"; wait "$services"; } 2>/dev/null || true; rm -rf "$work"' EXIT

KOLVARI_LOOPBACK_SECONDS=120 bash "$here/../../scripts/loopback_tsa.sh" "$work/pki" > "$work/services.txt" 2>&1 &
services=$!
for _ in $(seq 300); do
  grep -q '^ready$' "$work/services.txt" 2> /dev/null && break
  kill -0 "$services" 2> /dev/null || { cat "$work/services.txt" >&2; fail "loopback_tsa.sh ended early"; }
  sleep 0.1
done
grep -q '^ready$' "$work/services.txt" || fail "loopback_tsa.sh did not get ready"
tsa=$(sed -n 's/^time-stamp authority: //p' "$work/services.txt")
case "$tsa" in http://127.0.0.1:*/tsa) ;; *) fail "unexpected authority URL '$tsa'" ;; esac

echo "a document signed against the loopback services" > doc.txt
"$KOLVARI" sign --key pki/signer.key --cert pki/signer.pem --chain pki/ca.pem \
  --tsa "$tsa" --fetch-revocation --tsa-timeout 20 --out doc.p7s doc.txt ||
  fail "kolvari sign against the loopback services"
openssl cms -verify -binary -inform DER -in doc.p7s -content doc.txt -CAfile pki/ca.pem -purpose any \
  -out /dev/null 2> verify.log || { cat verify.log >&2; fail "openssl cms -verify"; }
"$KOLVARI" inspect --json doc.p7s > inspect.json || fail "kolvari inspect"
json_holds inspect.json '[t["imprintMatches"] for t in d["signerInfos"][0]["timeStampTokens"]] == [True] and
  d["signerInfos"][0]["revocationValues"]["ocspResponses"]'
echo "loopback services: signature with token and revocation values verified"
