#!/usr/bin/env bash
# Faults of the machine: a disk that fills up under a batch (a 64 KB tmpfs, so this needs root; exit 77
# when it cannot be mounted), a batch ended by a signal, and no /proc (through which an unnamed new file
# gets its name: the writer then renames a temporary file into place). Either way only whole signatures are left, no
# temporary file, and the messages say which files were done. (sign-pdf writes through the same
# writeOutputFile; a single signature whose write fails half-way: large_content.sh.)
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
mkdir disk
trap 'cd /; umount "$work/disk" 2>/dev/null || true; rm -rf "$work"' EXIT
make_test_ca "Kolvari Disk CA"
make_signer p256 "/CN=disk signer" ec:P-256
signer=(--key p256.key --cert p256.pem)
no_temporaries() {  # folder
  [ -z "$(find "$1" -name '.*' -type f)" ] || fail "temporary files left in $1: $(find "$1" -name '.*' -type f)"
}

# ---- a signal in the middle of a batch: the input after two files is a FIFO no one writes to (one thread,
# so that c.txt waits behind it) ----
printf 'a\n' > a.txt
printf 'b\n' > b.txt
printf 'c\n' > c.txt
mkfifo blocked.txt
mkdir out
"$KOLVARI" sign "${signer[@]}" --jobs 1 --out-dir out a.txt b.txt blocked.txt \
  c.txt 2>err.txt &
pid=$!
for _ in $(seq 1 100); do [ -e out/b.txt.p7s ] && break; sleep 0.1; done
sleep 0.2
kill -TERM "$pid"
if wait "$pid"; then status=0; else status=$?; fi
[ "$status" -eq 143 ] || fail "a batch ended by SIGTERM: exit status $status, not 143"
grep -qx 'kolvari sign: interrupted after 2 of 4 files were signed (the last: b.txt); no partial signature is left' err.txt ||
  fail "the interrupted batch says: $(cat err.txt)"
[ "$(ls out)" = "$(printf 'a.txt.p7s\nb.txt.p7s')" ] || fail "after the signal out holds: $(ls -A out)"
no_temporaries out

# ---- a full disk ----
mount -t tmpfs -o size=64k tmpfs disk 2>/dev/null || { echo "full disk: cannot mount a tmpfs (not root?)"; exit 77; }
for i in 1 2 3 4 5 6 7 8; do head -c 12000 /dev/urandom > "f$i.bin"; done
if sign --attached --out-dir disk f*.bin 2>err.txt; then fail "a batch onto a full disk gave status 0"; fi
made=$(find disk -name '*.p7s' | wc -l)
[ "$made" -ge 1 ] && [ "$made" -lt 8 ] || fail "the disk took $made of 8 signatures: make it fit 1 to 7"
grep -q 'No space left on device' err.txt || fail "the full disk is not named: $(cat err.txt)"
grep -q "$((8 - made)) of 8 files not signed (each named above); the other $made signatures are whole in disk" err.txt ||
  fail "the batch summary: $(tail -1 err.txt)"
for s in disk/*.p7s; do verifies "$s" || fail "$s is not whole: $(cat verify.err)"; done
no_temporaries disk

# ---- no /proc (a mount namespace of its own): outputs are made, replaced with --force and refused without
# it just the same, with the umask's mode. A sanitizer's runtime needs /proc: skipped where the tool fails. ----
without_proc() { unshare --mount sh -c 'umount -l /proc && umask 077 && "$@"' without_proc "$@"; }
if without_proc "$KOLVARI" --help > /dev/null 2>&1; then
  mkdir noproc
  without_proc bash -c 'sign() { "$KOLVARI" sign --key p256.key --cert p256.pem --out-dir noproc "$@"; }
    sign a.txt b.txt && sign --force a.txt && ! sign b.txt 2>noproc.err' || fail "without /proc: $(cat noproc.err)"
  grep -qx 'kolvari sign: noproc/b.txt.p7s exists (--force replaces it)' noproc.err || fail "without /proc: $(cat noproc.err)"
  [ "$(stat -c %a noproc/a.txt.p7s)" = 600 ] && verifies noproc/a.txt.p7s a.txt || fail "without /proc: a.txt.p7s"
  no_temporaries noproc
else
  echo "full disk: the tool does not run without /proc here (a sanitizer build?); that case is skipped"
fi

echo "full disk: passed"
