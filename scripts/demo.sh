#!/usr/bin/env bash
# Builds the plug-in and the kolvari tool, then shows a host loading the plug-in.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)

"$root/scripts/deps.sh"

cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$root/build" -j "$jobs" --target kolvari kolvari-pkcs7
"$root/build/bin/kolvari" info
