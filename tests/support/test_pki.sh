# The test PKI of the interop scripts, sourced and used in their work folder. make_test_ca writes ca.key and
# ca.pem (an RSA CA of that common name) and the signer extensions; make_signer NAME SUBJECT KEY-OPTIONS...
# writes NAME.key and NAME.pem issued by that CA, with the serial $serial holds (100 at first), then counts it up;
# KEY-OPTIONS ec:CURVE stands for an EC key on that named curve.
make_test_ca() {  # common name
  openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -days 30 -subj "/CN=$1" \
    -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign,cRLSign 2>/dev/null
  printf 'basicConstraints=CA:FALSE\nkeyUsage=critical,digitalSignature,nonRepudiation\n' > signer.ext
}

make_signer() {  # name, subject, openssl key options
  local name=$1 subject=$2
  shift 2
  serial=${serial:-100}
  [[ $1 == ec:* ]] && set -- ec -pkeyopt "ec_paramgen_curve:${1#ec:}"
  openssl req -new -newkey "$@" -nodes -keyout "$name.key" -out "$name.csr" -subj "$subject" 2>/dev/null
  openssl x509 -req -in "$name.csr" -CA ca.pem -CAkey ca.key -set_serial $((serial++)) -days 30 \
    -extfile signer.ext -out "$name.pem" 2>/dev/null
}
