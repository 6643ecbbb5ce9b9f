#!/bin/bash
# kolvari cert --json against python3-cryptography for the Mozilla roots and the test certificates.
set -euo pipefail
: "${KOLVARI:?path of the kolvari tool}"
: "${KOLVARI_TEST_DATA:?path of tests/data}"
exec /usr/bin/python3 "$(dirname "$0")/cert_json.py"
