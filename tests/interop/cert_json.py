#!/usr/bin/python3
"""`kolvari cert --json` (the tool in KOLVARI) against python3-cryptography and the openssl command for every
Mozilla root and the certificates of KOLVARI_TEST_DATA: serial, names, validity, TBSCertificate, signature and
every extension (its value as `openssl asn1parse` dumps it: cryptography re-encodes some)."""

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


def der_content(hex_text, tag):  # the content octets of one DER element given in hex; its tag and length checked
    b = bytes.fromhex(hex_text)
    count = b[1] & 0x7F if len(b) > 1 and b[1] >= 0x80 else 0
    length = int.from_bytes(b[2:2 + count], "big") if count else b[1]
    assert b[0] == tag and 2 + count + length == len(b), f"not one element of tag {tag:02x}: {hex_text[:20]}"
    return b[2 + count:]


def openssl(path, command, *options):
    form = "PEM" if open(path, "rb").read(5) == b"-----" else "DER"
    return subprocess.run(["openssl", command, "-in", path, "-inform", form, *options], capture_output=True,
                          text=True, check=True).stdout


def openssl_facts(path):
    """The validity times as YYYYMMDDhhmmssZ (a year 0 too, which Python's datetime lacks) and every
    extension's OCTET STRING."""
    times = {}
    for line in openssl(path, "x509", "-noout", "-dates", "-dateopt", "iso_8601").splitlines():
        key, day, clock = line.replace("=", " ", 1).split()  # the year of 0 comes as "   0"
        year, month_day = day.split("-", 1)
        times[key] = f"{int(year):04d}{month_day.replace('-', '')}{clock.replace(':', '')}"
    values, in_extensions = [], False
    for line in openssl(path, "asn1parse").splitlines():
        in_extensions = in_extensions or "cont [ 3 ]" in line
        if in_extensions and " d=1 " in line:
            break
        if in_extensions and "OCTET STRING" in line and "[HEX DUMP]:" in line:
            values.append(line.split("[HEX DUMP]:", 1)[1])
    return times["notBefore"], times["notAfter"], values


def compare_names(label, ours, theirs):
    # Attributes in encoding order; a multi-valued RDN as a set, since the other side keeps no order in it.
    assert len(ours) == sum(len(rdn) for rdn in theirs.rdns), f"{label}: {len(ours)} attributes"
    at = 0
    for rdn in theirs.rdns:
        got = []
        for m in ours[at:at + len(rdn)]:
            tag = bytes.fromhex(m["value"])[0]
            got.append((m["oid"], der_content(m["value"], tag).decode(STRING_CODECS[tag]) if tag in STRING_CODECS
                        else None))
        at += len(rdn)
        for (oid, text), want in zip(sorted(got), sorted((a.oid.dotted_string, a.value) for a in rdn)):
            assert oid == want[0] and text in (None, want[1]), f"{label}: {oid} {text!r} instead of {want}"


def compare(path):
    data = open(path, "rb").read()
    certificate = (x509.load_pem_x509_certificate if data.startswith(b"-----") else x509.load_der_x509_certificate)(data)
    result = subprocess.run([os.environ["KOLVARI"], "cert", path, "--json"], capture_output=True, text=True)
    assert result.returncode == 0, f"kolvari cert exited with {result.returncode}: {result.stderr.strip()}"
    ours = json.loads(result.stdout)
    issuer, subject = (n.public_bytes().hex().upper() for n in (certificate.issuer, certificate.subject))
    not_before, not_after, values = openssl_facts(path)
    want = {"issuer": issuer, "subject": subject, "tbs": certificate.tbs_certificate_bytes.hex().upper(),
            "signatureValue": certificate.signature.hex().upper(), "notBefore": not_before, "notAfter": not_after,
            "version": {x509.Version.v1: 1, x509.Version.v3: 3}[certificate.version],
            "kind": 1 if issuer == subject else 0, "serial": certificate.serial_number,
            "extensions": [(e.oid.dotted_string, e.critical, v) for e, v in zip(certificate.extensions, values)]}
    got = {key: ours.get(key) for key in want}
    got["serial"] = int.from_bytes(der_content(ours["serialNumber"], 0x02), "big", signed=True)
    got["extensions"] = [(e["oid"], e["critical"], der_content(e["value"], 0x04).hex().upper())
                         for e in ours["extensions"]]
    assert len(ours["extensions"]) == len(values) == len(certificate.extensions), "number of extensions"
    for key in want:
        assert got[key] == want[key], f"{key} {str(got[key])[:80]} instead of {str(want[key])[:80]}"
    compare_names("issuer", ours["issuerNames"], certificate.issuer)
    compare_names("subject", ours["subjectNames"], certificate.subject)


def main():
    data = os.environ["KOLVARI_TEST_DATA"]
    roots = sorted(glob.glob(os.path.join(MOZILLA, "*.crt")))
    others = [os.path.join(data, name) for name in (
        "asn1crypto/rfc3739.crt", "asn1crypto/test-der.crt", "asn1crypto/test.crt",
        "asn1crypto/test-inter-der.crt", "asn1crypto/test-ec-der.crt", "asn1crypto/admin.ch.crt",
        "asn1crypto/self-signed-repeated-subject-fields.der", "asn1crypto/9999-years-rsa-cert.pem",
        "x509/ee-qc.der", "x509/ca-printable.der", "x509/v1-self-signed.der")]
    for path in roots + others:
        try:
            compare(path)
        except AssertionError as error:
            failures.append(f"{os.path.basename(path)}: {error}")

    # A file that is not a certificate: exit status 2 with a message, nothing on standard output.
    result = subprocess.run([os.environ["KOLVARI"], "cert", os.path.join(data, "asn1crypto/cms-signed.der"), "--json"],
                            capture_output=True, text=True)
    if (result.returncode, bool(result.stdout), bool(result.stderr.strip())) != (2, False, True):
        failures.append(f"cms-signed.der: exit status {result.returncode}, {result.stdout[:80]}{result.stderr.strip()}")

    print("\n".join(failures + [f"{len(roots)} Mozilla roots and {len(others)} other certificates compared, "
                                f"{len(failures)} differences"]))
    return 1 if failures or not roots else 0


if __name__ == "__main__":
    sys.exit(main())
