#!/usr/bin/python3
"""`kolvari cert --json` (the tool in KOLVARI) against python3-cryptography for every Mozilla root and the
certificates of KOLVARI_TEST_DATA: serial, names, validity, TBSCertificate, signature and every extension."""

import glob
import json
import os
import subprocess
import sys

from cryptography import x509

MOZILLA = "/usr/share/ca-certificates/mozilla"
# Text decodings of the directory string tags; other tags are compared by OID only.
STRING_CODECS = {0x1E: "utf-16-be", 0x1C: "utf-32-be", 0x0C: "utf-8", 0x13: "utf-8", 0x16: "utf-8", 0x1A: "utf-8",
                 0x14: "latin-1"}

failures = []
# Extensions whose value cryptography writes differently from the certificate (checked against openssl).
reencoded = []


def fail(name, text):
    failures.append(f"{name}: {text}")


def der_content(hex_text, tag):  # the content octets of one DER element in hex; its tag and length checked
    b = bytes.fromhex(hex_text)
    if not b or b[0] != tag:
        raise ValueError(f"tag {b[:1].hex()} instead of {tag:02x}")
    count = b[1] & 0x7F if b[1] >= 0x80 else 0
    length = int.from_bytes(b[2:2 + count], "big") if count else b[1]
    if 2 + count + length != len(b):
        raise ValueError("element length does not match")
    return b[2 + count:]


def decode_string(element_hex):
    tag = bytes.fromhex(element_hex)[0]
    codec = STRING_CODECS.get(tag)
    return der_content(element_hex, tag).decode(codec) if codec else None


def run_tool(path):
    return subprocess.run([os.environ["KOLVARI"], "cert", path, "--json"], capture_output=True, text=True)


def openssl(command, path, *options):
    form = "PEM" if open(path, "rb").read(5) == b"-----" else "DER"
    return subprocess.run(["openssl", command, "-in", path, "-inform", form, *options], capture_output=True,
                          text=True, check=True).stdout


def validity(path, certificate):
    """Both validity times as YYYYMMDDhhmmssZ; from openssl for a year 0, which Python's datetime lacks."""
    try:
        return tuple(t.strftime("%Y%m%d%H%M%SZ") for t in (certificate.not_valid_before, certificate.not_valid_after))
    except ValueError:
        times = {}
        for line in openssl("x509", path, "-noout", "-dates", "-dateopt", "iso_8601").splitlines():
            key, day, clock = line.replace("=", " ", 1).split()  # the year of 0 comes as "   0"
            year, month_day = day.split("-", 1)
            times[key] = f"{int(year):04d}{month_day.replace('-', '')}{clock.replace(':', '')}"
        return times["notBefore"], times["notAfter"]


def compare_names(name, label, ours, theirs):
    count = sum(len(rdn) for rdn in theirs.rdns)
    if len(ours) != count:
        return fail(name, f"{label}: {len(ours)} attributes instead of {count}")
    # Attributes in encoding order; a multi-valued RDN as a set, since the other side keeps no order in it.
    at = 0
    for rdn in theirs.rdns:
        got = sorted((m["oid"], decode_string(m["value"])) for m in ours[at:at + len(rdn)])
        at += len(rdn)
        for (oid, text), (want_oid, want_text) in zip(got, sorted((a.oid.dotted_string, a.value) for a in rdn)):
            if oid != want_oid or (text is not None and text != want_text):
                fail(name, f"{label}: {oid} {text!r} instead of {want_oid} {want_text!r}")


def openssl_extension_values(path):
    """Every extension's OCTET STRING as `openssl asn1parse` dumps it, for the values cryptography re-encodes
    (string types of policy texts, the bits of a key usage)."""
    values = []
    in_extensions = False
    for line in openssl("asn1parse", path).splitlines():
        if "cont [ 3 ]" in line:
            in_extensions = True
        elif in_extensions and "OCTET STRING" in line and "[HEX DUMP]:" in line:
            values.append(bytes.fromhex(line.split("[HEX DUMP]:", 1)[1]))
        elif in_extensions and " d=1 " in line:
            break
    return values


