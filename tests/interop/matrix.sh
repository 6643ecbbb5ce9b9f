#!/bin/bash
# The interoperability matrix: signatures made by `kolvari sign` through the plug-in in the tool's default DER
# order, and the case with every attribute once more in the library's order (--document-order), checked by four
# independent verifiers (OpenSSL, GnuTLS, NSS, BouncyCastle). Prints one row per signature and one column per
# verifier, and fails when any cell differs from matrix.expected beside this script. The throw-away PKI: an RSA
# root, RSA / P-256 / P-384 signers under it, a P-256 intermediate with an RSA signer under it, a CRL of each CA.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
expected="$here/matrix.expected"

# The verifiers come from Debian packages (scripts/deps.sh installs them); without one the matrix is skipped.
requires openssl certtool cmsutil certutil javac java ${bc_classpath//:/ }

# ---- the test PKI ----
cat > x509.cnf <<'EOF'
[req]
distinguished_name = dn
[dn]
[ca]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
[leaf]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature,nonRepudiation
extendedKeyUsage = emailProtection
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
EOF
newkey() {  # newkey NAME rsa|P-256|P-384
  if [ "$2" = rsa ]; then set -- "$1" RSA rsa_keygen_bits:2048; else set -- "$1" EC "ec_paramgen_curve:$2"; fi
  openssl genpkey -algorithm "$2" -pkeyopt "$3" -out "$1.key" 2>/dev/null
}
issue() {  # issue NAME KEYTYPE SUBJECT ISSUER SERIAL ca|leaf
  newkey "$1" "$2"
  openssl req -new -key "$1.key" -subj "$3" -config x509.cnf -out "$1.csr"
  openssl x509 -req -in "$1.csr" -CA "$4.pem" -CAkey "$4.key" -set_serial "$5" -days 30 \
    -extfile x509.cnf -extensions "$6" -out "$1.pem" 2>/dev/null
}
crl() {  # crl CA: an empty CRL of that CA as CA.crl
  mkdir -p "db-$1" && : > "db-$1/index.txt" && echo 01 > "db-$1/crlnumber"
  printf '[ca]\ndefault_ca = this\n[this]\ndatabase = %s\ncrlnumber = %s\ndefault_md = sha256\ndefault_crl_days = 30\n' \
    "$work/db-$1/index.txt" "$work/db-$1/crlnumber" > "db-$1/ca.cnf"
  openssl ca -gencrl -config "db-$1/ca.cnf" -keyfile "$1.key" -cert "$1.pem" -out "$1.crl" 2>/dev/null
}
newkey root rsa
openssl req -x509 -new -key root.key -subj "/CN=Kolvari Matrix Root" -days 30 -config x509.cnf -extensions ca \
  -out root.pem
issue rsa rsa "/C=DE/O=Kolvari/CN=Matrix RSA Signer" root 0x101 leaf
issue p256 P-256 "/C=DE/O=Kolvari/CN=Matrix P-256 Signer" root 0x102 leaf
issue p384 P-384 "/C=DE/O=Kolvari/CN=Matrix P-384 Signer" root 0x103 leaf
issue sub P-256 "/C=DE/O=Kolvari/CN=Matrix Intermediate CA" root 0x104 ca
issue chained rsa "/C=DE/O=Kolvari/CN=Matrix Chained Signer" sub 0x201 leaf
crl root
crl sub
printf 'Kolvari interoperability matrix\nsecond line, and a byte of every kind: \001\377\n' > doc.txt

# ---- the cases: name, then the options of kolvari sign (the file and --out are added) ----
# Extra attributes: a private-arc signed attribute holding a UTF8String, and an unsigned one holding an
# OCTET STRING; the signed one sorts last by its type's text but in the middle by its encoding.
signed_attr=1.3.6.1.4.1.47731.2=0C106D617472697820617474726962757465
unsigned_attr=1.3.6.1.4.1.47731.3=04080102030405060708
cases=(
  "rsa-sha256-detached|--key rsa.key --cert rsa.pem --digest sha256"
  "p256-sha256-attached|--key p256.key --cert p256.pem --digest sha256 --attached"
  "p384-sha384-attached|--key p384.key --cert p384.pem --digest sha384 --attached"
  "two-signers-p384-rsa-attached|--key p384.key --cert p384.pem --signer rsa.key,rsa.pem --digest sha512 --attached"
  "chain-crls-attached|--key chained.key --cert chained.pem --chain sub.pem --crl root.crl --crl sub.crl --digest sha384 --attached"
  "everything|--key chained.key --cert chained.pem --chain sub.pem --signer p256.key,p256.pem --crl root.crl --crl sub.crl --signed-attr $signed_attr --unsigned-attr $unsigned_attr --digest sha512"
)

rows=()       # "case order"
files=()      # signature file of each row
contents=()   # content file, or - when attached
for entry in "${cases[@]}"; do
  name=${entry%%|*}
  read -r -a options <<< "${entry#*|}"
  orders=(der)
  [ "$name" = everything ] && orders=(dotted der)
  for order in "${orders[@]}"; do
    file="$name.$order.p7s"
    extra=()
    # DER order is the tool's default; --document-order keeps the library's own.
    [ "$order" = dotted ] && extra=(--document-order)
    "$KOLVARI" sign "${options[@]}" "${extra[@]}" --out "$file" doc.txt
    rows+=("$name $order")
    files+=("$file")
    case " ${options[*]} " in *" --attached "*) contents+=(-) ;; *) contents+=(doc.txt) ;; esac
  done
