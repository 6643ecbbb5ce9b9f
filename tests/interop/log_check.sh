#!/usr/bin/env bash
# The kolvari tool's own logging (a configuration file beside the program switches it on) and what
# `kolvari log-check` reports for good, ignored and malformed configuration files.
set -euo pipefail
: "${KOLVARI:?path of the kolvari tool}"
: "${KOLVARI_TEST_DATA:?path of tests/data}"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# A copy of the tool with its configuration file beside it, so that no other test sees the file.
mkdir "$work/bin"
cp "$KOLVARI" "$work/bin/kolvari"
tool="$work/bin/kolvari"
der="$KOLVARI_TEST_DATA/asn1crypto/test-der.crt"
printf '[Common]\nLogLevel = INFO, ERROR\nFormat = LogLevel,LogMsg\n[Logger]\nFile = %s/tool.log\n' "$work" \
  > "$tool.cfgLog"

"$tool" der "$der" > /dev/null
printf '[INFO]  kolvari der %s\n[INFO]  der: exit status 0\n' "$der" > "$work/expected.log"
cmp -s "$work/expected.log" "$work/tool.log" || fail "the tool's log differs: $(cat "$work/tool.log")"

"$tool" log-check > "$work/check.txt" || fail "log-check: logging reported off"
for want in "config:  $tool.cfgLog" "logging: on" "levels:  0x00a ERROR INFO" "  1. file: $work/tool.log" \
            "layout:  bracket mode: LogLevel, LogMsg" "[ERROR] sample message" "[INFO]  sample message"; do
  grep -qxF -- "$want" "$work/check.txt" || fail "log-check does not show '$want': $(cat "$work/check.txt")"
done

# Off, each for its reason, with exit status 1.
check_off() {
  local text=$1 want=$2 status=0
  printf "$text" > "$work/other.cfgLog"
  "$KOLVARI" log-check --config "$work/other.cfgLog" > "$work/off.txt" || status=$?
  [ "$status" -eq 1 ] || fail "exit status $status for: $want"
  grep -qF -- "$want" "$work/off.txt" || fail "log-check does not say '$want': $(cat "$work/off.txt")"
}
check_off '[Common]\nLogLevel = ALL\n# fine\nName = caf\xe9\n' \
  "the configuration file is rejected (0xE100FFF3, a byte outside the allowed set) at line 4: Name = caf\\xE9"
check_off '[Ignore]\nin/kolvari\n[Common]\nLogLevel = ALL\n[Logger]\nConsole\n' "ignored by a rule: [Ignore] key 'in/kolvari'"
"$KOLVARI" log-check --config "$work/missing.cfgLog" > "$work/off.txt" && fail "a missing file passed"
grep -qF "none: $work/missing.cfgLog cannot be read" "$work/off.txt" || fail "no word on a missing file"
echo "kolvari logs beside its configuration file, and log-check reports on and off as expected"
