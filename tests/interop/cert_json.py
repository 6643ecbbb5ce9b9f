#!/usr/bin/python3
"""Holds `kolvari cert --json` against the Debian python3-cryptography package (OpenSSL underneath) for
every Mozilla root and the certificates of the test data: serial, issuer, subject and their attributes,
validity, the TBSCertificate, signature and every extension's OID, criticality and value. The tool is named
by KOLVARI, the test data folder by KOLVARI_TEST_DATA."""

import glob
import json
import os
import subprocess
import sys

from cryptography import x509

MOZILLA = "/usr/share/ca-certificates/mozilla"
TIME_FORMAT = "%Y%m%d%H%M%SZ"

failures = []
# Extensions whose value cryptography writes differently from the certificate (checked against openssl).
reencoded = []


def fail(name, text):
    failures.append(f"{name}: {text}")


def der_content(hex_text, tag):
    """The content octets of one DER element given as hex, checking its tag and that nothing follows."""
    b = bytes.fromhex(hex_text)
    if not b or b[0] != tag:
        raise ValueError(f"tag {b[:1].hex()} instead of {tag:02x}")
    first = b[1]
    if first < 0x80:
        length, start = first, 2
    else:
        count = first & 0x7F
        length, start = int.from_bytes(b[2:2 + count], "big"), 2 + count
    if start + length != len(b):
        raise ValueError("element length does not match")
    return b[start:start + length]


def decode_string(element_hex):
    """The text of a directory string element, by its tag."""
    b = bytes.fromhex(element_hex)
    tag = b[0]
    content = der_content(element_hex, tag)
    if tag == 0x1E:
        return content.decode("utf-16-be")
    if tag == 0x1C:
        return content.decode("utf-32-be")
    if tag in (0x0C, 0x13, 0x16, 0x1A):
        return content.decode("utf-8")
    if tag == 0x14:
        return content.decode("latin-1")
    return None


def run_tool(path):
    tool = os.environ["KOLVARI"]
    return subprocess.run([tool, "cert", path, "--json"], capture_output=True, text=True)


def validity(path, certificate):
    """Both validity times as YYYYMMDDhhmmssZ. Python's datetime has no year 0, so for such a certificate the
    times are taken from the openssl command instead."""
    try:
        return (certificate.not_valid_before.strftime(TIME_FORMAT), certificate.not_valid_after.strftime(TIME_FORMAT))
    except ValueError:
        form = "PEM" if open(path, "rb").read(5) == b"-----" else "DER"
        text = subprocess.run(["openssl", "x509", "-in", path, "-inform", form, "-noout", "-dates", "-dateopt",
                               "iso_8601"], capture_output=True, text=True, check=True).stdout
        times = {}
        for line in text.splitlines():
            key, value = line.split("=", 1)
            day, clock = value.strip().split(" ")
            year, month, mday = day.split("-")
            times[key] = f"{int(year):04d}{month}{mday}{clock.replace(':', '')}"
        return times["notBefore"], times["notAfter"]


def compare_names(name, label, ours, theirs):
    count = sum(len(rdn) for rdn in theirs.rdns)
    if len(ours) != count:
        fail(name, f"{label}: {len(ours)} attributes instead of {count}")
        return
    # Attributes in encoding order; within a multi-valued RDN the other side keeps no order, so each RDN is
    # compared as a set.
    at = 0
    for rdn in theirs.rdns:
        mine = ours[at:at + len(rdn)]
        at += len(rdn)
        got = sorted((m["oid"], decode_string(m["value"])) for m in mine)
        want = sorted((a.oid.dotted_string, a.value) for a in rdn)
        for (oid, text), (want_oid, want_text) in zip(got, want):
            if oid != want_oid:
                fail(name, f"{label}: attribute {oid} instead of {want_oid}")
            elif text is not None and text != want_text:
                fail(name, f"{label}: value {text!r} instead of {want_text!r}")


