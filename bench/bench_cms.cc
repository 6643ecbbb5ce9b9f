// CMS decoding side by side with OpenSSL 3, on the same bytes in the same run: signedData containers
// (CvelA1P72 against d2i_CMS_ContentInfo), OCSP responses (CvelOCSPResponse against d2i_OCSP_RESPONSE and
// OCSP_response_get1_basic) and time-stamp tokens (CvelTSTInfo against d2i_PKCS7 and PKCS7_to_TS_TST_INFO).
//
// Every row is registered twice, ".../Kolvari" and ".../OpenSSL". Before any timing both sides decode the
// row's input once and must agree on what they found (certificates, CRLs, signers), so that an early quiet
// stop on our side cannot pass for speed. After the run a table of the median CPU times per decode and the
// ratio ours/theirs is printed below Google Benchmark's own output.
#include <benchmark/benchmark.h>
#include <openssl/asn1.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/ocsp.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/ts.h>
#include <openssl/x509.h>

#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_string.h"
#include "bench_roots.h"
#include "cms/cvel_a1_p72.h"
#include "cms/cvel_tst_info.h"
#include "kolvari/zarv.h"
#include "x509/cvel_ocsp_response.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Five repetitions of each benchmark; the table takes their median.
constexpr int kRepetitions = 5;
constexpr const char* kOurs = "Kolvari";
constexpr const char* kTheirs = "OpenSSL";
// Container sizes: 1, 10 and 100 certificates, each with the same two CRLs.
constexpr int kCertificateCounts[] = {1, 10, 100};
// id-sha256, content octets only, as the container takes digest algorithms.
const Bytes kSha256Oid = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};

std::string dataPath(const std::string& name) { return std::string(KOLVARI_SOURCE_DIR) + "/tests/data/" + name; }

Bytes readFile(const std::string& path) {
  Bytes bytes;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return bytes;
  unsigned char buffer[8192];
  size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) bytes.insert(bytes.end(), buffer, buffer + n);
  std::fclose(f);
  return bytes;
}

// The OCSP test set keeps its responses as base64 text, one line per 64 characters.
Bytes readBase64File(const std::string& path) {
  const Bytes text = readFile(path);
  Bytes der(text.size());
  EVP_ENCODE_CTX* ctx = EVP_ENCODE_CTX_new();
  if (ctx == nullptr) return {};
  int n = 0;
  int last = 0;
  EVP_DecodeInit(ctx);
  const bool ok = EVP_DecodeUpdate(ctx, der.data(), &n, text.data(), static_cast<int>(text.size())) >= 0 &&
                  EVP_DecodeFinal(ctx, der.data() + n, &last) == 1;
  EVP_ENCODE_CTX_free(ctx);
  if (!ok) return {};
  der.resize(static_cast<size_t>(n + last));
  return der;
}

// Length of the whole definite-length element at p (header and content), 0 when none can be read there.
long elementLength(const unsigned char* p, long available) {
  const unsigned char* q = p;
  long length = 0;
  int tag = 0;
  int cls = 0;
  const int flags = ASN1_get_object(&q, &length, &tag, &cls, available);
  if ((flags & 0x80) != 0 || (flags & 0x01) != 0) return 0;  // error, or indefinite length
  return static_cast<long>(q - p) + length;
}

// TimeStampResp ::= SEQUENCE { status PKIStatusInfo, timeStampToken TimeStampToken OPTIONAL }: the token's
// bytes as they stand in the response.
Bytes tokenOfResponse(const Bytes& response) {
  const unsigned char* p = response.data();
  const long size = static_cast<long>(response.size());
  long length = 0;
  int tag = 0;
  int cls = 0;
  const unsigned char* content = p;
  if ((ASN1_get_object(&content, &length, &tag, &cls, size) & 0x81) != 0) return {};
  const long end = static_cast<long>(content - p) + length;
  if (end > size) return {};
  const long statusLength = elementLength(content, end - (content - p));
  if (statusLength == 0) return {};
  const unsigned char* token = content + statusLength;
  const long tokenLength = elementLength(token, end - (token - p));
  if (tokenLength == 0) return {};
  return Bytes(token, token + tokenLength);
}

