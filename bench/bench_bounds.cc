// Resource bounds of the decoders on hostile input: time and peak memory of each decoder on input nested
// 100,000 deep, a signedData whose certificate list holds 100,000 tiny elements, and a CRL of about 100 MB
// made by repeating the entries of a real one. Then the growing inputs again at a quarter, half and the
// whole of that size, so that a cost growing faster than the input shows. Each measurement runs in a child
// process of its own, so that its peak resident size is its own. Not a Google Benchmark program: it has its
// own main and prints two tables.
//   bench_bounds [path of eid2011.crl]
#include <malloc.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_a1_walk.h"
#include "asn1/cvel_string.h"
#include "cms/cvel_a1_p72.h"
#include "cms/cvel_tst_info.h"
#include "x509/cvel_certificate.h"
#include "x509/cvel_crl.h"
#include "x509/cvel_ocsp_response.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kDepth = 100000;
constexpr uint32_t kTinyElements = 100000;
constexpr uint64_t kCrlTarget = 100u * 1000u * 1000u;
constexpr int kMmapThreshold = 128 * 1024;  // glibc's default

void putHeader(Bytes& out, uint8_t tag, uint64_t length) {
  out.push_back(tag);
  if (length < 0x80) {
    out.push_back(static_cast<uint8_t>(length));
    return;
  }
  uint8_t octets = 0;
  for (uint64_t v = length; v != 0; v >>= 8) ++octets;
  out.push_back(static_cast<uint8_t>(0x80 | octets));
  for (int k = octets - 1; k >= 0; --k) out.push_back(static_cast<uint8_t>(length >> (8 * k)));
}

uint64_t headerSize(uint64_t length) {
  uint64_t n = 2;
  if (length >= 0x80) {
    for (uint64_t v = length; v != 0; v >>= 8) ++n;
  }
  return n;
}

// SEQUENCE { SEQUENCE { ... depth deep ... } }, definite lengths.
Bytes deepNesting(uint32_t depth = kDepth) {
  std::vector<uint64_t> content(depth + 1, 0);
  for (uint32_t k = 1; k <= depth; ++k) content[k] = headerSize(content[k - 1]) + content[k - 1];
  Bytes out;
  for (uint32_t k = depth; k >= 1; --k) putHeader(out, 0x30, content[k - 1]);
  return out;
}

