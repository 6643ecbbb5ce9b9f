// Batch signing, side by side with its floor: `kolvari sign --out-dir` (the tool's own code, run in this
// process) signs N small files with an EC P-256 or RSA-2048 key file through the linked library: hash,
// signed attributes, signature, SignerInfo, container and file write, with the key and certificate loaded
// once per batch. The floor is N bare EVP_DigestSign calls with the same key over input of the size of the
// data to be signed; between them, the same run in memory (no file read or write). sig/s of the rows of
// one key and N give the library's share of a signature. The jobs rows sign the same EC P-256 batch on one
// and on two threads in one run (in memory, and with files through `kolvari sign --jobs`) and print the
// speed-up against its goal (two cores: 1.7x in memory, 1.5x with files) and whether it is met; a third
// row gives bare OpenSSL signing's own speed-up in the same run, the ceiling the machine's load leaves. The
// verify jobs rows judge attached EC P-256 signatures of the same files the same way: `kolvari verify --jobs`
// (stdout to /dev/null) and, in memory, the tool's per-file verification under one shared context.
// Run: build/bin/bench_batch_sign (KOLVARI_BENCH_DIR=/dev/shm to write to a tmpfs instead of /tmp).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cmd_sign.h"
#include "command_list.h"
#include "host_crypto.h"
#include "io/input_file.h"
#include "signing/batch_runner.h"
#include "signing/host_signer.h"
#include "signing/signature_builder.h"
#include "verify/verify_file.h"
#include "zarv_functions.h"

namespace {

namespace fs = std::filesystem;

constexpr int kMostFiles = 10000;
constexpr size_t kFileSize = 512;
constexpr long kCertificateDays = 30;
constexpr int kRsaBits = 2048;
const char kCurve[] = "P-256";

struct KeyKind {
  const char* name;
  const char* file;  // under the work directory: NAME.key and NAME.pem
};
constexpr KeyKind kKeys[] = {{"EC-P256", "ec"}, {"RSA-2048", "rsa"}};

// A self-signed certificate for key, DER.
bool writeKeyAndCertificate(EVP_PKEY* key, const fs::path& keyPath, const fs::path& certPath) {
  X509* x = X509_new();
  X509_NAME* name = X509_NAME_new();
  bool ok = x != nullptr && name != nullptr && X509_set_version(x, 2) == 1 &&
            ASN1_INTEGER_set(X509_get_serialNumber(x), 1) == 1 &&
            X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                       reinterpret_cast<const unsigned char*>("Kolvari bench signer"), -1, -1,
                                       0) == 1 &&
            X509_set_subject_name(x, name) == 1 && X509_set_issuer_name(x, name) == 1 &&
            X509_gmtime_adj(X509_getm_notBefore(x), 0) != nullptr &&
            X509_time_adj_ex(X509_getm_notAfter(x), kCertificateDays, 0, nullptr) != nullptr &&
            X509_set_pubkey(x, key) == 1 && X509_sign(x, key, EVP_sha256()) > 0;
  FILE* k = ok ? std::fopen(keyPath.c_str(), "wb") : nullptr;
  ok = k != nullptr && PEM_write_PrivateKey(k, key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
  if (k != nullptr) std::fclose(k);
  FILE* c = ok ? std::fopen(certPath.c_str(), "wb") : nullptr;
  ok = c != nullptr && PEM_write_X509(c, x) == 1;
  if (c != nullptr) std::fclose(c);
  X509_NAME_free(name);
  X509_free(x);
  return ok;
}

// The work directory: the keys, their certificates and kMostFiles small input files, made once.
class Workspace {
 public:
  Workspace() {
    // KOLVARI_BENCH_DIR picks the file system the signatures go to (a tmpfs shows the cost without the disk's).
    const char* parent = std::getenv("KOLVARI_BENCH_DIR");
    std::string pattern = std::string(parent != nullptr ? parent : "/tmp") + "/kolvari-bench-batch-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) return;
    root_ = pattern;
    fs::create_directory(root_ / "in");
    fs::create_directory(root_ / "out");
    fs::create_directory(root_ / "attached");
    EVP_PKEY* ec = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", kCurve);
    EVP_PKEY* rsa = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(kRsaBits));
    ready_ = ec != nullptr && rsa != nullptr && writeKeyAndCertificate(ec, keyPath("ec"), certPath("ec")) &&
             writeKeyAndCertificate(rsa, keyPath("rsa"), certPath("rsa"));
    EVP_PKEY_free(ec);
    EVP_PKEY_free(rsa);
    const std::string text(kFileSize, 'k');
    for (int i = 0; ready_ && i < kMostFiles; ++i) {
      const fs::path file = root_ / "in" / ("doc" + std::to_string(i) + ".txt");
      std::ofstream(file) << i << text;
      inputs_.push_back(file.string());
    }
  }
  ~Workspace() {
    std::error_code ignored;
    if (!root_.empty()) fs::remove_all(root_, ignored);
  }
  bool ready() const { return ready_; }
  fs::path keyPath(const char* kind) const { return root_ / (std::string(kind) + ".key"); }
  fs::path certPath(const char* kind) const { return root_ / (std::string(kind) + ".pem"); }
  fs::path outDir() const { return root_ / "out"; }
  // A new empty folder under outDir() for one timed run, so that every run creates its outputs: one that
  // replaced an earlier run's would do more file work (freeing the old files), and the two sides of a
  // ratio must do the same. Nothing is deleted before the end either: on ext4 without a journal a file
  // created soon after many were deleted costs more (the kernel passes over inodes freed in the last
  // minutes), which would time the deletion instead of the batch.
  fs::path freshOutDir() {
    const fs::path folder = outDir() / std::to_string(outDirsMade_++);
    fs::create_directory(folder);
    return folder;
  }
  fs::path attachedDir() const { return root_ / "attached"; }
  const std::vector<std::string>& inputs() const { return inputs_; }

