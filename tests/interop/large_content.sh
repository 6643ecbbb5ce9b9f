#!/usr/bin/env bash
# `kolvari sign` on files larger than its read buffer (1 MiB): the input is hashed as it is read and an
# attached content is copied into the output between the plug-in's encoding of the rest. The streamed bytes
# must equal those of the whole-file path (KOLVARI_IN_MEMORY=1) for every size where a length around the
# content changes its number of octets; OpenSSL verifies; a write that fails half-way leaves nothing; a
# 64 MiB file is signed in far less memory than it takes.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
make_test_ca "Kolvari Large Content CA"
make_signer rsa "/C=DE/O=Kolvari Interop/CN=rsa signer" rsa:2048

readonly buffer=$((1024 * 1024))
# RSA signatures are deterministic: with a fixed time both paths give the same bytes. Each run replaces the
# output of the one before (--force).
sign() {  # output, input, options...
  local out=$1 in=$2
  shift 2
  "$KOLVARI" sign --key rsa.key --cert rsa.pem --chain ca.pem \
    --time 20240101120000Z --force "$@" --out "$out" "$in"
}
content() {  # size: content.bin of that many random bytes
  head -c "$1" /dev/urandom > content.bin
  [ "$(stat -c %s content.bin)" -eq "$1" ] || fail "cannot make a file of $1 bytes"
}
same_as_in_memory() {  # tag, options...
  local tag=$1
  shift
  sign streamed.out content.bin "$@" || fail "$tag: kolvari sign $*"
  KOLVARI_IN_MEMORY=1 sign in_memory.out content.bin "$@" || fail "$tag: kolvari sign $* (in memory)"
  cmp -s streamed.out in_memory.out || fail "$tag: streamed bytes differ from the in-memory path's ($*)"
}

# Sizes around the read buffer and a file several buffers long, in every output form.
for size in 0 1 $((buffer - 1)) $buffer $((buffer + 1)) $((5 * buffer + 3)); do
  content "$size"
  for options in "" "--attached" "--pem" "--attached --pem"; do
    # shellcheck disable=SC2086  # the options are separate words
    same_as_in_memory "$size bytes" $options
  done
  openssl cms -verify -binary -inform DER -in <(sign /dev/stdout content.bin --attached) \
    -CAfile ca.pem -out extracted.bin 2>verify.err || { cat verify.err >&2; fail "$size bytes: not verified"; }
  cmp -s extracted.bin content.bin || fail "$size bytes: the attached content differs from the input"
done

# Each length of the elements around the content (ContentInfo, its [0], SignedData, EncapsulatedContentInfo,
# its [0], the OCTET STRING) changes from one length octet to two, and from two to three, at a content size
# found from the empty content's encoding; just below and at each of those sizes the bytes must agree.
: > empty.bin
sign empty.der empty.bin --attached
# `openssl asn1parse` lists the elements in order, so the last one seen at each depth above the first OCTET
# STRING is one of those around it.
boundary_sizes=$(openssl asn1parse -inform DER -in empty.der | python3 -c '
import re, sys
empty = {}
for line in sys.stdin:
    depth, length = map(int, re.search(r"d=(\d+) +hl= *\d+ l= *(\d+)", line).groups())
    empty[depth] = length
    if "OCTET STRING" in line:
        break
empty = [empty[d] for d in range(depth + 1)]
assert len(empty) == 6 and empty[5] == 0, empty

def header_size(length):
    return 2 if length < 0x80 else 2 + (length.bit_length() + 7) // 8

def lengths(n):
    out, growth = [], n
    for length in reversed(empty):
        out.append(length + growth)
        growth += header_size(length + growth) - header_size(length)
    return list(reversed(out))

sizes = set()
for element in range(6):
    for limit in (0x80, 0x100, 0x10000):
        n = 0
        while lengths(n)[element] < limit:
            n += max(1, limit - lengths(n)[element] - 8)
        while n > 0 and lengths(n - 1)[element] >= limit:
            n -= 1
        sizes.update({n - 1, n} - {-1})
print(" ".join(str(s) for s in sorted(sizes)))
')
[ -n "$boundary_sizes" ] || fail "no boundary sizes found"
for size in $boundary_sizes; do
  content "$size"
  same_as_in_memory "$size bytes (length boundary)" --attached
done

# A pipe cannot be read twice: with --attached it is read whole, and the bytes are those of the same content
# from a file.
content $((5 * buffer + 3))
sign piped.der <(cat content.bin) --attached || fail "pipe: kolvari sign --attached"
KOLVARI_IN_MEMORY=1 sign piped.ref content.bin --attached || fail "pipe: in-memory reference"
cmp -s piped.der piped.ref || fail "pipe: the attached signature differs from the file's"

# A write refused half-way through the content (a file-size limit of 2 MiB, its signal ignored so that the
# write fails with EFBIG) fails the run and leaves neither the output nor a temporary file.
mkdir limited
set +e
(trap '' XFSZ; ulimit -f 2048; sign limited/out.der content.bin --attached) 2>limited.err
status=$?
set -e
[ "$status" -eq 1 ] || fail "a failed write: exit status $status, want 1"
grep -q "cannot write limited/out.der" limited.err || { cat limited.err >&2; fail "a failed write is not named"; }
[ -z "$(ls -A limited)" ] || fail "a failed write left $(ls -A limited)"

# Memory: a 64 MiB file read whole would take at least 64 MiB; streamed, the peak stays near the tool's
# own size. Measured only on the plain build: sanitizers and valgrind reserve memory of their own.
# (ldd's output is read whole first: grep -q leaving a pipe early would fail the pipeline under pipefail.)
measure=yes
libraries=$(ldd "$KOLVARI" 2>/dev/null || true)
if [ "$(head -c 4 "$KOLVARI" | od -An -c | tr -d ' ')" != '177ELF' ] || [[ $libraries == *libasan* ]] ||
  [[ $libraries == *libtsan* ]]; then
  measure=no
fi
if [ $measure = yes ] && [ -x /usr/bin/time ]; then
  head -c $((64 * buffer)) /dev/zero > big.bin
  limit_kb=$((40 * 1024))
  for options in "" "--attached"; do
    # shellcheck disable=SC2086
    /usr/bin/time -f %M -o peak.txt "$KOLVARI" sign --key rsa.key --cert rsa.pem \
      $options --force --out big.der big.bin || fail "64 MiB ${options:---detached}: kolvari sign"
    peak=$(tail -1 peak.txt)
    [ "$peak" -lt "$limit_kb" ] || fail "64 MiB ${options:---detached}: peak memory $peak KiB, limit $limit_kb KiB"
    echo "64 MiB ${options:---detached}: peak memory $peak KiB"
  done
else
  echo "memory not measured: the tool runs under a sanitizer or a wrapper"
fi

echo "large content: passed"
