#!/usr/bin/python3
"""The asn1crypto column of the interoperability matrix.

Usage: matrix_check.py ROOT_CERT [SIGNATURE CONTENT]...   (CONTENT is "-" for attached signatures)

Each signature is parsed with asn1crypto down to every field (certificates, CRLs, every attribute), then each
signer is checked with python3-cryptography: the message-digest attribute against the content, the
content-type attribute against the encapsulated type, the signature over the signed attributes as they stand,
and the signer certificate's chain up to ROOT_CERT through the certificates of the container.
Prints one line per signature: its path, a tab, then "accepted" or "rejected: why".
"""

import hashlib
import sys

from asn1crypto import cms, pem, x509
from cryptography import x509 as cx509
from cryptography.exceptions import InvalidSignature
from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric import ec, padding, rsa

HASHES = {"sha256": hashes.SHA256, "sha384": hashes.SHA384, "sha512": hashes.SHA512}


class Rejected(Exception):
    pass


def verify_with(public_key, signature, data, hash_name):
    algorithm = HASHES[hash_name]()
    if isinstance(public_key, rsa.RSAPublicKey):
        public_key.verify(signature, data, padding.PKCS1v15(), algorithm)
    elif isinstance(public_key, ec.EllipticCurvePublicKey):
        public_key.verify(signature, data, ec.ECDSA(algorithm))
    else:
        raise Rejected("unsupported key type")


def check_issued_by(certificate, issuer):
    c = cx509.load_der_x509_certificate(certificate.dump())
    i = cx509.load_der_x509_certificate(issuer.dump())
    try:
        verify_with(i.public_key(), c.signature, c.tbs_certificate_bytes, c.signature_hash_algorithm.name)
    except InvalidSignature:
        raise Rejected("certificate %s not signed by %s" % (certificate.subject.human_friendly,
                                                            issuer.subject.human_friendly))


def check_chain(certificate, pool, root):
    for _ in range(8):
        if certificate.issuer == root.subject:
            check_issued_by(certificate, root)
            return
        issuers = [c for c in pool if c.subject == certificate.issuer and c.dump() != certificate.dump()]
        if not issuers:
            raise Rejected("no issuer for " + certificate.subject.human_friendly)
        check_issued_by(certificate, issuers[0])
        certificate = issuers[0]
    raise Rejected("chain too long")


def attribute(signed_attrs, name):
    values = [a["values"] for a in signed_attrs if a["type"].native == name]
    if len(values) != 1 or len(values[0]) != 1:
        raise Rejected("want one %s attribute with one value" % name)
    return values[0][0]


def check_signer(signer, signed_data, content, pool, root):
    sid = signer["sid"]
    if sid.name != "issuer_and_serial_number":
        raise Rejected("signer identified by " + sid.name)
    wanted = sid.chosen
    matches = [c for c in pool if c.issuer == wanted["issuer"] and c.serial_number == wanted["serial_number"].native]
    if len(matches) != 1:
        raise Rejected("signer certificate not in the container")
    certificate = matches[0]

    hash_name = signer["digest_algorithm"]["algorithm"].native
    if hash_name not in HASHES:
        raise Rejected("digest " + hash_name)
    if hash_name not in [a["algorithm"].native for a in signed_data["digest_algorithms"]]:
        raise Rejected("digest algorithm of the signer not listed in the SignedData")
    signed_attrs = signer["signed_attrs"]
    if len(signed_attrs) == 0:
        raise Rejected("no signed attributes")
    if attribute(signed_attrs, "message_digest").native != hashlib.new(hash_name, content).digest():
        raise Rejected("message digest differs")
    if attribute(signed_attrs, "content_type").native != signed_data["encap_content_info"]["content_type"].native:
        raise Rejected("content type differs")

    # The signature covers the attributes exactly as they were sent, with the SET tag in place of [0].
    dtbs = b"\x31" + signed_attrs.dump()[1:]
    if signer["signature_algorithm"].hash_algo != hash_name:
        raise Rejected("signature hash differs from the digest algorithm")
    c = cx509.load_der_x509_certificate(certificate.dump())
    try:
        verify_with(c.public_key(), signer["signature"].native, dtbs, hash_name)
    except InvalidSignature:
        raise Rejected("bad signature")
    check_chain(certificate, pool, root)


def check(path, content_path, root):
    with open(path, "rb") as f:
        info = cms.ContentInfo.load(f.read())
    if info["content_type"].native != "signed_data":
        raise Rejected("not signedData")
    signed_data = info["content"]
    signed_data.native  # every field, certificates and CRLs included, must parse
    encapsulated = signed_data["encap_content_info"]["content"]
    if content_path == "-":
        if encapsulated.native is None:
            raise Rejected("no encapsulated content")
        content = encapsulated.native
    else:
        if encapsulated.native is not None:
            raise Rejected("detached signature carries content")
        with open(content_path, "rb") as f:
            content = f.read()
    pool = [c.chosen for c in signed_data["certificates"] if c.name == "certificate"]
    signers = list(signed_data["signer_infos"])
    if not signers:
        raise Rejected("no signers")
    for signer in signers:
        check_signer(signer, signed_data, content, pool, root)


def main(argv):
    with open(argv[1], "rb") as f:
        data = f.read()
    root = x509.Certificate.load(pem.unarmor(data)[2] if pem.detect(data) else data)
    pairs = argv[2:]
    for i in range(0, len(pairs) - 1, 2):
        path, content_path = pairs[i], pairs[i + 1]
        try:
            check(path, content_path, root)
            print("%s\taccepted" % path)
        except (Rejected, ValueError, TypeError, KeyError) as e:
            print("%s\trejected: %s" % (path, e))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
