// Logging figures: records per second through the file sink with every field of the layout, on one and two
// threads, beside fprintf of the same line (into a file held open, and opened per line as the sink does);
// and the cost of a call whose level is off, which must not format, lock or allocate.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/cvel_thread_registry.h"
#include "log/cvel_logger.h"

namespace {

constexpr size_t kFileLimit = 16 << 20;  // the sink's "MaxFileSize = 16m" below
constexpr const char* kMessage = "ZARV_EncodeSignerInfo: 1432 bytes encoded for signer 3";
constexpr const char* kConfig =
    "[Common]\n"
    "LogLevel = ERROR,WARN,INFO\n"
    "Format = DateTime,LogLevel,Thread,PID,LogModule,LogProcess,FileName,FuncName,Line,LogMsg\n"
    "[Logger]\n"
    "File = %s/bench.log\n"
    "[File]\n"
    "MaxFileSize = 16m\n";

// A scratch folder for the log and its configuration, removed when the program ends.
struct Scratch {
  std::string dir;
  Scratch() {
    char pattern[] = "/tmp/kolvari-bench-log-XXXXXX";
    if (mkdtemp(pattern) == nullptr) std::abort();
    dir = pattern;
  }
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
  }
};

Scratch& scratch() {
  static Scratch s;
  return s;
}

CvelLogger& benchLogger() {
  static CvelLogger* logger = [] {
    const std::string program = scratch().dir + "/app";
    FILE* config = std::fopen((program + ".cfgLog").c_str(), "wb");
    if (config == nullptr) std::abort();
    std::fprintf(config, kConfig, scratch().dir.c_str());
    std::fclose(config);
    auto* made = new CvelLogger(program, program);
    if (!made->enabled()) std::abort();
    return made;
  }();
  return *logger;
}

// The same line as the logger writes it, for the fprintf floor.
const std::string& sameLine() {
  static std::string line = benchLogger().format()->compose(__FILE__, "BM_FileSink", 42, kCvelLogInfo, kMessage);
  return line;
}

void BM_FileSink(benchmark::State& state) {
  CvelLogger& logger = benchLogger();
  CvelThreadRegistration registration(state.thread_index() + 1);
  for (auto _ : state) CVEL_LOG(logger, kCvelLogInfo, kMessage);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FileSink)->Threads(1)->Threads(2)->UseRealTime();

void BM_FprintfHeldOpen(benchmark::State& state) {
  const std::string& line = sameLine();
  const std::string path = scratch().dir + "/held-" + std::to_string(state.thread_index()) + ".log";
  FILE* out = std::fopen(path.c_str(), "ab");
  size_t written = 0;
  for (auto _ : state) {
    std::fprintf(out, "%s", line.c_str());
    // Keep the file small: start it afresh now and then, as the sink does at its limit.
    written += line.size();
    if (written > kFileLimit) {
      out = std::freopen(nullptr, "wb", out);
      written = 0;
    }
  }
  std::fclose(out);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FprintfHeldOpen)->Threads(1)->Threads(2)->UseRealTime();

void BM_FprintfOpenPerLine(benchmark::State& state) {
  const std::string& line = sameLine();
  const std::string path = scratch().dir + "/per-line-" + std::to_string(state.thread_index()) + ".log";
  for (auto _ : state) {
    FILE* out = std::fopen(path.c_str(), "ab");
    std::fprintf(out, "%s", line.c_str());
    std::fclose(out);
  }
  std::filesystem::remove(path);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FprintfOpenPerLine)->Threads(1)->Threads(2)->UseRealTime();

// TRACE is not in the mask: the check is all that runs, and the message expression is never evaluated.
void BM_DisabledLevel(benchmark::State& state) {
  CvelLogger& logger = benchLogger();
  for (auto _ : state) {
    CVEL_LOG(logger, kCvelLogTrace, (std::string(kMessage) + " built").c_str());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_DisabledLevel);

}  // namespace