done

# Two controls that every verifier must reject: the content changed after signing, and one bit of a
# signature value flipped (the last octet of a detached signature without unsigned attributes).
printf 'not what was signed\n' > other.txt
rows+=("control-other-content der")
files+=(rsa-sha256-detached.der.p7s)
contents+=(other.txt)
cp rsa-sha256-detached.der.p7s control-bad-signature.p7s
flip control-bad-signature.p7s $(($(stat -c %s control-bad-signature.p7s) - 1))
rows+=("control-bad-signature der")
files+=(control-bad-signature.p7s)
contents+=(doc.txt)

# ---- the verifiers: each succeeds when it accepts a signature, and prints why when it does not ----
verify_openssl() {  # FILE CONTENT
  local content=() out
  [ "$2" = - ] || content=(-content "$2")
  out=$(openssl cms -verify -binary -inform DER -in "$1" "${content[@]}" -CAfile root.pem -out /dev/null 2>&1) ||
    { grep -m1 -i 'error\|fail' <<< "$out"; return 1; }
}
verify_gnutls() {
  local content=() out
  [ "$2" = - ] || content=(--load-data "$2")
  out=$(certtool --p7-verify --inder --infile "$1" "${content[@]}" --load-ca-certificate root.pem 2>&1) ||
    { grep -m1 'Signature status\|error' <<< "$out" | sed 's/^[[:space:]]*//'; return 1; }
}
mkdir nssdb
certutil -N -d sql:nssdb --empty-password
certutil -A -d sql:nssdb -n matrix-root -t C,C,C -i root.pem
verify_nss() {
  # cmsutil exits 0 even for a bad signature; the verdict is in the header line of each signer
  # ("signer0.status=GoodSignature"), which -h 1 prints to the output.
  local content=() out
  [ "$2" = - ] || content=(-c "$2")
  out=$(cmsutil -D -n -h 1 -i "$1" "${content[@]}" -d sql:nssdb 2>&1) || { head -1 <<< "$out"; return 1; }
  grep -q 'status=' <<< "$out" || { echo "no signer status"; return 1; }
  ! grep -o 'status=[A-Za-z]*' <<< "$out" | grep -v 'status=GoodSignature$'
}

declare -A cell
: > why.txt
for i in "${!files[@]}"; do
  for v in openssl gnutls nss; do
    if reason=$("verify_$v" "${files[$i]}" "${contents[$i]}"); then
      cell[$i,$v]=accepted
    else
      cell[$i,$v]=rejected
      echo "  $v on ${rows[$i]}: ${reason:-rejected}" >> why.txt
    fi
  done
done
# BouncyCastle takes every signature in one process.
batch=()
for i in "${!files[@]}"; do batch+=("${files[$i]}" "${contents[$i]}"); done
mkdir classes
javac -nowarn -d classes -cp "$bc_classpath" "$here/MatrixVerify.java"
java -cp "classes:$bc_classpath" MatrixVerify "${batch[@]}" > java.out
i=0
while IFS=$'\t' read -r path verdict; do  # one line per signature, in row order
  cell[$i,bouncycastle]=${verdict%%:*}
  [ "${verdict%%:*}" = accepted ] || echo "  bouncycastle on ${rows[$i]}: $verdict" >> why.txt
  i=$((i + 1))
done < java.out

# ---- the table ----
columns=(openssl gnutls nss bouncycastle)
{
  printf '%-31s %-7s' case order
  printf ' %-12s' "${columns[@]}"
  printf '\n'
  for i in "${!files[@]}"; do
    printf '%-31s %-7s' ${rows[$i]}
    for v in "${columns[@]}"; do printf ' %-12s' "${cell[$i,$v]:-missing}"; done
    printf '\n'
  done
} | sed 's/ *$//' > table.txt
cat table.txt
if [ -s why.txt ]; then
  echo "reasons given:"
  cat why.txt
fi
if ! diff -u "$expected" table.txt; then
  echo "FAIL: the matrix differs from $expected (- expected, + measured)"
  exit 1
fi
echo "matrix as expected: ${#files[@]} signatures, ${#columns[@]} verifiers"
