#!/usr/bin/env bash
# The kolvari tool's own logging (a configuration file beside the program switches it on) and what
# `kolvari log-check` reports for good, ignored and malformed configuration files.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
: "${KOLVARI_TEST_DATA:?path of tests/data}"

# A copy of the tool with its configuration file beside it, so that no other test sees the file.
mkdir "$work/bin"
cp "$KOLVARI" "$work/bin/kolvari"
tool="$work/bin/kolvari"
der="$KOLVARI_TEST_DATA/asn1crypto/test-der.crt"
printf '[Common]\nLogLevel = INFO, ERROR\nFormat = LogLevel,LogMsg\n[Logger]\nFile = %s/tool.log\n' "$work" \
  > "$tool.cfgLog"
shows() {  # file, lines it must hold whole
  local file=$1 want
  shift
  for want; do grep -qxF -- "$want" "$file" || fail "no '$want' in: $(cat "$file")"; done
}

"$tool" der "$der" > /dev/null
printf '[INFO]  kolvari der %s\n[INFO]  der: exit status 0\n' "$der" > "$work/expected.log"
cmp -s "$work/expected.log" "$work/tool.log" || fail "the tool's log differs: $(cat "$work/tool.log")"

"$tool" log-check > "$work/check.txt" || fail "log-check: logging reported off"
shows "$work/check.txt" "config:  $tool.cfgLog" "logging: on" "levels:  0x00a ERROR INFO" "  1. file: $work/tool.log" \
  "layout:  bracket mode: LogLevel, LogMsg" "[ERROR] sample message" "[INFO]  sample message"

# Off, each for its reason, with exit status 1.
check_off() {
  local text=$1 want=$2 status=0
  printf "$text" > "$work/other.cfgLog"
  "$KOLVARI" log-check --config "$work/other.cfgLog" > "$work/off.txt" 2> "$work/off.err" || status=$?
  [ "$status" -eq 1 ] || fail "exit status $status for: $want"
  grep -qF -- "$want" "$work/off.txt" || fail "log-check does not say '$want': $(cat "$work/off.txt")"
}
check_off '[Ignore]\nin/kolvari\n[Common]\nLogLevel = ALL\n[Logger]\nConsole\n' "ignored by a rule: [Ignore] key 'in/kolvari'"
"$KOLVARI" log-check --config "$work/missing.cfgLog" > "$work/off.txt" && fail "a missing file passed"
grep -qF "none: $work/missing.cfgLog cannot be read" "$work/off.txt" || fail "no word on a missing file"

# A 200 KB file refused on its last line (comments count as lines): the line is found in one pass over the
# text, not by parsing ever longer runs of lines.
{
  printf '[Common]\nLogLevel = ALL\n# fine\nFormat = LogMsg\n[Logger]\nConsole\n[Ignore]\n'
  seq -f 'k%g' 1 32000
  printf 'Last = caf\xe9\n'
} > "$work/big.cfgLog"
[ "$(stat -c %s "$work/big.cfgLog")" -ge 200000 ] || fail "the large file is too small"
status=0
timeout 20 "$KOLVARI" log-check --config "$work/big.cfgLog" > "$work/big.txt" || status=$?
[ "$status" -eq 1 ] || fail "exit status $status for the large refused file (124: too slow)"
grep -qF "rejected (0xE100FFF3, a byte outside the allowed set) at line 32008: Last = caf\xE9" "$work/big.txt" ||
  fail "large file: $(cat "$work/big.txt")"

# Judging another file keeps the tool's own logger at work: its closing record is still written.
: > "$work/tool.log"
"$tool" log-check --config "$work/big.cfgLog" > /dev/null || true
shows "$work/tool.log" "[ERROR] log-check: exit status 1"

# What the logger passes over without a word is named with its line, on standard error; logging still on.
printf '[Common]\nLogLevel = error, INFO\n# a comment\nFormat = LogLevel,Msg, LogMsg\nMode = blank\n[Logger]\nfile = x.log\nConsole\n[Loger]\nConsole\n' \
  > "$work/cfg"
"$KOLVARI" log-check --config "$work/cfg" > "$work/notes.out" 2> "$work/notes.err" || fail "log-check: notes turned logging off"
note="kolvari log-check: $work/cfg"
shows "$work/notes.err" "$note:2: unknown level 'error'" "$note:4: unknown field 'Msg'" \
  "$note:5: unknown mode 'blank' (Blank or none)" "$note:7: unknown key 'file' in [Logger]" "$note:9: unknown section '[Loger]'"
[ "$(wc -l < "$work/notes.err")" -eq 5 ] || fail "more notes than expected: $(cat "$work/notes.err")"
shows "$work/notes.out" "logging: on"

# On, but nothing would ever be written: no layout, no known sink, or no known level. Exit status 1.
check_off '[Common]\nLogLevel = ERROR\n[Logger]\nConsole\n' \
  "logging: on, but writes nothing: [Common] Format names no known field, so every line is empty"
check_off '[Common]\nLogLevel = ERROR\nFormat = Msg\n[Logger]\nConsole\n' "logging: on, but writes nothing: [Common] Format"
check_off '[Common]\nLogLevel = ERROR\nFormat = LogMsg\n[Logger]\nconsole\n' \
  "logging: on, but writes nothing: [Logger] names no known sink (Console, File, System)"
check_off '[Common]\nLogLevel = error\nFormat = LogMsg\n[Logger]\nConsole\n' \
  "logging: on, but writes nothing: [Common] LogLevel names no known level, so no record passes"

# As a library inside a host reads it: its own file beside it first, else the host's; rules on its path.
mkdir "$work/lib" "$work/host"
printf '[Common]\nLogLevel = ERROR\nFormat = LogMsg\n[Logger]\nConsole\n' > "$work/host/app.cfgLog"
"$KOLVARI" log-check --library "$work/lib/libsigner.so.1" --host "$work/host/app" > "$work/lib.txt" \
  || fail "library in a host: $(cat "$work/lib.txt")"
shows "$work/lib.txt" "library: $work/lib/libsigner.so.1" "program: $work/host/app" "config:  $work/host/app.cfgLog"
printf '[Ignore]\nlibsigner.so.1\n[Common]\nLogLevel = ERROR\nFormat = LogMsg\n[Logger]\nConsole\n' \
  > "$work/lib/libsigner.so.1.cfgLog"
status=0
"$KOLVARI" log-check --library "$work/lib/libsigner.so.1" --host "$work/host/app" > "$work/lib.txt" || status=$?
[ "$status" -eq 1 ] || fail "exit status $status for a library its own file ignores"
shows "$work/lib.txt" "config:  $work/lib/libsigner.so.1.cfgLog (the library's own)"
grep -qF "ignored by a rule: [Ignore] key 'libsigner.so.1'" "$work/lib.txt" || fail "$(cat "$work/lib.txt")"

echo "kolvari logs beside its configuration file, and log-check reports on and off as expected"
