// The fuzzer's bytes as a file, for the targets that compare reading a file with reading memory. One
// temporary file per process, rewritten for every input and removed when the process ends.
#ifndef KOLVARI_FUZZ_FUZZ_FILE_H
#define KOLVARI_FUZZ_FUZZ_FILE_H

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

class FuzzFile {
 public:
  FuzzFile() {
    int fd = mkstemp(path_);
    if (fd >= 0) close(fd);
  }
  ~FuzzFile() { std::remove(path_); }

  // The path of a file that holds exactly the bytes; null when it cannot be written.
  const char* write(const uint8_t* data, size_t size) {
    std::FILE* f = std::fopen(path_, "wb");
    if (f == nullptr) return nullptr;
    bool ok = size == 0 || std::fwrite(data, 1, size, f) == size;
    ok = std::fclose(f) == 0 && ok;
    return ok ? path_ : nullptr;
  }

 private:
  char path_[32] = "/tmp/kolvari-fuzz-XXXXXX";
};

#endif  // KOLVARI_FUZZ_FUZZ_FILE_H
