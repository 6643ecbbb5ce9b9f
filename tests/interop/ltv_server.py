#!/usr/bin/python3
# The loopback services of tests/interop/ltv.sh: a time-stamp authority answering with `openssl ts -reply`, an
# OCSP responder answering with `openssl ocsp -index`, and the CRL file, all under one HTTP server on
# 127.0.0.1 at a port the system picks. The port is written to the file named on the command line once the
# server listens. Some paths misbehave on purpose, for the failure cases:
#   POST /tsa            a normal answer            POST /tsa/http500       HTTP status 500
#   POST /tsa/slow       answers after 5 s          POST /tsa/wrong-nonce   a token for another nonce
#   POST /tsa/wrong-imprint  a token over another hash
#   POST /tsa/no-certificate a token without the authority's certificate
#   POST /ocsp           a normal answer            POST /ocsp/down         HTTP status 503
#   GET  /ca.crl         the CA's CRL (DER)
# Usage: ltv_server.py DIR PORTFILE. DIR holds ts.cnf, index.txt, ca.pem, ocsp.pem, ocsp.key, ca.crl.
import http.server
import os
import subprocess
import sys
import tempfile
import threading
import time

from asn1crypto import tsp

MAX_BODY = 64 * 1024
SLOW_SECONDS = 5
OPENSSL_SECONDS = 20

directory, port_file = sys.argv[1], sys.argv[2]
# `openssl ts -reply` reads and rewrites the serial file: the replies to clients that ask at once (a batch on
# several threads) are made one at a time.
serial_lock = threading.Lock()


def openssl(args, request):
    with tempfile.TemporaryDirectory() as work:
        query = os.path.join(work, "query.der")
        answer = os.path.join(work, "answer.der")
        with open(query, "wb") as f:
            f.write(request)
        subprocess.run(["openssl"] + [a.replace("QUERY", query).replace("ANSWER", answer) for a in args],
                       cwd=directory, check=True, timeout=OPENSSL_SECONDS,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        with open(answer, "rb") as f:
            return f.read()


def altered_query(request, what):
    query = tsp.TimeStampReq.load(request)
    if what == "wrong-nonce":
        query["nonce"] = query["nonce"].native + 1
    elif what == "no-certificate":
        query["cert_req"] = False
    else:
        hashed = bytearray(query["message_imprint"]["hashed_message"].native)
        hashed[0] ^= 0xFF
        query["message_imprint"]["hashed_message"] = bytes(hashed)
    return query.dump(force=True)


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def answer(self, status, body=b"", kind="application/octet-stream"):
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        try:
            self.wfile.write(body)
        except (BrokenPipeError, ConnectionResetError):
            pass  # the client gave up waiting (the time-out case)

    def do_GET(self):
        if self.path != "/ca.crl":
            return self.answer(404)
        with open(os.path.join(directory, "ca.crl"), "rb") as f:
            self.answer(200, f.read(), "application/pkix-crl")

    def do_POST(self):
        length = int(self.headers.get("Content-Length", "0"))
        if length <= 0 or length > MAX_BODY:
            return self.answer(400)
        request = self.rfile.read(length)
        path = self.path
        if path in ("/tsa/http500", "/ocsp/down"):
            return self.answer(500 if path == "/tsa/http500" else 503)
        if path == "/tsa/slow":
            time.sleep(SLOW_SECONDS)
            path = "/tsa"
        if path in ("/tsa/wrong-nonce", "/tsa/wrong-imprint", "/tsa/no-certificate"):
            request = altered_query(request, path.rsplit("/", 1)[1])
            path = "/tsa"
        if path == "/tsa":
            with serial_lock:
                reply = openssl(["ts", "-reply", "-config", "ts.cnf", "-queryfile", "QUERY", "-out", "ANSWER"],
                                request)
            return self.answer(200, reply, "application/timestamp-reply")
        if path == "/ocsp":
            reply = openssl(["ocsp", "-index", "index.txt", "-CA", "ca.pem", "-rsigner", "ocsp.pem",
                             "-rkey", "ocsp.key", "-ndays", "1", "-reqin", "QUERY", "-respout", "ANSWER"], request)
            return self.answer(200, reply, "application/ocsp-response")
        self.answer(404)


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True


server = Server(("127.0.0.1", 0), Handler)
with open(port_file + ".tmp", "w") as f:
    f.write(str(server.server_address[1]))
os.rename(port_file + ".tmp", port_file)
server.serve_forever()