// A ContentInfo { signedData } made by our container encoder: SHA-256, `count` Mozilla roots (in file-name
// order, from the first again when there are fewer), the given CRLs, no signer (an empty SET).
Bytes buildContainer(int count, const std::vector<Bytes>& crls) {
  const std::vector<bench::Der>& roots = bench::roots();
  Bytes out;
  P72Container* h = nullptr;
  if (roots.empty() || ZARV_CreateP72Container(&h) != ZARV_OK) return out;
  bool ok = ZARV_AddDigestAlgorithm(h, kSha256Oid) == ZARV_OK;
  for (int i = 0; i < count; ++i) {
    ok = ok && ZARV_AddCertificate(h, roots[static_cast<size_t>(i) % roots.size()]) == ZARV_OK;
  }
  for (const Bytes& crl : crls) ok = ok && ZARV_AddCRL(h, crl) == ZARV_OK;
  ok = ok && ZARV_EncodeP72(h, &out) == ZARV_OK;
  ZARV_CloseP72Container(h);
  if (!ok) out.clear();
  return out;
}

// What one decoder found in an input; both sides of a row must find the same.
struct Found {
  bool decoded = false;
  size_t certificates = 0;
  size_t crls = 0;
  size_t signers = 0;

  bool operator==(const Found& o) const {
    return decoded == o.decoded && certificates == o.certificates && crls == o.crls && signers == o.signers;
  }
};

// OpenSSL's stack counts: -1 for a missing stack, which here means none.
size_t countOf(int n) { return n < 0 ? 0 : static_cast<size_t>(n); }

std::string describe(const Found& f) {
  if (!f.decoded) return "not decoded";
  return std::to_string(f.certificates) + " certificates, " + std::to_string(f.crls) + " CRLs, " +
         std::to_string(f.signers) + " signers";
}

// ---- signedData ----

Found oursSignedData(const CvelString& image) {
  CvelA1InputString in(image, 0, image.length());
  CvelA1StreamCursor cursor;
  CvelA1P72 p72;
  Found f;
  // A wrong tag at a mandatory place stops the decoder quietly with kCvelOk; the counts below show it.
  f.decoded = p72.decode(in, cursor) == kCvelOk && cursor.position() == image.length();
  f.certificates = p72.certificates().size();
  f.crls = p72.crls().size();
  f.signers = p72.signerInfos().size();
  return f;
}

Found theirsSignedData(const Bytes& der) {
  const unsigned char* p = der.data();
  CMS_ContentInfo* cms = d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(der.size()));
  Found f;
  if (cms == nullptr) return f;
  f.decoded = p == der.data() + der.size();
  STACK_OF(X509)* certs = CMS_get1_certs(cms);
  STACK_OF(X509_CRL)* crls = CMS_get1_crls(cms);
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms);
  f.certificates = countOf(sk_X509_num(certs));
  f.crls = countOf(sk_X509_CRL_num(crls));
  f.signers = countOf(sk_CMS_SignerInfo_num(signers));
  sk_X509_pop_free(certs, X509_free);
  sk_X509_CRL_pop_free(crls, X509_CRL_free);
  CMS_ContentInfo_free(cms);
  return f;
}

// ---- OCSP responses ----

Found oursOcsp(const Bytes& der) {
  CvelOCSPResponse response;
  Found f;
  f.decoded = response.parse(der.data(), static_cast<uint32_t>(der.size())) == kCvelOk;
  f.certificates = response.certificates().size();
  return f;
}