def compare(name, path, certificate):
    result = run_tool(path)
    if result.returncode != 0:
        return fail(name, f"kolvari cert exited with {result.returncode}: {result.stderr.strip()}")
    ours = json.loads(result.stdout)
    issuer, subject = (n.public_bytes().hex().upper() for n in (certificate.issuer, certificate.subject))
    want = {"issuer": issuer, "subject": subject, "tbs": certificate.tbs_certificate_bytes.hex().upper(),
            "signatureValue": certificate.signature.hex().upper(),
            "version": {x509.Version.v1: 1, x509.Version.v3: 3}[certificate.version],
            "kind": 1 if issuer == subject else 0}
    want["notBefore"], want["notAfter"] = validity(path, certificate)
    got = {key: ours[key] for key in want}
    want["serial"] = certificate.serial_number
    got["serial"] = int.from_bytes(der_content(ours["serialNumber"], 0x02), "big", signed=True)
    for key in want:
        if got[key] != want[key]:
            fail(name, f"{key} {str(got[key])[:80]} instead of {str(want[key])[:80]}")
    compare_names(name, "issuer", ours["issuerNames"], certificate.issuer)
    compare_names(name, "subject", ours["subjectNames"], certificate.subject)

    theirs = list(certificate.extensions)
    if len(ours["extensions"]) != len(theirs):
        return fail(name, f"{len(ours['extensions'])} extensions instead of {len(theirs)}")
    raw = None
    for index, (mine, extension) in enumerate(zip(ours["extensions"], theirs)):
        oid = extension.oid.dotted_string
        if (mine["oid"], mine["critical"]) != (oid, extension.critical):
            fail(name, f"extension {mine['oid']} critical {mine['critical']} instead of {oid} {extension.critical}")
        value = der_content(mine["value"], 0x04)
        if value == extension.value.public_bytes():
            continue
        raw = raw if raw is not None else openssl_extension_values(path)
        if index >= len(raw) or value != raw[index]:
            fail(name, f"extension {oid}: value differs")
        else:
            reencoded.append(f"{name} {oid}")


def load(path):
    data = open(path, "rb").read()
    return (x509.load_pem_x509_certificate if data.startswith(b"-----BEGIN") else x509.load_der_x509_certificate)(data)


def main():
    data = os.environ["KOLVARI_TEST_DATA"]
    roots = sorted(glob.glob(os.path.join(MOZILLA, "*.crt")))
    others = [os.path.join(data, name) for name in (
        "asn1crypto/rfc3739.crt", "asn1crypto/test-der.crt", "asn1crypto/test.crt",
        "asn1crypto/test-inter-der.crt", "asn1crypto/test-ec-der.crt", "asn1crypto/admin.ch.crt",
        "asn1crypto/self-signed-repeated-subject-fields.der", "asn1crypto/9999-years-rsa-cert.pem",
        "x509/ee-qc.der", "x509/ca-printable.der", "x509/v1-self-signed.der")]
    for path in roots + others:
        compare(os.path.relpath(path, data) if path.startswith(data) else os.path.basename(path), path, load(path))

    # Attribute certificates of the version-1 layout parse; the RFC 5755 layout (holder SEQUENCE) does not.
    for name, status, kind in (("x509/ac-v1-base-id.der", 0, 5), ("x509/ac-v1-entity-name.der", 0, 5),
                               ("asn1crypto/example-attr-cert.der", 2, None), ("asn1crypto/cms-signed.der", 2, None),
                               ("no-such-file.der", 1, None)):
        result = run_tool(os.path.join(data, name))
        if result.returncode != status:
            fail(name, f"exit status {result.returncode} instead of {status}")
        elif status != 0 and not result.stderr.strip():
            fail(name, "no message on stderr")
        elif kind is not None and json.loads(result.stdout)["kind"] != kind:
            fail(name, f"kind is not {kind}")

    for line in failures:
        print(line)
    print(f"{len(roots)} Mozilla roots and {len(others)} other certificates compared, {len(failures)} differences;"
          f" {len(reencoded)} extension values re-encoded by cryptography, checked against openssl asn1parse")
    return 1 if failures or not roots else 0


if __name__ == "__main__":
    sys.exit(main())
