// Replays files through a fuzz target once each: every file named on the command line, and every file in
// each folder named there (a missing folder is skipped). Used to run the seed corpora and saved crash
// reproducers as ordinary tests; a crash or sanitizer report fails the test.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int replayFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return 1;
  }
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int failures = 0;
  size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path arg(argv[i]);
    std::error_code ec;
    if (std::filesystem::is_directory(arg, ec)) {
      for (const auto& entry : std::filesystem::directory_iterator(arg)) {
        if (!entry.is_regular_file()) continue;
        failures += replayFile(entry.path());
        ++replayed;
      }
    } else if (std::filesystem::exists(arg, ec)) {
      failures += replayFile(arg);
      ++replayed;
    }
  }
  std::printf("replayed %zu inputs\n", replayed);
  return failures == 0 ? 0 : 1;
}