// ContentInfo { signedData, [0] { SEQUENCE { 1, SET {}, SEQUENCE { data }, certificates, SET {} } } } around a
// complete certificates element.
Bytes signedDataAround(const Bytes& certificates) {
  const Bytes before = {0x02, 0x01, 0x01, 0x31, 0x00, 0x30, 0x0B, 0x06, 0x09, 0x2A,
                        0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x01};  // version, digests, content info
  const Bytes after = {0x31, 0x00};                                     // signer infos
  const Bytes oid = {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
  const uint64_t fields = before.size() + certificates.size() + after.size();
  const uint64_t explicitLength = headerSize(fields) + fields;
  Bytes out;
  putHeader(out, 0x30, oid.size() + headerSize(explicitLength) + explicitLength);
  out.insert(out.end(), oid.begin(), oid.end());
  putHeader(out, 0xA0, explicitLength);
  putHeader(out, 0x30, fields);
  out.insert(out.end(), before.begin(), before.end());
  out.insert(out.end(), certificates.begin(), certificates.end());
  out.insert(out.end(), after.begin(), after.end());
  return out;
}

// The certificate list of 100,000 elements 30 00.
Bytes manyCertificates() {
  Bytes certificates;
  putHeader(certificates, 0xA0, 2u * kTinyElements);
  for (uint32_t k = 0; k < kTinyElements; ++k) certificates.insert(certificates.end(), {0x30, 0x00});
  return signedDataAround(certificates);
}

// The certificate list of a signedData holding count copies of one certificate.
Bytes certificateList(const Bytes& certificate, uint32_t count) {
  Bytes list;
  putHeader(list, 0xA0, static_cast<uint64_t>(certificate.size()) * count);
  for (uint32_t k = 0; k < count; ++k) list.insert(list.end(), certificate.begin(), certificate.end());
  return signedDataAround(list);
}

// Where an element's content lies: [contentAt, end).
struct Span {
  size_t start, contentAt, end;
};

bool readSpan(const Bytes& b, size_t at, Span& s) {
  if (at + 2 > b.size()) return false;
  size_t i = at + 1;
  size_t length = b[i++];
  if (length & 0x80) {
    const size_t count = length & 0x7F;
    if (count > 4 || i + count > b.size()) return false;
    length = 0;
    for (size_t k = 0; k < count; ++k) length = (length << 8) | b[i++];
  }
  if (length > b.size() - i) return false;
  s = {at, i, i + length};
  return true;
}


// RevocationValues { crlVals [0] { crl } }.
Bytes revocationValuesOf(const Bytes& crl) {
  Bytes list;
  putHeader(list, 0x30, crl.size());
  list.insert(list.end(), crl.begin(), crl.end());
  Bytes tagged;
  putHeader(tagged, 0xA0, list.size());
  tagged.insert(tagged.end(), list.begin(), list.end());
  Bytes out;
  putHeader(out, 0x30, tagged.size());
  out.insert(out.end(), tagged.begin(), tagged.end());
  return out;
}

// The entries of a real CRL repeated until the whole is about target bytes; the signature is kept as it was.
Bytes hugeCrl(const std::string& path, uint64_t target = kCrlTarget) {
  std::ifstream in(path, std::ios::binary);
  const Bytes crl((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  Span outer{}, tbs{}, field{};
  if (!readSpan(crl, 0, outer) || !readSpan(crl, outer.contentAt, tbs)) return {};
  Bytes before, after, entries;
  for (size_t at = tbs.contentAt; at < tbs.end; at = field.end) {
    if (!readSpan(crl, at, field)) return {};
    if (crl[at] == 0x30 && entries.empty() && field.end - field.contentAt > 1000) {
      entries.assign(crl.begin() + field.contentAt, crl.begin() + field.end);
    } else {
      Bytes& into = entries.empty() ? before : after;
      into.insert(into.end(), crl.begin() + at, crl.begin() + field.end);
    }
  }
  if (entries.empty()) return {};
  const uint64_t copies = target / entries.size() + 1;
  const uint64_t listLength = copies * entries.size();
  Bytes tbsOut;
  const uint64_t tbsLength = before.size() + headerSize(listLength) + listLength + after.size();
  putHeader(tbsOut, 0x30, tbsLength);
  tbsOut.insert(tbsOut.end(), before.begin(), before.end());
  putHeader(tbsOut, 0x30, listLength);
  for (uint64_t k = 0; k < copies; ++k) tbsOut.insert(tbsOut.end(), entries.begin(), entries.end());
  tbsOut.insert(tbsOut.end(), after.begin(), after.end());
  Bytes out;
  putHeader(out, 0x30, tbsOut.size() + (outer.end - tbs.end));
  out.insert(out.end(), tbsOut.begin(), tbsOut.end());
  out.insert(out.end(), crl.begin() + tbs.end, crl.begin() + outer.end);
  return out;
}

void view(const Bytes& b, CvelString& s) {
  if (s.setView(b.data(), b.size()) != kCvelOk) s.release();
}

CvelResult walk(const Bytes& b) {
  CvelString s;
  view(b, s);
  return cvelWalk(s, [](const CvelA1WalkElement&) { return true; }).complete ? kCvelOk : kCvelErrMalformed;
}

CvelResult p72(const Bytes& b) {
  CvelString s;
  view(b, s);
  CvelA1InputString in(s, 0, s.length());
  CvelA1StreamCursor cursor;
  CvelA1P72 object;
  return object.decode(in, cursor);
}

CvelResult certificate(const Bytes& b) {
  CvelCertificate c;
  return c.parse(b.data(), static_cast<uint32_t>(b.size()));
}

CvelResult crl(const Bytes& b) {
  CvelCRL c;
  return c.parse(b.data(), static_cast<uint32_t>(b.size()));
}

CvelResult ocsp(const Bytes& b) {
  CvelOCSPResponse r;
  return r.parse(b.data(), static_cast<uint32_t>(b.size()));
}

CvelResult revocationValues(const Bytes& b) {
  CvelString s;
  view(b, s);
  CvelEtsRevocationValues v;
  return v.decode(s);
}

CvelResult token(const Bytes& b) {
  CvelTSTInfo t;
  view(b, t.encoded());
  return t.decode();
}

struct Decoder {
  const char* name;
  CvelResult (*decode)(const Bytes&);
};

// A line "Name:  N kB" of /proc/self/status.
long statusKilobytes(const char* name) {
  std::ifstream status("/proc/self/status");
  std::string key;
  long value = 0;
  while (status >> key) {
    if (key == name) {
      status >> value;
      return value;
    }
    status.ignore(1 << 16, '\n');
  }
  return -1;
}

// Sets the peak resident size back to the present one (Linux 4.0 and later).
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

// Builds the input and runs decode on it in a child, which prints the input, the decoder, the result, the
// time of the decode alone, and how far the decode raised the peak resident size above what the process
// held with the input built.
void measure(const std::function<Bytes()>& make, const std::string& inputName, const Decoder& d) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    // A fixed threshold: glibc would otherwise raise it after the input's scratch blocks are freed, and the
    // decoder's large blocks would then reuse their pages without showing in the peak.
    mallopt(M_MMAP_THRESHOLD, kMmapThreshold);
    const Bytes input = make();
    resetPeak();
    const long before = statusKilobytes("VmRSS:");
    const auto start = std::chrono::steady_clock::now();
    const CvelResult r = d.decode(input);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    const long after = statusKilobytes("VmHWM:");
    std::printf("| %s (%zu B) | %s | %s | %.1f ms | %.1f MB |\n", inputName.c_str(), input.size(), d.name,
                r == kCvelOk ? "success" : "refused", ms, static_cast<double>(after - before) / 1024.0);
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::printf("| %s | %s | crashed | | |\n", inputName.c_str(), d.name);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string crlPath =
      argc > 1 ? argv[1] : std::string(KOLVARI_SOURCE_DIR) + "/tests/data/asn1crypto/eid2011.crl";
  if (std::ifstream(crlPath).fail()) {
    std::fprintf(stderr, "cannot read the CRL at %s\n", crlPath.c_str());
    return 1;
  }
  const Decoder walkDecoder{"cvelWalk", walk};
  const Decoder p72Decoder{"CvelA1P72::decode", p72};
  const Decoder crlDecoder{"CvelCRL::parse", crl};
  const Decoder all[] = {walkDecoder,
                         p72Decoder,
                         {"CvelCertificate::parse", certificate},
                         crlDecoder,
                         {"CvelOCSPResponse::parse", ocsp},
                         {"CvelEtsRevocationValues::decode", revocationValues},
                         {"CvelTSTInfo::decode", token}};
  std::printf("| input | decoder | result | time | peak memory above the input |\n|---|---|---|---|---|\n");
  const std::string deepName = "SEQUENCE nested " + std::to_string(kDepth) + " deep";
  for (const Decoder& d : all) measure([] { return deepNesting(); }, deepName, d);
  const std::string manyName = "signedData with " + std::to_string(kTinyElements) + " certificates of 2 B";
  for (const Decoder& d : {walkDecoder, p72Decoder}) measure(manyCertificates, manyName, d);
  const std::string dataDir = std::string(KOLVARI_SOURCE_DIR) + "/tests/data/";
  const auto realList = [&dataDir] {
    std::ifstream in(dataDir + "x509/v1-self-signed.der", std::ios::binary);
    return certificateList(Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()),
                           kTinyElements);
  };
  for (const Decoder& d : {walkDecoder, p72Decoder}) {
    measure(realList, "signedData with " + std::to_string(kTinyElements) + " certificates of 460 B", d);
  }
  const auto huge = [&crlPath] { return hugeCrl(crlPath); };
  for (const Decoder& d : {walkDecoder, crlDecoder}) measure(huge, "CRL of eid2011.crl's entries repeated", d);
  measure([&crlPath] { return revocationValuesOf(hugeCrl(crlPath)); }, "RevocationValues holding that CRL",
          Decoder{"CvelEtsRevocationValues::decode", revocationValues});

  // Growth: each growing input at a quarter, half and all of its size above. Doubling the input should at
  // most double time and memory.
  std::printf("\n| input | decoder | result | time | peak memory above the input |\n|---|---|---|---|---|\n");
  const Bytes certificateDer = [&dataDir] {
    std::ifstream in(dataDir + "x509/v1-self-signed.der", std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  }();
  for (uint32_t part : {4u, 2u, 1u}) {
    const uint32_t depth = kDepth / part;
    measure([depth] { return deepNesting(depth); }, "SEQUENCE nested " + std::to_string(depth) + " deep", walkDecoder);
  }
  for (uint32_t part : {4u, 2u, 1u}) {
    const uint32_t count = kTinyElements / part;
    measure([&certificateDer, count] { return certificateList(certificateDer, count); },
            "signedData with " + std::to_string(count) + " certificates of 460 B", p72Decoder);
  }
  for (uint32_t part : {4u, 2u, 1u}) {
    const uint64_t target = kCrlTarget / part;
    const std::string name = "CRL of " + std::to_string(target / 1000000) + " MB";
    measure([&crlPath, target] { return hugeCrl(crlPath, target); }, name, crlDecoder);
    measure([&crlPath, target] { return revocationValuesOf(hugeCrl(crlPath, target)); },
            "RevocationValues holding a " + name, Decoder{"CvelEtsRevocationValues::decode", revocationValues});
  }
  return 0;
}
