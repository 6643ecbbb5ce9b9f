#!/usr/bin/env bash
# `kolvari inspect --json` held against what the openssl command reads from the same files: SignedData made
# by other software, time-stamp tokens and a response, OCSP responses (good, revoked, unknown) and CRLs. A
# truncated file and a file of another type give one line and a failure.
set -euo pipefail
. "$(dirname "$0")/../support/interop.sh"
data=${KOLVARI_TEST_DATA:?path of tests/data}
checked=0

# check KIND FILE [OPENSSL-INPUT]: inspects FILE and compares with the openssl text of the input (FILE by
# default) made for KIND.
check() {
  local kind=$1 file=$2 input=${3:-$2}
  "$KOLVARI" inspect --json "$file" > "$work/ours.json" || fail "kolvari inspect failed on $file"
  "$KOLVARI" inspect "$file" > /dev/null || fail "kolvari inspect (text) failed on $file"
  case $kind in
    cms) openssl cms -cmsout -print -inform "${4:-DER}" -in "$input" > "$work/theirs.txt" ;;
    # No configuration for `openssl ts`: policy OIDs printed dotted, not by a configured name.
    token) OPENSSL_CONF=/dev/null openssl ts -reply -token_in -token_out -in "$input" -text > "$work/theirs.txt" 2> /dev/null ;;
    response) OPENSSL_CONF=/dev/null openssl ts -reply -in "$input" -text > "$work/theirs.txt" 2> /dev/null ;;
    ocsp) openssl ocsp -respin "$input" -resp_text -noverify > "$work/theirs.txt" 2> /dev/null ;;
    crl) openssl crl -inform DER -in "$input" -noout -text > "$work/theirs.txt" ;;
  esac
  python3 - "$kind" "$work/ours.json" "$work/theirs.txt" <<'PY' || fail "$file ($kind)"
import datetime, json, re, sys
kind, ours, theirs = sys.argv[1], json.load(open(sys.argv[2])), open(sys.argv[3]).read()

def when(text):  # "May  6 14:37:16 2015 GMT" -> 20150506143716Z
    return datetime.datetime.strptime(" ".join(text.split()[:4]), "%b %d %H:%M:%S %Y").strftime("%Y%m%d%H%M%SZ")

def field(label, text=theirs):
    m = re.search(r"^\s*" + re.escape(label) + r": ?(.*)$", text, re.M)
    return m.group(1).strip() if m else None

def same(a, b, what):
    assert a == b, f"{what}: ours {a!r}, openssl {b!r}"

def token(t, text):
    same(t["version"], int(field("Version", text)), "version")
    same(t["policy"], field("Policy OID", text), "policy")
    same(t["hashAlgorithm"]["name"], field("Hash Algorithm", text), "hash algorithm")
    digest = re.search(r"Message data:\n((?:\s+[0-9a-f]{4} - .*\n)+)", text).group(1)
    hexes = "".join(re.findall(r"[0-9a-f]{2}(?=[ -])", "".join(l[11:59] + " " for l in digest.splitlines())))
    same(t["hashedMessage"].lower(), hexes, "hashed message")
    same(int(t["serialNumber"], 16), int(field("Serial number", text), 16), "serial")
    same(t["genTime"], when(field("Time stamp", text)), "genTime")
    acc = field("Accuracy", text)
    parts = None if acc == "unspecified" else [None if p.startswith("unspecified") else int(p.split()[0], 16)
                                               for p in acc.split(", ")]
    same(t["accuracy"] and [t["accuracy"][k] for k in ("seconds", "millis", "micros")], parts, "accuracy")
    same(t["ordering"], field("Ordering", text) == "yes", "ordering")
    nonce = field("Nonce", text)
    same(None if t["nonce"] is None else int(t["nonce"], 16),
         None if nonce == "unspecified" else int(nonce, 16), "nonce")
    same(t["tsa"] is None, field("TSA", text) == "unspecified", "tsa present")

if kind == "cms":
    sd = ours
    same(sd["type"], "signedData", "type")
    same(sd["version"], int(field("version")), "version")
    same([a["oid"] for a in sd["digestAlgorithms"]],
         re.findall(r"algorithm: .*\(([\d.]+)\)", theirs.split("encapContentInfo:")[0]), "digest algorithms")
    same(sd["encapContentType"]["oid"], re.search(r"eContentType: .*\(([\d.]+)\)", theirs).group(1), "eContentType")
    same(sd["contentMode"] == "detached", "eContent: <ABSENT>" in theirs, "detached")
    same(sorted(int(c["serialNumber"], 16) for c in sd["certificates"]),
         sorted(int(s, 0) for s in re.findall(r"^          serialNumber: (\S+)", theirs.split("\n    crls:")[0], re.M)), "certificate serials")
    crls = theirs.split("\n    crls:\n")[1].split("\n    signerInfos:")[0]
    same(sd["crlCount"], len(re.findall(r"^      d\.crl:", crls, re.M)), "CRLs")
    signers = theirs.split("\n    signerInfos:\n")[1]
    same(len(sd["signerInfos"]), signers.count("d.issuerAndSerialNumber:") + signers.count("d.subjectKeyIdentifier:"),
         "signer count")
    same([s["version"] for s in sd["signerInfos"]],
         [int(v) for v in re.findall(r"^        version: (\d+)", signers, re.M)], "signer versions")
    oids = re.findall(r"^ {8,12}(?:algorithm|object): .*\(([\d.]+)\)", signers, re.M)
    ourOids = []
    for s in sd["signerInfos"]:
        ourOids += [s["digestAlgorithm"]["oid"]] + [a["oid"] for a in s["signedAttributes"]]
        ourOids += [s["signatureAlgorithm"]["oid"]] + [a["oid"] for a in s["unsignedAttributes"]]
        if "issuer" in s["sid"]:
            assert int(s["sid"]["serialNumber"], 16) in [int(c["serialNumber"], 16) for c in sd["certificates"]] \
                or not sd["certificates"], "signer serial not among the certificates"
    same(ourOids, [o for o in oids if o not in ("1.2.840.113549.1.7.1",)], "signer algorithms and attributes")
