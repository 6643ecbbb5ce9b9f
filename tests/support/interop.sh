# shellcheck shell=bash
# The start of every interop script, sourced after `set -euo pipefail`: a work folder that is removed at exit
# (KEEP_WORK=1 keeps it and prints its path) after the loopback services a script started are stopped
# (tests/support/loopback_services.sh), the script's folder in $here, the test PKI helpers, and the
# checks the scripts share. `requires TOOL...` exits 77 (skipped) when a tool is not installed (a path: a file
# that is not there; python3:MODULE: a module the system's python3 cannot import).
: "${KOLVARI:?path of the kolvari tool}"
here=$(cd "$(dirname "${BASH_SOURCE[1]}")" && pwd)
work=$(mktemp -d)
trap '! declare -F stop_loopback_services >/dev/null || stop_loopback_services
[ -n "${KEEP_WORK:-}" ] && echo "work folder: $work" || rm -rf "$work"' EXIT
cd "$work" || exit 1
. "$here/../support/test_pki.sh"

fail() { echo "FAIL: $*" >&2; exit 1; }

requires() {  # tool...
  local tool
  for tool; do
    case $tool in
      python3:*) /usr/bin/python3 -c "import ${tool#python3:}" 2>/dev/null ;;
      /*) [ -e "$tool" ] ;;
      *) command -v "$tool" >/dev/null ;;
    esac || { echo "SKIP: $tool is not installed (scripts/deps.sh installs it)" >&2; exit 77; }
  done
}

# The exit status of a command, its output in out.txt and its messages in err.txt.
status_of() { if "$@" >out.txt 2>err.txt; then echo 0; else echo $?; fi; }

# A command that must fail with STATUS and one line holding MESSAGE (and for a usage error the line pointing at
# the help), and leave OUTPUT unwritten.
refused() {  # status, message, output, command...
  local status=$1 message=$2 output=$3 got
  shift 3
  rm -f "$output"
  got=$(status_of "$@" </dev/null)
  [ "$got" -eq "$status" ] || fail "$*: exit status $got, not $status ($(cat err.txt))"
  grep -qF -- "$message" err.txt || fail "$*: '$(cat err.txt)', not '$message'"
  [ "$(grep -vc "^see 'kolvari .* --help'$" err.txt)" -eq 1 ] || fail "$*: more than one line: $(cat err.txt)"
  [ ! -e "$output" ] || fail "$*: $output was written"
}

# The work of a PDF update or an extension: IN must be the first bytes of OUT.
is_prefix() {  # in, out
  cmp -s "$1" <(head -c "$(stat -c %s "$1")" "$2") || fail "$1 is not a prefix of $2"
}

# A signature OpenSSL verifies against ca.pem: detached over CONTENT, or attached without it.
verifies() {  # signature, [content], [DER or PEM]
  openssl cms -verify -binary -inform "${3:-DER}" -in "$1" ${2:+-content "$2"} -CAfile ca.pem -out /dev/null \
    2>verify.err
}

# Fails unless the Python expression holds for the JSON document in FILE, which it names d.
json_holds() {  # file, expression
  /usr/bin/python3 -c 'import json, sys; d = json.load(open(sys.argv[1], encoding="utf-8")); assert eval("(" + sys.argv[2] + ")")' \
    "$1" "$2" 2>/dev/null || fail "$1: not $2: $(head -c 3000 "$1")"
}

# The verdict on signature INDEX (from 1) in a report of `kolvari verify --json`: indication, sub-indication,
# whether it covers the whole file and the kinds of the later revisions, joined by |, - for none.
verdict() {  # report, [index]
  /usr/bin/python3 -c 'import json, sys; s = json.load(open(sys.argv[1]))["signatures"][int(sys.argv[2]) - 1]
print(s["indication"], s["subIndication"] or "-", str(s.get("coversWholeFile")).lower(),
      ",".join(r["kind"] for r in s.get("laterRevisions") or []) or "-", sep="|")' "$1" "${2:-1}" 2>/dev/null
}

# Flips the lowest bit of the byte at OFFSET of FILE, in place.
flip() {  # file, offset
  python3 -c 'import sys; p, at = sys.argv[1], int(sys.argv[2]); d = bytearray(open(p, "rb").read()); d[at] ^= 1
open(p, "wb").write(d)' "$1" "$2"
}

# BouncyCastle from Debian's packages, for the Java readers beside the scripts.
bc_classpath=/usr/share/java/bcprov.jar:/usr/share/java/bcpkix.jar:/usr/share/java/bcutil.jar

# The tool's signing commands with the options in the array signer (empty: each call gives its own).
signer=()
sign() { "$KOLVARI" sign "${signer[@]}" "$@"; }
sign_pdf() { "$KOLVARI" sign-pdf "${signer[@]}" "$@"; }
