#!/usr/bin/env bash
# Signing one large file: peak memory and wall time of `kolvari sign` (detached and attached) beside
# `sha256sum` and `openssl cms -sign -binary` (detached, attached with -nodetach, and attached with -nodetach
# -stream, OpenSSL's BER streaming form) on the same file.
#   bash scripts/bench_large.sh [SIZE_MB]     (default 2048)
# The file is random (AES-CTR of zeros, made quickly) in a temporary folder under $TMPDIR, removed at the
# end; it is read once before the runs, so that each run finds it in the page cache alike when it fits. The
# figures are /usr/bin/time's maximum resident set size and elapsed time (those of `time -v`). The tool is
# taken from $KOLVARI, else from build/ (built there when missing).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
size_mb=${1:-2048}
if ! [[ "$size_mb" =~ ^[1-9][0-9]*$ ]]; then
  echo "bench_large.sh: SIZE_MB must be a positive whole number, not '$size_mb'" >&2
  exit 2
fi
[ -x /usr/bin/time ] || { echo "bench_large.sh: /usr/bin/time is missing (apt-get install time)" >&2; exit 1; }

kolvari=${KOLVARI:-$root/build/bin/kolvari}
if [ ! -x "$kolvari" ]; then
  cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$root/build" -j2 --target kolvari
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
# The input and the largest output side by side, with a little to spare.
need_kb=$(( (2 * size_mb + 64) * 1024 ))
free_kb=$(df -Pk . | awk 'NR == 2 { print $4 }')
if [ "$free_kb" -lt "$need_kb" ]; then
  echo "bench_large.sh: $((need_kb / 1024)) MiB needed in $work, $((free_kb / 1024)) MiB free" >&2
  exit 1
fi

. "$root/tests/support/test_pki.sh"
make_test_ca "Kolvari Bench CA"
serial=1
make_signer signer "/CN=Kolvari bench signer" rsa:2048

echo "making a file of $size_mb MiB in $work"
head -c $((size_mb * 1024 * 1024)) /dev/zero |
  openssl enc -aes-128-ctr -nosalt -K 000102030405060708090a0b0c0d0e0f -iv 00000000000000000000000000000000 -out content.bin
cat content.bin > /dev/null

results=()
# A kolvari run that fails ends the benchmark; another program's failure is a row of the table (openssl
# cms -nodetach reads the content into one buffer and gives up on files of 2 GiB).
run() {  # label, command...
  local label=$1 outcome=ok
  shift
  if ! /usr/bin/time -f '%e %M' -o measured.txt "$@" >/dev/null 2>run.err; then
    outcome=failed
    if [[ "$label" == kolvari* ]]; then
      tail -5 run.err >&2
      echo "bench_large.sh: $label failed" >&2
      exit 1
    fi
  fi
  results+=("$label|$outcome $(tail -1 measured.txt)")
  rm -f out.p7s
}

run "sha256sum" sha256sum content.bin
# The same hash with OpenSSL's code, which the tool hashes with (coreutils has its own).
run "openssl dgst -sha256" openssl dgst -sha256 content.bin
run "kolvari sign (detached)" "$kolvari" sign --key signer.key --cert signer.pem \
  --force --out out.p7s content.bin
run "kolvari sign --attached" "$kolvari" sign --key signer.key --cert signer.pem \
  --attached --force --out out.p7s content.bin
run "openssl cms -sign (detached)" openssl cms -sign -binary -in content.bin -signer signer.pem \
  -inkey signer.key -outform DER -out out.p7s
run "openssl cms -sign -nodetach" openssl cms -sign -binary -nodetach -in content.bin -signer signer.pem \
  -inkey signer.key -outform DER -out out.p7s
# OpenSSL's streaming form: BER with indefinite lengths, the content in chunks.
run "openssl cms -sign -nodetach -stream" openssl cms -sign -binary -nodetach -stream -in content.bin \
  -signer signer.pem -inkey signer.key -outform DER -out out.p7s

reference=$(echo "${results[0]}" | cut -d'|' -f2 | cut -d' ' -f2)
echo
echo "file: $size_mb MiB"
printf '%-36s %10s %14s %15s\n' "command" "wall (s)" "max RSS (MiB)" "wall/sha256sum"
for r in "${results[@]}"; do
  label=${r%%|*}
  read -r outcome wall rss_kb <<<"${r#*|}"
  awk -v l="$label" -v o="$outcome" -v w="$wall" -v k="$rss_kb" -v ref="$reference" \
    'BEGIN { printf "%-36s %10.2f %14.1f %15.2f%s\n", l, w, k / 1024, (ref > 0 ? w / ref : 0),
             (o == "ok" ? "" : "  (failed)") }'
done
