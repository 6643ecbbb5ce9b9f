// kolvari: a command-line host for the Kolvari PKCS7 Signature Encoder, and a looking glass for DER.
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "log/cvel_logger.h"

namespace {

struct Command {
  const char* name;
  int (*run)(const Arguments&);
  const char* summary;  // one line in the list of commands
  const char* help;     // `kolvari COMMAND --help`: synopsis, what it does, options, an example
};

constexpr Command kCommands[] = {
    {"info", runInfo, "load the plug-in and print its provider name and encoders",
     "usage: kolvari info [--plugin PATH]\n"
     "\n"
     "Loads the plug-in with dlopen, as a host does, and prints its path, its provider name and its encoders.\n"
     "\n"
     "  --plugin PATH   the plug-in to load (default: libkolvari-pkcs7.so beside the tool, else the installed\n"
     "                  libkolvari-pkcs7.so.1)\n"
     "\n"
     "example:\n"
     "  kolvari info --plugin /usr/lib/libkolvari-pkcs7.so.1\n"},
    {"der", runDer, "print the element tree of a DER file",
     "usage: kolvari der FILE\n"
     "\n"
     "Prints one line per element of a DER file: offset, depth, header length, length and tag, laid out like\n"
     "`openssl asn1parse -inform DER -i`. A malformed file is shown up to the fault, then exit status 1.\n"
     "\n"
     "example:\n"
     "  kolvari der document.p7s\n"},
    {"detect", runDetect, "name the content type of each file (PKCS #7, PEM, PDF, ...)",
     "usage: kolvari detect [--json] FILE...\n"
     "\n"
     "Names the content type of each file as the library's detector sees it: the code in hexadecimal, a short\n"
     "name and the path. A file that cannot be read is named on standard error and the exit status is 1.\n"
     "\n"
     "  --json   one array with an object {\"file\", \"code\", \"name\"} per file\n"
     "\n"
     "example:\n"
     "  kolvari detect document.p7s document.txt\n"},
    {"cert", runCert, "parse a certificate (DER, PEM or base64) and print its parts",
     "usage: kolvari cert FILE [--json]\n"
     "\n"
     "Parses a certificate in DER, PEM or bare base64 with the library and prints its parts. A file that is not\n"
     "a certificate the library parses: exit status 2.\n"
     "\n"
     "  --json   one object with the DER of each part in hex, the times, the name attributes, the extensions\n"
     "\n"
     "example:\n"
     "  kolvari cert --json signer.pem\n"},
    {"inspect", runInspect, "decode a signature, time stamp, OCSP response, CRL or certificate",
     "usage: kolvari inspect FILE|FILE.pdf [--json]\n"
     "\n"
     "Finds out what FILE holds (SignedData, time-stamp token or response, OCSP response, CRL, certificate,\n"
     "or a PDF, whose signatures are listed) and prints it decoded by the library as an indented tree.\n"
     "A file of another type: exit status 2.\n"
     "\n"
     "  --json   the same fields as one JSON object (schema in README.md)\n"
     "\n"
     "example:\n"
     "  kolvari inspect document.p7s\n"},
    {"log-check", runLogCheck, "show what the logger makes of its configuration file",
     "usage: kolvari log-check [--config FILE] [--library PATH --host PROGRAM]\n"
     "\n"
     "Shows whether logging would be on under a logging configuration file and why, its levels, sinks and\n"
     "line layout, and one sample line per level; unknown sections, keys, levels and fields are named on\n"
     "standard error with their line. Exit status 0 when logging would be on and write lines, 1 otherwise.\n"
     "\n"
     "  --config FILE   the file to check (default: the tool's own, its path with .cfgLog appended)\n"
     "  --library PATH  judge as the library at PATH inside --host PROGRAM would: PATH.cfgLog, else\n"
     "                  PROGRAM.cfgLog (or --config FILE), with the [Ignore] rules applied to PATH\n"
     "\n"
     "example:\n"
     "  kolvari log-check --config kolvari.cfgLog\n"},
    {"sign", runSign, "sign files through the plug-in (OpenSSL hashes, a key file or a PKCS#11 token signs)",
     "usage: kolvari sign (--key KEY --cert CERT | --p12 FILE [--cert CERT] |\n"
     "                     --pkcs11 URI [--pkcs11-module PATH] [--cert CERT]) [--pass SOURCE]\n"
     "                    [--chain CERTS]... [--crl CRL]... [--digest sha256|sha384|sha512]\n"
     "                    [--time YYYYMMDDhhmmssZ] [--attached] [--pem] [--plugin PATH]\n"
     "                    [--signer KEY,CERT]... [--signed-attr OID=HEXDER]... [--unsigned-attr OID=HEXDER]...\n"
     "                    [--der-order] [--tsa URL [--tsa-digest sha256|sha384|sha512] [--tsa-timeout SECONDS]]\n"
     "                    [--ocsp-response FILE]... [--revocation-crl FILE]... [--fetch-revocation]\n"
     "                    [--allow-revoked] [--out FILE] FILE\n"
     "       kolvari sign ... --out-dir DIR [--force] [--quiet] FILE...\n"
     "\n"
     "The reference host: loads the plug-in, hashes FILE and the signer certificate with OpenSSL, has the\n"
     "library build the signed attributes, signs them (RSA PKCS #1 v1.5 or ECDSA) and has the library encode\n"
     "the SignerInfo and the SignedData. Given many files with --out-dir, the plug-in, the keys and the\n"
     "certificates are loaded once and each FILE gets DIR/FILE.p7s; a file that cannot be read or signed is\n"
     "reported and skipped, and the exit status is 1 when any was. A key that does not belong to its\n"
     "certificate is refused before anything is written.\n"
     "\n"
     "  --key KEY        the signer's private key: PEM or DER, traditional or PKCS #8, encrypted or not\n"
     "  --cert CERT      the signer certificate first; further certificates in the file are added too\n"
     "                   (with --pkcs11: default the token's certificate with the key's id; with --p12: more\n"
     "                   certificates, or the signer certificate when the file holds none)\n"
     "  --p12 FILE       the key, its certificate and a chain from a PKCS #12 file\n"
     "  --pass SOURCE    the pass phrase of encrypted keys and PKCS #12 files, as openssl's -passin:\n"
     "                   pass:TEXT, env:VAR, file:PATH or fd:N (the first line), stdin (the first line);\n"
     "                   without it an encrypted key's pass phrase is asked for on the terminal\n"
     "  --pkcs11 URI     sign with a key on a PKCS#11 token, named by an RFC 7512 URI:\n"
     "                   pkcs11:token=LABEL;object=KEYLABEL;id=%01?pin-value=PIN or ?pin-source=file:PATH;\n"
     "                   without a PIN in the URI it is asked for on the terminal\n"
     "  --pkcs11-module PATH  the PKCS#11 module (default: module-path= of the URI, else p11-kit-proxy.so)\n"
     "  --chain CERTS    more certificates for the SignedData (repeatable; --pass serves its key too)\n"
     "  --crl CRL        a CRL for the SignedData (repeatable)\n"
     "  --digest NAME    sha256 (default), sha384 or sha512\n"
     "  --time TIME      the signing time, YYYYMMDDhhmmssZ (default: now)\n"
     "  --attached       carry FILE inside the SignedData (default: detached)\n"
     "  --pem            write PEM instead of DER\n"
     "  --out FILE       where to write the signature of the one FILE (default: standard output)\n"
     "  --out-dir DIR    write one DIR/FILE.p7s per FILE, never over an existing file\n"
     "  --force          with --out-dir, replace existing signatures\n"
     "  --quiet          no progress line (it is shown only on a terminal anyway)\n"
     "  --plugin PATH    the plug-in to load\n"
     "  --signer KEY,CERT  one more signer in the same SignedData (repeatable)\n"
     "  --signed-attr OID=HEXDER    an extra signed attribute, its value one DER element in hex (repeatable)\n"
     "  --unsigned-attr OID=HEXDER  an extra unsigned attribute (repeatable)\n"
     "  --der-order      signed attributes in DER SET OF order (sets KOLVARI_DER_ATTRIBUTE_ORDER=1), which\n"
     "                   verifiers that re-encode the set (GnuTLS, BouncyCastle) need\n"
     "  --tsa URL        add an RFC 3161 time-stamp token over the signature value, asked of the time-stamp\n"
     "                   authority at URL (HTTP POST, a random nonce, certReq)\n"
     "  --tsa-digest NAME  the hash of the signature value the token covers: sha256 (default), sha384, sha512\n"
     "  --tsa-timeout SECONDS  time limit of each HTTP exchange, time stamp and revocation fetches (default 10)\n"
     "  --ocsp-response FILE   an OCSP response (DER) for the signer certificate, kept in the revocation\n"
     "                   values (repeatable)\n"
     "  --revocation-crl FILE  a CRL (PEM or DER) for the signer certificate, kept in the revocation values\n"
     "                   (repeatable; --crl only puts CRLs into the SignedData)\n"
     "  --fetch-revocation  ask the OCSP responder of the signer certificate's Authority Information Access,\n"
     "                   or failing that its CRL distribution point, and keep the answer\n"
     "  --allow-revoked  sign even when a source says the signer certificate is revoked\n"
     "                   With any of the revocation options the certificate values (the signer certificate and\n"
     "                   the others given) and the revocation values are added as unsigned attributes.\n"
     "\n"
     "example:\n"
     "  kolvari sign --key signer.key --cert signer.pem --chain ca.pem --out document.p7s document.txt\n"
     "  openssl cms -verify -binary -inform DER -in document.p7s -content document.txt -CAfile ca.pem\n"
     "  kolvari sign --pkcs11 'pkcs11:token=demo;object=signer?pin-source=file:pin.txt' --out-dir out *.txt\n"
     "  kolvari sign --p12 signer.p12 --pass env:SIGNER_PASS --out document.p7s document.txt\n"},
    {"sign-pdf", runSignPdf, "sign a PDF (PAdES baseline, one incremental update)",
     "usage: kolvari sign-pdf (--key KEY --cert CERT | --p12 FILE [--cert CERT] |\n"
     "                         --pkcs11 URI [--pkcs11-module PATH] [--cert CERT]) [--pass SOURCE]\n"
     "                        [--chain CERTS]... [--digest sha256|sha384|sha512]\n"
     "                        [--tsa URL [--tsa-digest sha256|sha384|sha512] [--tsa-timeout SECONDS]]\n"
     "                        [--reason TEXT] [--location TEXT] [--contact TEXT] [--name TEXT] [--field NAME]\n"
     "                        [--visible PAGE,X,Y,W,H [--font FILE.ttf]] [--document-order] [--plugin PATH]\n"
     "                        IN.pdf OUT.pdf\n"
     "\n"
     "Writes OUT.pdf as the bytes of IN.pdf followed by one incremental update: a signature dictionary\n"
     "(/SubFilter /ETSI.CAdES.detached, /M the signing time), a signature field with its widget on the page and\n"
     "in /AcroForm (/SigFlags 3; existing fields kept), and a cross-reference section of the same form as the\n"
     "file's last one. The digest of the /ByteRange (the whole file but /Contents) goes to the plug-in as the\n"
     "message digest; the detached CMS it builds (signing-certificate-v2, no signing-time attribute) is written\n"
     "into /Contents in hex. Earlier signatures stay valid. Encrypted PDFs and PDFs whose cross-reference data\n"
     "cannot be read are refused, and OUT.pdf is not written; so is a key that does not belong to its\n"
     "certificate.\n"
     "\n"
     "  --key KEY          the signer's private key: PEM or DER, traditional or PKCS #8, encrypted or not\n"
     "  --cert CERT        the signer certificate first; further certificates in the file are added too\n"
     "  --p12 FILE         the key, its certificate and a chain from a PKCS #12 file, as in kolvari sign\n"
     "  --pass SOURCE      the pass phrase of an encrypted key or PKCS #12 file: pass:TEXT, env:VAR,\n"
     "                     file:PATH, fd:N or stdin, as in kolvari sign (default: asked on the terminal)\n"
     "  --pkcs11 URI       sign with a key on a PKCS#11 token, as in kolvari sign (the certificate from the\n"
     "                     token unless --cert names one); --pkcs11-module PATH the module to load\n"
     "  --tsa URL          add a time-stamp token over the signature value (PAdES B-T), as in kolvari sign;\n"
     "                     /Contents leaves room for it. --tsa-digest and --tsa-timeout as there\n"
     "  --chain CERTS      more certificates for the SignedData (repeatable)\n"
     "  --digest NAME      sha256 (default), sha384 or sha512\n"
     "  --reason TEXT      /Reason of the signature dictionary\n"
     "  --location TEXT    /Location\n"
     "  --contact TEXT     /ContactInfo\n"
     "  --name TEXT        /Name, and the name a visible signature shows (default: the certificate's CN)\n"
     "  --field NAME       the signature field's name (default: the first free SignatureN); an empty signature\n"
     "                     field of that name in the form is filled, its widget kept (no --visible then);\n"
     "                     a signed or non-signature field is refused, and so is a name with a period\n"
     "  --visible PAGE,X,Y,W,H  a visible widget on page PAGE (from 1) at X,Y of size W x H points, showing the\n"
     "                     signer's name and the time (default: an invisible widget on the first page);\n"
     "                     Latin text in the standard Helvetica\n"
     "  --font FILE.ttf    with --visible: draw the text in this TrueType font, embedded whole, for any\n"
     "                     script it covers\n"
     "  --document-order   signed attributes in the order they were added; by default they are in DER SET OF\n"
     "                     order (KOLVARI_DER_ATTRIBUTE_ORDER=1), as validators that re-encode them expect\n"
     "  --plugin PATH      the plug-in to load\n"
     "\n"
     "example:\n"
     "  kolvari sign-pdf --key signer.key --cert signer.pem --chain ca.pem --reason Approved in.pdf signed.pdf\n"
     "  pdfsig signed.pdf\n"},
    {"verify", runVerify, "tell whether the signatures of a CMS file or a PDF are valid, and why",
     "usage: kolvari verify [--content FILE] [--trust CERTS]... [--trust-dir DIR] [--system-trust] [--at TIME]\n"
     "                      [--revocation none|embedded|fetch] [--timeout SECONDS] [--json] FILE\n"
     "\n"
     "Judges every signer of a CMS SignedData (DER, PEM or base64; definite or indefinite length) or every\n"
     "signature and document time-stamp of a PDF: format (and a PDF's /ByteRange), integrity (message digest\n"
     "and signature value), signer identification, the certificate path at the validation time (a passing\n"
     "signature time-stamp's time, else now or --at), the signature time-stamps and revocation. Each gets an\n"
     "indication of ETSI EN 319 102-1 (TOTAL_PASSED, TOTAL_FAILED, INDETERMINATE) and a sub-indication; a PDF\n"
     "lists the revisions added after each signature. Exit status 0 when every signature is TOTAL_PASSED.\n"
     "\n"
     "  --content FILE     the signed file of a detached signature (hashed as it is read)\n"
     "  --trust CERTS      trust anchors, PEM (any number) or DER (repeatable)\n"
     "  --trust-dir DIR    every certificate file in DIR is a trust anchor\n"
     "  --system-trust     OpenSSL's default trust store too\n"
     "  --at TIME          validate at TIME (YYYYMMDDhhmmssZ) instead of now, when no time-stamp gives a time\n"
     "  --revocation MODE  none; embedded (default): the OCSP responses and CRLs in the signature and the\n"
     "                     PDF's DSS; fetch: also ask the certificate's OCSP responder or CRL distribution point\n"
     "  --timeout SECONDS  time limit of each fetch (default 10)\n"
     "  --json             one JSON document {\"signatures\": [...]} (schema in README.md)\n"
     "\n"
     "example:\n"
     "  kolvari verify --trust ca.pem --content document.txt document.p7s\n"
     "  kolvari verify --trust ca.pem --json signed.pdf\n"},
};

constexpr char kExitStatuses[] =
    "exit status: 0 done; 1 the work failed (a file that cannot be read, malformed DER, a library error);\n"
    "             2 a wrong command line, or input that is not what the command reads\n";

void printUsage(FILE* to) {
  std::fprintf(to, "usage: kolvari COMMAND [ARGS]\n       kolvari COMMAND --help\n\ncommands:\n");
  for (const Command& c : kCommands) std::fprintf(to, "  %-10s %s\n", c.name, c.summary);
  std::fprintf(to, "\nexample:\n  kolvari inspect document.p7s\n\n%s", kExitStatuses);
}

bool asksForHelp(const Arguments& args) {
  for (const std::string& a : args) {
    if (a == "--help" || a == "-h") return true;
  }
  return false;
}

// Runs a command between two records of the tool's logger: the command line, and the exit status.
int runLogged(const Command& c, int argc, char** argv, const Arguments& args) {
  std::string commandLine = "kolvari";
  for (int i = 1; i < argc; ++i) commandLine += std::string(" ") + argv[i];
  CVEL_LOG(toolLogger(), kCvelLogInfo, commandLine.c_str());
  int status = c.run(args);
  CVEL_LOG(toolLogger(), status == kExitOk ? kCvelLogInfo : kCvelLogError,
           (std::string(c.name) + ": exit status " + std::to_string(status)).c_str());
  return status;
}

}  // namespace

CvelLogger& toolLogger() {
  static CvelLogger logger;
  return logger;
}

int main(int argc, char** argv) {
  if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
    printUsage(argc < 2 ? stderr : stdout);
    return argc < 2 ? kExitUsage : kExitOk;
  }
  Arguments args(argv + 2, argv + argc);
  for (const Command& c : kCommands) {
    if (std::strcmp(argv[1], c.name) != 0) continue;
    if (asksForHelp(args)) {
      std::printf("%s\n%s", c.help, kExitStatuses);
      return kExitOk;
    }
    return runLogged(c, argc, argv, args);
  }
  std::fprintf(stderr, "kolvari: unknown command '%s'\n", argv[1]);
  printUsage(stderr);
  return kExitUsage;
}
