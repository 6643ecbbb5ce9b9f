# The loopback time-stamp authority, OCSP responder and CRL of tests/interop/ltv_server.py, and the files they
# serve, for the scripts that sign or verify against them (sourced; the caller defines fail and stops the
# server in its EXIT trap with stop_loopback_services, as tests/support/interop.sh does).
loopback_server_script=$(cd "$(dirname "${BASH_SOURCE[0]}")/../interop" && pwd)/ltv_server.py
server=

# Serves DIR on 127.0.0.1 at a port the system picks; sets server (the process) and base (its URL). The
# certificates the caller issues afterwards may name $base.
start_loopback_services() {  # DIR
  rm -f "$1/port"
  /usr/bin/python3 "$loopback_server_script" "$1" "$1/port" &
  server=$!
  for _ in $(seq 100); do
    [ -s "$1/port" ] && break
    kill -0 "$server" 2> /dev/null || fail "the loopback server did not start"
    sleep 0.1
  done
  [ -s "$1/port" ] || fail "the loopback server did not report its port"
  base=http://127.0.0.1:$(cat "$1/port")
}

stop_loopback_services() {
  if [ -n "$server" ]; then
    kill "$server" 2> /dev/null || true
    wait "$server" 2> /dev/null || true
    server=
  fi
}

# Starts the services on DIR (made here), enters DIR and writes x509.cnf: sections req, ca, tsa, ocsp and
# signer (a signing certificate that names the OCSP responder), then the caller's sections from standard input,
# where OpenSSL expands $base to the services' URL (a section named again adds its lines). Then issues the CA
# (/CN=NAME CA), the TSA's certificate (serial 2001, /CN=NAME TSA) and the OCSP responder's (2002, /CN=NAME
# OCSP Responder).
start_loopback_pki() {  # DIR NAME < SECTIONS
  local sections
  sections=$(cat)
  mkdir -p "$1"
  start_loopback_services "$1"
  cd "$1" || fail "cannot enter $1"
  cat > x509.cnf <<CNF
base = $base
[req]
distinguished_name = dn
[dn]
[ca]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
[tsa]
keyUsage = critical,digitalSignature
extendedKeyUsage = critical,timeStamping
[ocsp]
keyUsage = critical,digitalSignature
extendedKeyUsage = critical,OCSPSigning
[signer]
keyUsage = critical,digitalSignature,nonRepudiation
authorityInfoAccess = OCSP;URI:\$base/ocsp
$sections
CNF
  make_loopback_ca "/CN=$2 CA"
  issue_certificate tsa 2001 tsa "/CN=$2 TSA"
  issue_certificate ocsp 2002 ocsp "/CN=$2 OCSP Responder"
}

# In the current folder, with the x509.cnf the caller wrote: ca.key and ca.pem (section ca), then certificates
# issued by it (EC P-256 keys unless key options are given, as `openssl genpkey` takes them), valid for $days
# days (30 when unset).
make_loopback_ca() {  # SUBJECT
  openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out ca.key
  openssl req -x509 -new -key ca.key -subj "$1" -days 30 -config x509.cnf -extensions ca -out ca.pem
}
issue_certificate() {  # NAME SERIAL(hex) SECTION SUBJECT [KEY-OPTIONS...]
  local name=$1 serial=$2 section=$3 subject=$4
  shift 4
  [ $# -gt 0 ] || set -- -algorithm EC -pkeyopt ec_paramgen_curve:P-256
  openssl genpkey "$@" -out "$name.key" 2> /dev/null
  openssl req -new -key "$name.key" -subj "$subject" -config x509.cnf |
    openssl x509 -req -CA ca.pem -CAkey ca.key -set_serial "0x$serial" -days "${days:-30}" -extfile x509.cnf \
      -extensions "$section" -out "$name.pem" 2> /dev/null
}

# The CA's CRL, ca.crl (DER) and ca.crl.pem, over the index.txt the caller wrote, valid for DAYS days.
make_loopback_crl() {  # DAYS
  echo 01 > crlnumber
  cat > ca.cnf <<CNF
[ca]
default_ca = test
[test]
database = index.txt
crlnumber = crlnumber
default_md = sha256
default_crl_days = $1
certificate = ca.pem
private_key = ca.key
CNF
  openssl ca -gencrl -config ca.cnf -out ca.crl.pem 2> /dev/null
  openssl crl -in ca.crl.pem -outform DER -out ca.crl
}

# ts.cnf and its serial for `openssl ts -reply`: tsa.pem and tsa.key sign, ca.pem is sent along; DIGESTS are
# the hashes the authority grants, further config lines follow them.
write_tsa_config() {  # DIGESTS [LINES]
  echo 01 > tsaserial
  cat > ts.cnf <<CNF
[tsa]
default_tsa = tsa_config
[tsa_config]
serial = ./tsaserial
crypto_device = builtin
signer_cert = ./tsa.pem
certs = ./ca.pem
signer_key = ./tsa.key
signer_digest = sha256
default_policy = 1.2.3.4.1
digests = $1
ordering = no
ess_cert_id_alg = sha256
${2:-}
CNF
}
