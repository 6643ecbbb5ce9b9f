#!/usr/bin/env bash
# A fuzzing campaign: builds every fuzz target with clang's libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer, then runs each one for SECONDS (default 600) on a copy of its seed corpus, with
# a dictionary of DER tags, length forms and the object identifiers of the library's registry. Afterwards
# the inputs that reach new coverage are merged into the seed corpus (fuzz/corpus/<target>/, libFuzzer's
# -merge keeps only what adds coverage), and findings are saved under fuzz/crashes/<target>/, where the test
# suite replays them from then on. A table of executions, coverage and findings per target ends the run and
# is kept in build-fuzz/fuzz-report.txt. The tool is configured too, for the targets that fuzz the PDF update
# of `kolvari sign-pdf` and `kolvari verify`; only the fuzz targets are built.
#   bash scripts/fuzz.sh [-j JOBS] [SECONDS] [TARGET...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=1
if [ "${1:-}" = "-j" ]; then
  jobs=$2
  shift 2
fi
seconds=${1:-600}
shift || true

"$root/scripts/deps.sh"
build="$root/build-fuzz"
CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKOLVARI_FUZZ=ON -DKOLVARI_SANITIZE=ON \
  -DKOLVARI_TESTS=OFF -DKOLVARI_TOOLS=ON -DKOLVARI_BENCH=OFF > /dev/null
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in "$root"/fuzz/fuzz_*.cc; do targets+=("$(basename "$f" .cc)"); done
fi
cmake --build "$build" -j "$(nproc)" --target "${targets[@]}"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The dictionary: universal tags, context tags, the length forms the decoders treat specially, and every
# registry identifier as a whole DER element (standard base-128 arcs).
dict="$work/der.dict"
{
  for tag in 01 02 03 04 05 06 0A 0C 13 16 17 18 1E 30 31 80 81 82 83 A0 A1 A2 A3 24 00; do
    echo "tag_$tag=\"\\x$tag\""
  done
  echo 'len_indefinite="\x80"'
  echo 'len_long4="\x84\xff\xff\xff\xff"'
  echo 'len_long5="\x85"'
  echo 'end_of_contents="\x00\x00"'
  grep -oE '\{[0-9]+, "[0-9.]+"\}' "$root/src/asn1/cvel_oid.cc" | grep -oE '"[0-9.]+"' | tr -d '"' |
    python3 -c '
import sys
for n, line in enumerate(sys.stdin):
    arcs = [int(a) for a in line.strip().split(".")]
    body = bytearray()
    for value in [arcs[0] * 40 + arcs[1]] + arcs[2:]:
        group = [value & 0x7F]
        value >>= 7
        while value:
            group.insert(0, 0x80 | (value & 0x7F))
            value >>= 7
        body += bytes(group)
    element = bytes([0x06, len(body)]) + body
    print("oid_%d=\"%s\"" % (n, "".join("\\x%02x" % b for b in element)))
'
} > "$dict"

run_target() {
  local t=$1
  mkdir -p "$work/$t" "$root/fuzz/crashes/$t" "$root/fuzz/corpus/$t"
  cp -r "$root/fuzz/corpus/$t/." "$work/$t/" 2> /dev/null || true
  local result=ok
  touch "$work/$t.started"
  if ! "$build/bin/$t" -max_total_time="$seconds" -print_final_stats=1 -dict="$dict" \
       -artifact_prefix="$root/fuzz/crashes/$t/" "$work/$t" > "$work/$t.log" 2>&1; then
    # A run stopped from outside (Ctrl-C, a signal) also ends non-zero but writes no reproducer.
    local saved
    saved=$(find "$root/fuzz/crashes/$t" -type f -newer "$work/$t.started" | head -n 1)
    if [ -n "$saved" ]; then
      result="finding saved in fuzz/crashes/$t/$(basename "$saved")"
    else
      result="stopped early, nothing saved"
    fi
  fi
  # Only inputs that reach code the seeds do not are kept (edges, not hit counts, so the seeds stay few).
  "$build/bin/$t" -merge=1 -use_counters=0 "$root/fuzz/corpus/$t" "$work/$t" > "$work/$t.merge.log" 2>&1 || true
  local executions coverage
  executions=$(grep -oE 'stat::number_of_executed_units: [0-9]+' "$work/$t.log" | grep -oE '[0-9]+$' || echo 0)
  coverage=$(grep -oE 'cov: [0-9]+' "$work/$t.log" | tail -1 | grep -oE '[0-9]+' || echo 0)
  printf '%-28s %12s %8s  %s\n' "$t" "$executions" "$coverage" "$result" > "$work/$t.row"
  echo "== $t: $executions executions, coverage $coverage, $result"
}

running=0
for t in "${targets[@]}"; do
  run_target "$t" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
done
wait || true

report="$build/fuzz-report.txt"
{
  echo "fuzzing for ${seconds}s per target, $(date -u +%Y-%m-%dT%H:%MZ)"
  printf '%-28s %12s %8s  %s\n' target executions coverage result
  for t in "${targets[@]}"; do cat "$work/$t.row"; done
} | tee "$report"
! grep -q "finding saved" "$report"
