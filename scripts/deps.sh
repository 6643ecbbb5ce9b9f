#!/usr/bin/env bash
# Installs what the build and the tests need on a Debian machine, when it is missing. As root it uses
# apt-get; otherwise it only names what is missing.
set -euo pipefail

packages=(cmake make g++ libgtest-dev libbenchmark-dev libssl-dev openssl clang python3
          python3-cryptography ca-certificates git zip ghostscript pkg-config dpkg-dev file lintian)
# The verifiers of the interoperability matrix (tests/interop/matrix.sh).
packages+=(gnutls-bin libnss3-tools python3-asn1crypto default-jdk-headless libbcprov-java libbcpkix-java libbcutil-java)
packages+=(g++-multilib)  # the 32-bit build of scripts/test.sh
packages+=(libcurl4-openssl-dev)  # the tool's HTTP client (time stamps, OCSP, CRLs)
packages+=(zlib1g-dev)  # the compressed streams of a PDF document security store
# A software token and the token tools for tests/interop/pkcs11.sh; p11-kit's header for the tool's build.
packages+=(softhsm2 opensc p11-kit libp11-kit-dev)
packages+=(libqpdf-dev qpdf poppler-utils)  # kolvari sign-pdf and tests/interop/sign_pdf.sh
packages+=(libcli11-dev)  # the option reader of the kolvari tool (header-only)
packages+=(nlohmann-json3-dev)  # the tool's JSON output
packages+=(fonts-dejavu-core)  # a TrueType font for sign-pdf --font in tests/interop/text.sh
packages+=(time)  # /usr/bin/time -v: peak memory in tests/interop/large_content.sh and scripts/bench_large.sh

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
  echo "missing packages: ${missing[*]} (run as root, or install them with apt-get)" >&2
  exit 1
fi
