// Replays files through a fuzz target once each: every file named on the command line, and every file in
// each folder named there (a missing file or folder is skipped). Used to run the seed corpora and saved crash
// reproducers as ordinary tests; a crash or sanitizer report fails the test.
//
// Damage mode (--damaged before the paths) also replays the damaged copies of each input (replay_damage.h),
// which the decoders must survive. A named file may end in @PATH, child indices separated by dots (-1 for the
// last child): the element at that path inside it is replayed instead of the whole file. A named file must
// hold one DER element (or its PEM or base64 text), so that its damaged copies reach inside; a file from a
// folder that does not is only cut short. Every input lies in a buffer of exactly its size, so that
// AddressSanitizer reports any read past its end.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "replay_damage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

struct Input {
  std::filesystem::path path;
  std::vector<int> elementPath;
  bool atPath = false;
  bool named = false;
};

// FILE or FILE@PATH.
Input namedInput(const std::string& argument) {
  Input input{argument, {}, false, true};
  const size_t at = argument.rfind('@');
  if (at == std::string::npos) return input;
  input.path = argument.substr(0, at);
  input.atPath = true;
  std::istringstream steps(argument.substr(at + 1));
  for (std::string step; std::getline(steps, step, '.');) input.elementPath.push_back(std::atoi(step.c_str()));
  return input;
}

// In damage mode a named file that is missing fails the run: the registration lists the samples by name.
std::vector<Input> inputsOf(int argc, char** argv, bool damaged) {
  std::vector<Input> inputs;
  for (int i = damaged ? 2 : 1; i < argc; ++i) {
    std::error_code ec;
    if (std::filesystem::is_directory(argv[i], ec)) {
      for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
        if (entry.is_regular_file()) inputs.push_back({entry.path(), {}, false, false});
    } else {
      Input input = namedInput(argv[i]);
      if (damaged || std::filesystem::exists(input.path, ec)) inputs.push_back(input);
    }
  }
  return inputs;
}

// The bytes in a buffer of exactly their size.
void replay(const DamageBytes& bytes) {
  std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
  if (!bytes.empty()) std::memcpy(exact.get(), bytes.data(), bytes.size());
  LLVMFuzzerTestOneInput(exact.get(), bytes.size());
}

// The whole input, and in damage mode its damaged copies: how many of those, or -1 when a named file holds
// no DER element to damage.
long replayInput(const Input& input, const DamageBytes& raw, bool damaged) {
  replay(raw);
  if (!damaged && !input.atPath) return 0;
  DamageBytes der = sampleDer(raw);
  if (input.atPath) der = derElementAt(der, input.elementPath);
  const std::vector<DerElement> all = derElements(der);
  if (all.empty() && input.named) return -1;
  if (all.empty()) der = raw;
  if (der != raw) replay(der);
  return damaged ? static_cast<long>(emitDamagedCopies(der, all, replay)) : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const bool damaged = argc > 1 && std::strcmp(argv[1], "--damaged") == 0;
  const std::vector<Input> inputs = inputsOf(argc, argv, damaged);
  int failures = 0;
  long copies = 0;
  for (const Input& input : inputs) {
    std::ifstream in(input.path, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "cannot read %s\n", input.path.c_str());
      ++failures;
      continue;
    }
    const DamageBytes raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const long count = replayInput(input, raw, damaged);
    if (count < 0) {
      std::fprintf(stderr, "%s: no DER element to damage\n", input.path.c_str());
      ++failures;
    }
    copies += count > 0 ? count : 0;
  }
  std::printf("replayed %zu inputs", inputs.size());
  if (damaged) std::printf(" and %ld damaged copies", copies);
  std::printf("\n");
  return failures == 0 ? 0 : 1;
}
