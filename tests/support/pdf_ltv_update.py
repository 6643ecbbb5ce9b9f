#!/usr/bin/python3
# Appends the long-term validation updates of a PDF as a validator reads them, independently of kolvari's own
# writer: a DSS update and a document time-stamp, each one incremental update with a classic xref section.
# It reads PDFs whose last revision has a classic trailer and an uncompressed catalog (what kolvari sign-pdf
# writes).
#   pdf_ltv_update.py dss IN OUT CERT... [--vri OCSP...]   /DSS /Certs (Flate), the OCSP responses only in the
#                                                           /VRI entry of the last signature
#   pdf_ltv_update.py doc-timestamp IN OUT TSADIR          a /DocTimeStamp whose token `openssl ts -reply`
#                                                           makes with TSADIR/ts.cnf
import hashlib
import re
import subprocess
import sys
import zlib

PLACEHOLDER_HEX = 16384


def last(pattern, data):
    return re.findall(pattern, data)[-1]


def object_text(data, number):
    return last(rb"(?s)\b%d 0 obj\s*(.*?)\s*endobj" % number, data)


def append(data, objects, root):
    """The update that gives objects (number -> body) and the classic xref section and trailer for them."""
    out = bytearray(data)
    prev = int(last(rb"startxref\s+(\d+)", data))
    size = max(int(last(rb"/Size (\d+)", data)), max(objects) + 1)
    offsets = {}
    for number in sorted(objects):
        offsets[number] = len(out)
        out += b"%d 0 obj\n%s\nendobj\n" % (number, objects[number])
    xref = len(out)
    out += b"xref\n" + b"".join(b"%d 1\n%010d 00000 n \n" % (n, offsets[n]) for n in sorted(objects))
    out += b"trailer\n<< /Size %d /Root %d 0 R /Prev %d >>\nstartxref\n%d\n%%%%EOF\n" % (size, root, prev, xref)
    return out


def stream(body):
    packed = zlib.compress(body)
    return b"<< /Length %d /Filter /FlateDecode >>\nstream\n%s\nendstream" % (len(packed), packed)


def dss(data, certs, ocsps):
    root = int(last(rb"/Root (\d+) 0 R", data))
    catalog = re.sub(rb"/DSS \d+ 0 R", b"", object_text(data, root))
    number = int(last(rb"/Size (\d+)", data))
    objects = {}
    for der in certs + ocsps:
        objects[number] = stream(der)
        number += 1
    refs = [b"%d 0 R" % n for n in sorted(objects)]
    contents = bytes.fromhex(last(rb"/Contents\s*<([0-9A-Fa-f]+)>", data).decode())
    key = hashlib.sha1(contents).hexdigest().upper().encode()
    objects[number] = b"<< /Certs [%s] /VRI << /%s << /OCSP [%s] >> >> >>" % (
        b" ".join(refs[:len(certs)]), key, b" ".join(refs[len(certs):]))
    objects[root] = catalog.replace(b"<<", b"<< /DSS %d 0 R" % number, 1)
    return append(data, objects, root)


def doc_timestamp(data, tsa_dir):
    root = int(last(rb"/Root (\d+) 0 R", data))
    catalog = object_text(data, root)
    form = re.search(rb"/AcroForm (\d+) 0 R", catalog)
    holder = int(form.group(1)) if form else root
    number = int(last(rb"/Size (\d+)", data))
    stamp, field = number, number + 1
    with_field = re.sub(rb"/Fields\s*\[([^\]]*)\]", lambda m: b"/Fields [%s %d 0 R]" % (m.group(1), field),
                        object_text(data, holder), count=1)
    objects = {holder: with_field, field: b"<< /FT /Sig /T (DocTimeStamp%d) /V %d 0 R /Subtype /Widget "
                                          b"/Type /Annot /F 132 /Rect [0 0 0 0] >>" % (field, stamp)}
    objects[stamp] = (b"<< /Type /DocTimeStamp /Filter /Adobe.PPKLite /SubFilter /ETSI.RFC3161\n/ByteRange "
                      b"[0 0000000000 0000000000 0000000000]\n/Contents <" + b"0" * PLACEHOLDER_HEX + b"> >>")
    out = append(data, objects, root)
    gap_start = out.rindex(b"/Contents <") + len(b"/Contents ")
    gap_end = gap_start + PLACEHOLDER_HEX + 2
    numbers = b"0 %010d %010d %010d" % (gap_start, gap_end, len(out) - gap_end)
    out = out.replace(b"0 0000000000 0000000000 0000000000", numbers, 1)
    digest = hashlib.sha256(bytes(out[:gap_start] + out[gap_end:])).hexdigest()
    query = subprocess.run(["openssl", "ts", "-query", "-digest", digest, "-sha256", "-cert"], check=True,
                           capture_output=True).stdout
    token = subprocess.run(["openssl", "ts", "-reply", "-config", "ts.cnf", "-queryfile", "/dev/stdin",
                            "-token_out"], cwd=tsa_dir, input=query, check=True, capture_output=True).stdout
    hex_token = token.hex().upper().encode()
    out[gap_start + 1:gap_start + 1 + len(hex_token)] = hex_token
    return out


if __name__ == "__main__":
    command, source, target = sys.argv[1:4]
    data = open(source, "rb").read()
    if command == "dss":
        args = sys.argv[4:]
        split = args.index("--vri") if "--vri" in args else len(args)
        read = lambda paths: [open(p, "rb").read() for p in paths]
        result = dss(data, read(args[:split]), read(args[split + 1:]))
    else:
        result = doc_timestamp(data, sys.argv[4])
    open(target, "wb").write(result)
