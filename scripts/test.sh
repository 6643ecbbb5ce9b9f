#!/usr/bin/env bash
# Builds everything and runs the whole suite twice: once as built for use, once under AddressSanitizer and
# UndefinedBehaviorSanitizer; then the logger's threads test under ThreadSanitizer. Installs missing packages
# first (as root).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)

"$root/scripts/deps.sh"

cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$root/build" -j "$jobs"
ctest --test-dir "$root/build" --output-on-failure -j "$jobs"

cmake -S "$root" -B "$root/build-asan" -DCMAKE_BUILD_TYPE=Debug -DKOLVARI_SANITIZE=ON -DKOLVARI_BENCH=OFF
cmake --build "$root/build-asan" -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir "$root/build-asan" --output-on-failure -j "$jobs"

# The many-threads tests (logger, containers, signer-info calls) once more under ThreadSanitizer: only
# that small binary is built.
cmake -S "$root" -B "$root/build-tsan" -DCMAKE_BUILD_TYPE=Debug -DKOLVARI_BENCH=OFF -DKOLVARI_TOOLS=OFF \
  -DCMAKE_CXX_FLAGS=-fsanitize=thread -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread
cmake --build "$root/build-tsan" -j "$jobs" --target kolvari_thread_tests
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 "$root/build-tsan/bin/kolvari_thread_tests"
echo "all tests passed (plain and sanitized builds)"
