#!/usr/bin/env bash
# Runs the unit, host and threads tests and the tool-driven interop scripts under valgrind memcheck: any
# memory error, or any leak (definite or indirect), fails the run. Uses the plain build of the test command
# (build/); takes a long while, so it is not part of the test command.
#   bash scripts/valgrind.sh [INTEROP_SCRIPT...]
# By default every tests/interop/*.sh runs but two: the matrix (its tool runs are those of sign_verify.sh,
# many times over) and log_check.sh, which needs the tool's logging configuration beside the real
# executable, not beside the wrapper.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build"

"$root/scripts/deps.sh"
command -v valgrind >/dev/null || { echo "valgrind.sh: valgrind is not installed" >&2; exit 1; }
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$(nproc)"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
memcheck=(valgrind --quiet --tool=memcheck --error-exitcode=97 --leak-check=full
          --errors-for-leak-kinds=definite,indirect --show-leak-kinds=definite,indirect
          --suppressions="$root/scripts/valgrind.supp")
status=0

# Gtest binaries: each in one process; death tests fork and are left to the plain run (a forked child that
# aborts on purpose is not a leak).
for t in kolvari_tests kolvari_host_tests kolvari_thread_tests; do
  echo "== $t"
  if ! "${memcheck[@]}" "$build/bin/$t" --gtest_filter='-*Death*:*DeathTest*' >"$work/$t.log" 2>&1; then
    tail -40 "$work/$t.log" >&2
    echo "valgrind.sh: $t failed under memcheck (log above)" >&2
    status=1
  else
    grep -E '^\[  (PASSED|SKIPPED) ' "$work/$t.log" || true
  fi
done

# The interop scripts call the tool through $KOLVARI: a wrapper runs every call under memcheck and records
# any report, while the scripts check the output as usual.
cat >"$work/kolvari" <<EOF
#!/usr/bin/env bash
exec ${memcheck[*]} --log-file="$work/vg.%p.log" "$build/bin/kolvari" "\$@"
EOF
chmod +x "$work/kolvari"
scripts=("$@")
if [ ${#scripts[@]} -eq 0 ]; then
  for s in "$root"/tests/interop/*.sh; do
    case "$(basename "$s")" in matrix.sh | log_check.sh) ;; *) scripts+=("$s") ;; esac
  done
fi
# Under memcheck the tool takes seconds to reach its PIN prompt: the token test waits that long to type.
for s in "${scripts[@]}"; do
  echo "== $(basename "$s")"
  if ! KOLVARI="$work/kolvari" KOLVARI_PIN_WAIT=20 \
       KOLVARI_TEST_DATA="$root/tests/data" bash "$s" >"$work/script.log" 2>&1; then
    tail -20 "$work/script.log" >&2
    echo "valgrind.sh: $(basename "$s") failed with the tool under memcheck" >&2
    status=1
  fi
done
reports=$(find "$work" -name 'vg.*.log' -size +0 | wc -l)
if [ "$reports" -ne 0 ]; then
  find "$work" -name 'vg.*.log' -size +0 -exec cat {} + | head -80 >&2
  echo "valgrind.sh: memcheck reported on $reports tool run(s)" >&2
  status=1
fi
[ "$status" -eq 0 ] && echo "valgrind: no memory errors and no leaks"
exit "$status"
