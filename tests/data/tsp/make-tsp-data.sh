#!/usr/bin/env bash
# Time-stamp tokens made by the openssl command alone: a CA, a TSA certificate, and replies with and without
# accuracy, ordering, nonce and TSA name. Each NAME.tsr is the reply, NAME.tst its token, NAME.txt what
# `openssl ts -reply -in NAME.tsr -text` reports. Usage: make-tsp-data.sh DIR (keys are thrown away).
set -euo pipefail
dir=$(cd "${1:?output folder}" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

key() { openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$1" 2>/dev/null; }
key ca.key
openssl req -x509 -new -key ca.key -subj "/C=DE/O=Kolvari Test/CN=Kolvari TSA CA" -days 3650 -out ca.pem 2>/dev/null
key tsa.key
openssl req -new -key tsa.key -subj "/C=DE/O=Kolvari Test/CN=Kolvari TSA" -out tsa.csr 2>/dev/null
printf 'extendedKeyUsage=critical,timeStamping\n' > tsa.ext
openssl x509 -req -in tsa.csr -CA ca.pem -CAkey ca.key -set_serial 0x7501 -days 3650 -extfile tsa.ext \
  -out tsa.pem 2>/dev/null

tsa_config() {  # accuracy ordering tsa_name
  cat <<CNF
[tsa]
default_tsa = tsa_config
[tsa_config]
dir = $work
serial = $work/serial
crypto_device = builtin
signer_cert = $work/tsa.pem
certs = $work/ca.pem
signer_key = $work/tsa.key
signer_digest = sha256
default_policy = 1.2.3.4.1
other_policies = 1.2.3.4.5
digests = sha1, sha256
ess_cert_id_alg = sha256
$1
ordering = $2
tsa_name = $3
CNF
}

printf 'The message that is time-stamped.\n' > message.txt
reply() {  # name serial nonce(yes/no) accuracy-line ordering tsa_name
  printf '%s\n' "$2" > serial
  tsa_config "$4" "$5" "$6" > "$1.cnf"
  local nonce=-no_nonce
  [ "$3" = yes ] && nonce=
  openssl ts -query -data message.txt -sha256 $nonce -cert -out "$1.tsq" 2>/dev/null
  openssl ts -reply -config "$1.cnf" -queryfile "$1.tsq" -out "$dir/$1.tsr" 2>/dev/null
  openssl ts -reply -in "$dir/$1.tsr" -token_out -out "$dir/$1.tst" 2>/dev/null
  openssl ts -reply -in "$dir/$1.tsr" -text > "$dir/$1.txt" 2>/dev/null
}
reply full 0A01 yes "accuracy = secs:1, millisecs:500, microsecs:100" yes yes
reply plain 0A02 no "" no no
reply millis 0A03 yes "accuracy = millisecs:7" no yes