// Our parse reads the outer response, the BasicOCSPResponse inside its OCTET STRING, the certificates it
// carries and the first single response. d2i_OCSP_RESPONSE alone stops at that OCTET STRING;
// OCSP_response_get1_basic decodes the BasicOCSPResponse (with its certificates and all single responses,
// of which these files have one), so the pair is the work that matches ours.
Found theirsOcsp(const Bytes& der) {
  const unsigned char* p = der.data();
  OCSP_RESPONSE* response = d2i_OCSP_RESPONSE(nullptr, &p, static_cast<long>(der.size()));
  Found f;
  if (response == nullptr) return f;
  OCSP_BASICRESP* basic = OCSP_response_get1_basic(response);
  if (basic != nullptr) {
    f.decoded = true;
    const STACK_OF(X509)* certs = OCSP_resp_get0_certs(basic);
    f.certificates = countOf(sk_X509_num(certs));
    OCSP_BASICRESP_free(basic);
  }
  OCSP_RESPONSE_free(response);
  return f;
}

// ---- time-stamp tokens ----

Found oursTst(const Bytes& der) {
  CvelTSTInfo tst;
  Found f;
  f.decoded = tst.encoded().assign(der.data(), static_cast<uint32_t>(der.size())) == kCvelOk && tst.decode() == kCvelOk;
  f.certificates = tst.signedData().certificates().size();
  f.crls = tst.signedData().crls().size();
  f.signers = tst.signedData().signerInfos().size();
  return f;
}

Found theirsTst(const Bytes& der) {
  const unsigned char* p = der.data();
  PKCS7* token = d2i_PKCS7(nullptr, &p, static_cast<long>(der.size()));
  Found f;
  if (token == nullptr) return f;
  TS_TST_INFO* info = PKCS7_to_TS_TST_INFO(token);
  if (info != nullptr && PKCS7_type_is_signed(token)) {
    f.decoded = true;
    f.certificates = countOf(sk_X509_num(token->d.sign->cert));
    f.crls = countOf(sk_X509_CRL_num(token->d.sign->crl));
    f.signers = countOf(sk_PKCS7_SIGNER_INFO_num(token->d.sign->signer_info));
  }
  TS_TST_INFO_free(info);
  PKCS7_free(token);
  return f;
}

// ---- registration ----

// One input and the two decoders bound to it. The bytes live as long as the program, as the registered
// benchmarks keep the row.
struct Row {
  std::string name;
  std::shared_ptr<const Bytes> der;
  std::function<Found()> ours;
  std::function<Found()> theirs;
};

std::vector<Row>& rows() {
  static std::vector<Row> all;
  return all;
}

// Runs decode until Google Benchmark has its time; decode answers whether it succeeded.
void timeDecoder(benchmark::State& state, size_t inputBytes, const std::function<Found()>& decode) {
  for (auto _ : state) {
    bool ok = decode().decoded;
    benchmark::DoNotOptimize(ok);
    if (!ok) {
      state.SkipWithError("decode failed");
      break;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * inputBytes));
  state.counters["input_bytes"] = static_cast<double>(inputBytes);
}

void registerPair(const Row& row) {
  const size_t inputBytes = row.der->size();
  for (const auto& side : {std::make_pair(kOurs, row.ours), std::make_pair(kTheirs, row.theirs)}) {
    const std::string full = row.name + "/" + side.first;
    std::function<Found()> decode = side.second;
    benchmark::RegisterBenchmark(
        full.c_str(), [decode, inputBytes](benchmark::State& state) { timeDecoder(state, inputBytes, decode); })
        ->Repetitions(kRepetitions)
        ->ReportAggregatesOnly(true)
        ->Unit(benchmark::kNanosecond);
  }
}

void addSignedData(const std::string& name, Bytes bytes) {
  auto der = std::make_shared<const Bytes>(std::move(bytes));
  // Our decoder reads through a view of the same bytes, made once.
  auto image = std::make_shared<CvelString>();
  image->setView(der->data(), der->size());
  rows().push_back({name, der, [image] { return oursSignedData(*image); }, [der] { return theirsSignedData(*der); }});
}

void addRow(const std::string& name, Bytes bytes, Found (*ours)(const Bytes&), Found (*theirs)(const Bytes&)) {
  auto der = std::make_shared<const Bytes>(std::move(bytes));
  rows().push_back({name, der, [der, ours] { return ours(*der); }, [der, theirs] { return theirs(*der); }});
}

