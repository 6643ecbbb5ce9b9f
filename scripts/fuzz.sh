#!/usr/bin/env bash
# A fuzzing campaign: builds every fuzz target with clang's libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer, then runs each one for SECONDS (default 600) on a copy of its seed corpus.
# Findings are saved under fuzz/crashes/<target>/, where the test suite replays them from then on.
#   bash scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-600}
shift || true

"$root/scripts/deps.sh"
build="$root/build-fuzz"
CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKOLVARI_FUZZ=ON -DKOLVARI_SANITIZE=ON \
  -DKOLVARI_TESTS=OFF -DKOLVARI_TOOLS=OFF -DKOLVARI_BENCH=OFF
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in "$root"/fuzz/fuzz_*.cc; do targets+=("$(basename "$f" .cc)"); done
fi
cmake --build "$build" -j "$(nproc)" --target "${targets[@]}"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
for t in "${targets[@]}"; do
  mkdir -p "$work/$t" "$root/fuzz/crashes/$t"
  cp -r "$root/fuzz/corpus/$t/." "$work/$t/" 2>/dev/null || true
  echo "== $t for ${seconds}s"
  if ! "$build/bin/$t" -max_total_time="$seconds" -artifact_prefix="$root/fuzz/crashes/$t/" "$work/$t"; then
    echo "$t: finding saved in fuzz/crashes/$t/" >&2
    status=1
  fi
done
exit $status