 private:
  fs::path root_;
  bool ready_ = false;
  std::vector<std::string> inputs_;
  int outDirsMade_ = 0;
};

Workspace& workspace() {
  static Workspace w;
  return w;
}

// Passes signing on to a key file and remembers how long the data to be signed was.
class MeasuringSigner : public HostSigner {
 public:
  explicit MeasuringSigner(PrivateKey key) : inner_(std::move(key)) {}
  const char* signatureOid(const DigestChoice& digest) const override { return inner_.signatureOid(digest); }
  bool sign(const DigestChoice& digest, const Bytes& data, Bytes& signature, std::string& error) override {
    dtbsSize = data.size();
    return inner_.sign(digest, data, signature, error);
  }
  size_t dtbsSize = 0;

 private:
  KeyFileSigner inner_;
};

// The size of the data to be signed the library makes for one of the input files; 0 on failure.
size_t dtbsSize(const KeyKind& kind) {
  std::string error;
  const ZarvFunctions& zarv = ZarvFunctions::linked();
  PrivateKey key = readPrivateKey(workspace().keyPath(kind.file), error);
  std::vector<Bytes> certificate;
  if (key == nullptr ||
      !readCertificates(workspace().certPath(kind.file), certificate, error)) {
    return 0;
  }
  zarv.init();
  MeasuringSigner signer(std::move(key));
  SignerInfoRequest request;
  request.digest = findDigest("sha256");
  request.signer = &signer;
  request.certificate = certificate.front();
  Bytes content;
  Bytes signerInfo;
  if (!readWholeFile(workspace().inputs().front(), content) ||
      !digestBytes(*request.digest, content, request.messageDigest) ||
      !buildSignerInfo(zarv, request, signerInfo, error)) {
    return 0;
  }
  return signer.dtbsSize;
}

void reportRate(benchmark::State& state, int files) {
  state.counters["sig/s"] = benchmark::Counter(files, benchmark::Counter::kIsRate);
}

// `kolvari sign --key --cert --out-dir OUT --force --quiet --jobs JOBS FILE...` over the first `files` inputs.
Arguments toolArguments(const KeyKind& kind, int files, unsigned jobs, const fs::path& out) {
  Arguments args{"--key",   workspace().keyPath(kind.file).string(), "--cert", workspace().certPath(kind.file).string(),
                 "--out-dir", out.string(), "--force", "--quiet",
                 "--jobs",   std::to_string(jobs)};
  args.insert(args.end(), workspace().inputs().begin(), workspace().inputs().begin() + files);
  return args;
}

void toolBatch(benchmark::State& state, const KeyKind& kind, int files) {
  if (!workspace().ready()) {
    state.SkipWithError("cannot make the keys and files");
    return;
  }
  const Arguments args = toolArguments(kind, files, 1, workspace().freshOutDir());
  for (auto _ : state) {
    if (runSign(args) != kExitOk) state.SkipWithError("kolvari sign failed");
  }
  reportRate(state, files);
}