elif kind == "token":
    same(ours["type"], "timeStampToken", "type")
    token(ours, theirs)
elif kind == "response":
    same(ours["type"], "timeStampResponse", "type")
    same(ours["status"], 0 if field("Status") == "Granted." else None, "status")
    token(ours["token"], theirs.split("TST info:")[1])
elif kind == "ocsp":
    same(ours["type"], "ocspResponse", "type")
    same(ours["responseStatus"], int(re.search(r"\((0x[0-9a-f]+)\)", field("OCSP Response Status")).group(1), 16), "status")
    same(ours["producedAt"], when(field("Produced At")), "producedAt")
    rid = field("Responder Id")
    same(ours.get("responderKeyHash"), rid if re.fullmatch(r"[0-9A-F]{40}", rid) else None, "responder key hash")
    same(ours["certStatus"], field("Cert Status"), "cert status")
    same(ours["thisUpdate"], when(field("This Update")), "thisUpdate")
    nu = field("Next Update")
    same(ours["nextUpdate"], nu and when(nu), "nextUpdate")
    rt = field("Revocation Time")
    same(ours["revocationTime"], rt and when(rt), "revocationTime")
    if field("Revocation Reason"):
        same(ours["revocationReason"], int(re.search(r"\((0x[0-9a-fA-F]+)\)", field("Revocation Reason")).group(1), 16),
             "reason")
    same(ours["certificates"], theirs.count("Certificate:\n"), "certificates")
elif kind == "crl":
    same(ours["type"], "crl", "type")
    same(ours["thisUpdate"], when(field("Last Update")), "thisUpdate")
    same(ours["nextUpdate"], when(field("Next Update")), "nextUpdate")
    same(ours["entries"], len(re.findall(r"^    Serial Number:", theirs, re.M)), "entries")
    cn = re.search(r"CN ?= ?([^,/\n]+)", field("Issuer")).group(1).strip()
    assert "CN=" + cn in ours["issuer"], ours["issuer"]
PY
  checked=$((checked + 1))
}

# SignedData made by other software; PEM and bare base64 too.
for f in cms-signed.der cms-signed-indefinite-length.der pkcs7-signed.der smime-signature-generated-by-thunderbird.p7s \
  mozilla-generated-by-openssl.pkcs7.der; do
  check cms "$data/asn1crypto/$f"
done
check cms "$data/asn1crypto/pkcs7-signed.pem" "$data/asn1crypto/pkcs7-signed.pem" PEM
tail -n +2 "$data/asn1crypto/pkcs7-signed.pem" | grep -v -- "-----" > "$work/pkcs7-body.b64"
check cms "$work/pkcs7-body.b64" "$data/asn1crypto/pkcs7-signed.der"

# Time-stamp tokens, and a response (its token read by the same code).
for name in plain millis full; do
  check token "$data/tsp/$name.tst"
done
check response "$data/asn1crypto/tsp_response"

# OCSP: the responses of other projects, and good, revoked and unknown ones made here; CRLs.
for f in "$data"/ocsp/openssl/*.ors; do
  base64 -d "$f" > "$work/response.der"
  check ocsp "$f" "$work/response.der"
done
check ocsp "$data/ocsp/pyhanko-ocsp.resp.der"
check ocsp "$data/asn1crypto/ocsp_response"
mkdir "$work/revocation"
(cd "$work/revocation" && bash "$data/ocsp/make_revocation.sh" "$work/revocation" > /dev/null 2>&1)
for name in good revoked unknown; do check ocsp "$work/revocation/$name.ocsp"; done
check crl "$data/asn1crypto/eid2011.crl"
check crl "$data/tsp/crl.der"

# Malformed and foreign files: one line on standard error naming the file, non-zero exit, nothing on stdout.
head -c 200 "$data/asn1crypto/cms-signed.der" > "$work/truncated.p7"
printf '\x89PNG\r\n\x1a\n\x00\x00\x00\x0dIHDR\x00\x00\x00\x01\x00\x00\x00\x01\x08\x06\x00\x00\x00' > "$work/image.png"
for bad in "$work/truncated.p7" "$work/image.png" "$data/asn1crypto/cms-enveloped.der"; do
  status=0
  "$KOLVARI" inspect --json "$bad" > "$work/out" 2> "$work/err" || status=$?
  [ "$status" -ne 0 ] && [ "$status" -lt 128 ] || fail "exit status $status for $bad"
  [ "$(wc -l < "$work/err")" -eq 1 ] && grep -qF "$bad" "$work/err" || fail "not one line naming $bad"
  [ ! -s "$work/out" ] || fail "output for $bad"
done

echo "kolvari inspect agreed with openssl on $checked files"