Bytes pemCrlToDer(const std::string& path) {
  Bytes der;
  FILE* f = std::fopen(path.c_str(), "r");
  if (f == nullptr) return der;
  X509_CRL* crl = PEM_read_X509_CRL(f, nullptr, nullptr, nullptr);
  std::fclose(f);
  unsigned char* bytes = nullptr;
  const int n = crl == nullptr ? 0 : i2d_X509_CRL(crl, &bytes);
  if (n > 0) der.assign(bytes, bytes + n);
  OPENSSL_free(bytes);
  X509_CRL_free(crl);
  return der;
}

void loadRows() {
  // Two CRLs made by `openssl ca -gencrl`, of two different CAs.
  const std::vector<Bytes> crls = {readFile(dataPath("tsp/crl.der")), pemCrlToDer(dataPath("detect/crl.pem"))};
  for (int count : kCertificateCounts) {
    addSignedData("SignedData/" + std::to_string(count) + "_certs_2_crls", buildContainer(count, crls));
  }
  // A real signed message of other software: one certificate, one signer with its signature, attached content.
  addSignedData("SignedData/cms_signed_1_signer", readFile(dataPath("asn1crypto/cms-signed.der")));

  // OpenSSL's OCSP test set: without (ND1) and with a delegated responder certificate (D1, D3); pyHanko's.
  for (const char* name : {"ND1", "D1", "D3"}) {
    addRow(std::string("OCSP/") + name, readBase64File(dataPath(std::string("ocsp/openssl/") + name + ".ors")),
           oursOcsp, theirsOcsp);
  }
  addRow("OCSP/pyhanko", readFile(dataPath("ocsp/pyhanko-ocsp.resp.der")), oursOcsp, theirsOcsp);

  for (const char* name : {"plain", "millis", "full"}) {
    addRow(std::string("TST/") + name, readFile(dataPath(std::string("tsp/") + name + ".tst")), oursTst, theirsTst);
  }
  addRow("TST/asn1crypto", tokenOfResponse(readFile(dataPath("asn1crypto/tsp_response"))), oursTst, theirsTst);
}

// Checks that both sides decode the row and find the same, then registers its pair. A row that fails is
// reported and left out rather than timed.
void registerRows() {
  for (const Row& row : rows()) {
    const Found ours = row.der->empty() ? Found{} : row.ours();
    const Found theirs = row.der->empty() ? Found{} : row.theirs();
    if (!ours.decoded || !(ours == theirs)) {
      std::fprintf(stderr, "%s: left out (Kolvari: %s; OpenSSL: %s)\n", row.name.c_str(), describe(ours).c_str(),
                   describe(theirs).c_str());
      continue;
    }
    std::fprintf(stderr, "%s: %zu bytes, %s\n", row.name.c_str(), row.der->size(), describe(ours).c_str());
    registerPair(row);
  }
}

// The console output as usual, and the median CPU time of each benchmark kept for the ratio table.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median" && !run.error_occurred) {
        medians_[run.run_name.function_name] = run.GetAdjustedCPUTime();
      }
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    std::FILE* out = stdout;
    std::fprintf(out, "\nMedian CPU time per decode (ns), ours/theirs and speed-up:\n");
    std::fprintf(out, "%-32s %12s %12s %10s %9s\n", "row", "Kolvari", "OpenSSL", "ours/them", "speed-up");
    for (const Row& row : rows()) {
      const auto ours = medians_.find(row.name + "/" + kOurs);
      const auto theirs = medians_.find(row.name + "/" + kTheirs);
      if (ours == medians_.end() || theirs == medians_.end() || ours->second <= 0) continue;
      std::fprintf(out, "%-32s %12.0f %12.0f %10.3f %8.1fx\n", row.name.c_str(), ours->second, theirs->second,
                   ours->second / theirs->second, theirs->second / ours->second);
    }
    std::fflush(out);
  }

 private:
  std::map<std::string, double> medians_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  loadRows();
  registerRows();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