// What a signing run in memory needs: the key, its certificate and the file contents, read once.
struct MemoryBatch {
  const ZarvFunctions& zarv = ZarvFunctions::linked();
  std::unique_ptr<KeyFileSigner> signer;
  std::vector<Bytes> certificate;
  std::vector<Bytes> contents;

  bool load(const KeyKind& kind, int files) {
    std::string error;
    PrivateKey key = workspace().ready() ? readPrivateKey(workspace().keyPath(kind.file), error) : nullptr;
    contents.resize(static_cast<size_t>(files));
    bool ready = key != nullptr &&
                 readCertificates(workspace().certPath(kind.file), certificate, error);
    for (int i = 0; ready && i < files; ++i) ready = readWholeFile(workspace().inputs()[i], contents[i]);
    if (!ready) return false;
    zarv.init();
    signer = std::make_unique<KeyFileSigner>(std::move(key));
    return true;
  }

  // Signs every content on jobs threads, the library's signer-info calls under one lock as the tool does;
  // false when a signature failed.
  bool sign(unsigned jobs) {
    const DigestChoice* digest = findDigest("sha256");
    ContainerRequest prototype;
    prototype.digest = digest;
    prototype.certificates = certificate;
    prototype.signerInfos.resize(1);
    std::mutex libraryLock;
    std::vector<ContainerRequest> containers(jobs, prototype);
    std::vector<Bytes> messages(jobs);
    std::atomic<bool> ok{true};
    const BatchWork work = [&](size_t item, unsigned worker) {
      std::string error;
      SignerInfoRequest request;
      request.digest = digest;
      request.signer = signer.get();
      request.certificate = certificate.front();
      request.libraryLock = &libraryLock;
      messages[worker].clear();
      if (!digestBytes(*digest, contents[item], request.messageDigest) ||
          !buildSignerInfo(zarv, request, containers[worker].signerInfos[0], error) ||
          !buildContainer(zarv, containers[worker], messages[worker], error)) {
        ok = false;
      }
      benchmark::DoNotOptimize(messages[worker].data());
    };
    runBatch(contents.size(), jobs, work, [](size_t) {});
    return ok;
  }
};

// The same signing run in memory: the file contents already read, the signatures kept, no file system
// in the way. What it adds to the floor is the hashing of the content and the library's own work.
void inMemoryBatch(benchmark::State& state, const KeyKind& kind, int files) {
  MemoryBatch batch;
  if (!batch.load(kind, files)) {
    state.SkipWithError("cannot load the key or files");
    return;
  }
  for (auto _ : state) {
    if (!batch.sign(1)) state.SkipWithError("signing failed");
  }
  reportRate(state, files);
}