def openssl_extension_values(path):
    """The OCTET STRING of every extension, in order, as `openssl asn1parse` dumps it: cryptography re-encodes
    some values (string types of policy texts, the bits of a key usage), so where its encoding differs from
    the certificate's the raw value comes from here."""
    form = "PEM" if open(path, "rb").read(5) == b"-----" else "DER"
    text = subprocess.run(["openssl", "asn1parse", "-in", path, "-inform", form], capture_output=True, text=True,
                          check=True).stdout
    values = []
    in_extensions = False
    for line in text.splitlines():
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
        fail(name, f"kolvari cert exited with {result.returncode}: {result.stderr.strip()}")
        return
    ours = json.loads(result.stdout)

    serial = int.from_bytes(der_content(ours["serialNumber"], 0x02), "big", signed=True)
    if serial != certificate.serial_number:
        fail(name, f"serial {serial} instead of {certificate.serial_number}")
    issuer = certificate.issuer.public_bytes().hex().upper()
    subject = certificate.subject.public_bytes().hex().upper()
    if ours["issuer"] != issuer:
        fail(name, "issuer DER differs")
    if ours["subject"] != subject:
        fail(name, "subject DER differs")
    compare_names(name, "issuer", ours["issuerNames"], certificate.issuer)
    compare_names(name, "subject", ours["subjectNames"], certificate.subject)
    if ours["tbs"] != certificate.tbs_certificate_bytes.hex().upper():
        fail(name, "TBSCertificate differs")
    if ours["signatureValue"] != certificate.signature.hex().upper():
        fail(name, "signature value differs")
    not_before, not_after = validity(path, certificate)
    if ours["notBefore"] != not_before:
        fail(name, f"notBefore {ours['notBefore']} instead of {not_before}")
    if ours["notAfter"] != not_after:
        fail(name, f"notAfter {ours['notAfter']} instead of {not_after}")
    version = {x509.Version.v1: 1, x509.Version.v3: 3}[certificate.version]
    if ours["version"] != version:
        fail(name, f"version {ours['version']} instead of {version}")
    expected_kind = 1 if issuer == subject else 0
    if ours["kind"] != expected_kind:
        fail(name, f"kind {ours['kind']} instead of {expected_kind}")

    theirs = list(certificate.extensions)
    if len(ours["extensions"]) != len(theirs):
        fail(name, f"{len(ours['extensions'])} extensions instead of {len(theirs)}")
        return
    raw = None
    for index, (mine, extension) in enumerate(zip(ours["extensions"], theirs)):
        oid = extension.oid.dotted_string
        if mine["oid"] != oid:
            fail(name, f"extension {mine['oid']} instead of {oid}")
        if mine["critical"] != extension.critical:
            fail(name, f"extension {oid}: critical {mine['critical']} instead of {extension.critical}")
        value = der_content(mine["value"], 0x04)
        if value == extension.value.public_bytes():
            continue
        if raw is None:
            raw = openssl_extension_values(path)
        if index >= len(raw) or value != raw[index]:
            fail(name, f"extension {oid}: value differs")
        else:
            reencoded.append(f"{name} {oid}")


def load(path):
    data = open(path, "rb").read()
    if data.startswith(b"-----BEGIN"):
        return x509.load_pem_x509_certificate(data)
    return x509.load_der_x509_certificate(data)


def expect_status(name, path, status, kind=None):
    result = run_tool(path)
    if result.returncode != status:
        fail(name, f"exit status {result.returncode} instead of {status}")
        return
    if status != 0 and not result.stderr.strip():
        fail(name, "no message on stderr")
    if kind is not None and json.loads(result.stdout)["kind"] != kind:
        fail(name, f"kind is not {kind}")


def main():
    data = os.environ["KOLVARI_TEST_DATA"]
    roots = sorted(glob.glob(os.path.join(MOZILLA, "*.crt")))
    for path in roots:
        compare(os.path.basename(path), path, load(path))

    others = [
        "asn1crypto/rfc3739.crt", "asn1crypto/test-der.crt", "asn1crypto/test.crt",
        "asn1crypto/test-inter-der.crt", "asn1crypto/test-ec-der.crt", "asn1crypto/admin.ch.crt",
        "asn1crypto/self-signed-repeated-subject-fields.der", "asn1crypto/9999-years-rsa-cert.pem",
        "x509/ee-qc.der", "x509/ca-printable.der", "x509/v1-self-signed.der",
    ]
    for name in others:
        path = os.path.join(data, name)
        compare(name, path, load(path))

    # Attribute certificates of the version-1 layout parse; the RFC 5755 layout (holder SEQUENCE) does not.
    expect_status("x509/ac-v1-base-id.der", os.path.join(data, "x509/ac-v1-base-id.der"), 0, kind=5)
    expect_status("x509/ac-v1-entity-name.der", os.path.join(data, "x509/ac-v1-entity-name.der"), 0, kind=5)
    expect_status("asn1crypto/example-attr-cert.der", os.path.join(data, "asn1crypto/example-attr-cert.der"), 2)
    expect_status("asn1crypto/cms-signed.der", os.path.join(data, "asn1crypto/cms-signed.der"), 2)
    expect_status("missing file", os.path.join(data, "no-such-file.der"), 1)

    for line in failures:
        print(line)
    print(f"{len(roots)} Mozilla roots and {len(others)} other certificates compared, {len(failures)} differences;"
          f" {len(reencoded)} extension values re-encoded by cryptography, checked against openssl asn1parse")
    return 1 if failures or not roots else 0


if __name__ == "__main__":
    sys.exit(main())
