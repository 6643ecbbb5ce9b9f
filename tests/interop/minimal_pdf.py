#!/usr/bin/python3
# Hand-written PDFs with a classic cross-reference table, offsets counted here. Run as a program it writes a
# one-page PDF to the path given; sign_pdf.sh imports write() for its own producers.
import sys


def write(path, objects):
    """Writes objects 1..n (bodies as bytes, the first the catalog) and their xref table to path."""
    out = bytearray(b"%PDF-1.4\n%\xe2\xe3\xcf\xd3\n")
    offsets = []
    for number, body in enumerate(objects, 1):
        offsets.append(len(out))
        out += b"%d 0 obj\n%s\nendobj\n" % (number, body)
    xref = len(out)
    out += b"xref\n0 %d\n0000000000 65535 f \n" % (len(objects) + 1)
    out += b"".join(b"%010d 00000 n \n" % o for o in offsets)
    out += b"trailer\n<< /Size %d /Root 1 0 R >>\nstartxref\n%d\n%%%%EOF\n" % (len(objects) + 1, xref)
    open(path, "wb").write(out)


if __name__ == "__main__":
    write(sys.argv[1], [
        b"<< /Type /Catalog /Pages 2 0 R >>",
        b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] >>",
    ])