// Seconds that run takes.
template <typename Run>
double secondsOf(Run run) {
  const auto start = std::chrono::steady_clock::now();
  run();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Rounds of a --jobs row: one run on one thread and one on two, alternating, each side's median kept. A
// single pair of runs of some 50 ms swings by a third on a virtual machine whose other tenants come and go.
constexpr int kJobsRounds = 5;

template <typename One, typename Two>
void medianPair(One oneThread, Two twoThreads, double& one, double& two) {
  std::vector<double> ones;
  std::vector<double> twos;
  for (int round = 0; round < kJobsRounds; ++round) {
    ones.push_back(secondsOf(oneThread));
    twos.push_back(secondsOf(twoThreads));
  }
  std::sort(ones.begin(), ones.end());
  std::sort(twos.begin(), twos.end());
  one = ones[kJobsRounds / 2];
  two = twos[kJobsRounds / 2];
}

// One row of the --jobs table: sig/s on one thread and on two in the same run, their ratio, its goal and
// whether the goal is met (1) or not (0), as counters and as a line of its own.
void reportSpeedUp(benchmark::State& state, const char* what, int files, double oneThread, double twoThreads,
                   double goal) {
  const double ratio = twoThreads > 0 ? oneThread / twoThreads : 0;
  state.counters["sig/s jobs 1"] = files / oneThread;
  state.counters["sig/s jobs 2"] = files / twoThreads;
  state.counters["ratio"] = ratio;
  state.counters["goal"] = goal;
  state.counters["met"] = ratio >= goal ? 1 : 0;
  std::printf("%s: --jobs 2 is %.2fx --jobs 1 (goal >= %.1fx on two cores, %u here): %s\n", what, ratio, goal,
              std::thread::hardware_concurrency(), ratio >= goal ? "met" : "NOT met");
}

constexpr double kMemoryGoal = 1.7;
constexpr double kFilesGoal = 1.5;

void inMemoryJobs(benchmark::State& state, const KeyKind& kind, int files) {
  MemoryBatch batch;
  if (!batch.load(kind, files)) {
    state.SkipWithError("cannot load the key or files");
    return;
  }
  double one = 0;
  double two = 0;
  for (auto _ : state) medianPair([&batch] { batch.sign(1); }, [&batch] { batch.sign(2); }, one, two);
  reportSpeedUp(state, "in memory", files, one, two, kMemoryGoal);
}

void toolJobs(benchmark::State& state, const KeyKind& kind, int files) {
  if (!workspace().ready()) {
    state.SkipWithError("cannot make the keys and files");
    return;
  }
  double one = 0;
  double two = 0;
  for (auto _ : state) {
    medianPair([&] { runSign(toolArguments(kind, files, 1, workspace().freshOutDir())); },
               [&] { runSign(toolArguments(kind, files, 2, workspace().freshOutDir())); }, one, two);
  }
  reportSpeedUp(state, "with files", files, one, two, kFilesGoal);
}

// `files` bare EVP_DigestSign calls (SHA-256) over input of the size of the data to be signed.
void floorBatch(benchmark::State& state, const KeyKind& kind, int files) {
  std::string error;
  const size_t size = workspace().ready() ? dtbsSize(kind) : 0;
  PrivateKey key = readPrivateKey(workspace().keyPath(kind.file), error);
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  if (size == 0 || key == nullptr || ctx == nullptr) {
    EVP_MD_CTX_free(ctx);
    state.SkipWithError("cannot measure the data to be signed");
    return;
  }
  const Bytes data(size, 0x31);
  Bytes signature(static_cast<size_t>(EVP_PKEY_get_size(key.get())));
  for (auto _ : state) {
    for (int i = 0; i < files; ++i) {
      size_t n = signature.size();
      if (EVP_DigestSignInit(ctx, nullptr, EVP_sha256(), nullptr, key.get()) != 1 ||
          EVP_DigestSign(ctx, signature.data(), &n, data.data(), data.size()) != 1) {
        state.SkipWithError("EVP_DigestSign failed");
        break;
      }
      benchmark::DoNotOptimize(signature.data());
    }
  }
  EVP_MD_CTX_free(ctx);
  state.counters["dtbs"] = static_cast<double>(size);
  reportRate(state, files);
}

// The ceiling of the two rows above on this machine in this run: bare EVP_DigestSign calls with the same
// key, on one thread and on two. On a busy machine it falls below 2x, and the rows above with it.
void floorJobs(benchmark::State& state, const KeyKind& kind, int files) {
  std::string error;
  PrivateKey key = workspace().ready() ? readPrivateKey(workspace().keyPath(kind.file), error) : nullptr;
  if (key == nullptr) {
    state.SkipWithError("cannot read the key");
    return;
  }
  const Bytes data(kFileSize, 0x31);
  const BatchWork work = [&key, &data](size_t, unsigned) {
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    Bytes signature(static_cast<size_t>(EVP_PKEY_get_size(key.get())));
    size_t n = signature.size();
    if (ctx != nullptr && EVP_DigestSignInit(ctx, nullptr, EVP_sha256(), nullptr, key.get()) == 1) {
      EVP_DigestSign(ctx, signature.data(), &n, data.data(), data.size());
    }
    EVP_MD_CTX_free(ctx);
    benchmark::DoNotOptimize(signature.data());
  };
  const size_t count = static_cast<size_t>(files);
  double one = 0;
  double two = 0;
  for (auto _ : state) {
    medianPair([&] { runBatch(count, 1, work, [](size_t) {}); }, [&] { runBatch(count, 2, work, [](size_t) {}); },
               one, two);
  }
  reportSpeedUp(state, "bare signing (the ceiling)", files, one, two, kMemoryGoal);
}

// ---- verify batches ----

// The attached signatures of the first `files` inputs, made once by `kolvari sign --attached`; empty when
// signing failed.
std::vector<std::string> attachedSignatures(const KeyKind& kind, int files) {
  static std::vector<std::string> made;
  if (!made.empty() || !workspace().ready()) return made;
  Arguments args = toolArguments(kind, files, 2, workspace().attachedDir());
  args.push_back("--attached");
  if (runSign(args) != kExitOk) return made;
  for (int i = 0; i < files; ++i) {
    made.push_back(workspace().attachedDir() / (fs::path(workspace().inputs()[i]).filename().string() + ".p7s"));
  }
  return made;
}

// `kolvari verify --trust CERT --jobs JOBS FILE...` with its reports sent to /dev/null; its exit status.
int toolVerify(const KeyKind& kind, const std::vector<std::string>& signatures, unsigned jobs) {
  Arguments args{"verify", "--trust", workspace().certPath(kind.file).string(), "--jobs", std::to_string(jobs)};
  args.insert(args.end(), signatures.begin(), signatures.end());
  std::fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (saved < 0 || null < 0 || dup2(null, STDOUT_FILENO) < 0) return kExitFailure;
  close(null);
  const int status = runToolCommand({verifyCommand()}, args);
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  return status;
}

void toolVerifyJobs(benchmark::State& state, const KeyKind& kind, int files) {
  const std::vector<std::string> signatures = attachedSignatures(kind, files);
  if (signatures.empty() || toolVerify(kind, signatures, 1) != kExitOk) {
    state.SkipWithError("cannot sign or verify the batch");
    return;
  }
  double one = 0;
  double two = 0;
  for (auto _ : state) {
    medianPair([&] { toolVerify(kind, signatures, 1); }, [&] { toolVerify(kind, signatures, 2); }, one, two);
  }
  reportSpeedUp(state, "verify with files", files, one, two, kFilesGoal);
}

// The same batch with the signatures read beforehand: each judged as the tool judges a file of a batch, under
// one context (trust store and certificate cache) that every thread shares.
void inMemoryVerifyJobs(benchmark::State& state, const KeyKind& kind, int files) {
  const std::vector<std::string> signatures = attachedSignatures(kind, files);
  std::vector<Bytes> contents(signatures.size());
  bool ready = !signatures.empty();
  for (size_t i = 0; ready && i < signatures.size(); ++i) ready = readWholeFile(signatures[i], contents[i]);
  VerifyContext context;
  std::string error;
  context.options.trustFiles = {workspace().certPath(kind.file).string()};
  context.now = std::time(nullptr);
  if (!ready || !loadTrust(context, error)) {
    state.SkipWithError("cannot sign the batch or load the trust anchor");
    return;
  }
  std::atomic<bool> passed{true};
  const BatchWork work = [&](size_t item, unsigned) {
    const FileReport r = verifyFileBytes(signatures[item], contents[item], nullptr, context);
    if (r.signatures.size() != 1 || r.signatures[0].indication() != Indication::kTotalPassed) passed = false;
  };
  double one = 0;
  double two = 0;
  for (auto _ : state) {
    medianPair([&] { runBatch(contents.size(), 1, work, [](size_t) {}); },
               [&] { runBatch(contents.size(), 2, work, [](size_t) {}); }, one, two);
  }
  if (!passed) state.SkipWithError("a signature did not pass");
  reportSpeedUp(state, "verify in memory", files, one, two, kMemoryGoal);
}

const bool kRegistered = [] {
  constexpr int kJobsFiles = 2000;
  const std::string jobs = "batch_sign/" + std::string(kKeys[0].name) + "/" + std::to_string(kJobsFiles) + "/jobs-2-vs-1";
  benchmark::RegisterBenchmark((jobs + "/in-memory").c_str(), inMemoryJobs, kKeys[0], kJobsFiles)
      ->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark((jobs + "/kolvari").c_str(), toolJobs, kKeys[0], kJobsFiles)
      ->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark((jobs + "/floor").c_str(), floorJobs, kKeys[0], kJobsFiles)
      ->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
  const std::string verifyJobs =
      "batch_verify/" + std::string(kKeys[0].name) + "/" + std::to_string(kJobsFiles) + "/jobs-2-vs-1";
  benchmark::RegisterBenchmark((verifyJobs + "/in-memory").c_str(), inMemoryVerifyJobs, kKeys[0], kJobsFiles)
      ->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark((verifyJobs + "/kolvari").c_str(), toolVerifyJobs, kKeys[0], kJobsFiles)
      ->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
  for (const KeyKind& kind : kKeys) {
    for (int files : {1000, kMostFiles}) {
      const std::string name = std::string("batch_sign/") + kind.name + "/" + std::to_string(files);
      benchmark::RegisterBenchmark((name + "/kolvari").c_str(), toolBatch, kind, files)
          ->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
      benchmark::RegisterBenchmark((name + "/in-memory").c_str(), inMemoryBatch, kind, files)
          ->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
      benchmark::RegisterBenchmark((name + "/floor").c_str(), floorBatch, kind, files)
          ->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
    }
  }
  return true;
}();

}  // namespace
