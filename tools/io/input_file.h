// The one way the tool opens the files it reads: a directory, a device or a file that cannot be opened is
// reported as such, in one line that names it, and never reaches a reader that would fail on it.
#ifndef KOLVARI_TOOLS_IO_INPUT_FILE_H
#define KOLVARI_TOOLS_IO_INPUT_FILE_H

#include <cstddef>
#include <string>
#include <vector>

class InputFile {
 public:
  InputFile() = default;
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile();

  // Opens path: a regular file or a pipe. False with "PATH: is a directory", "PATH: is a device",
  // "PATH: No such file or directory" and the like.
  bool open(const std::string& path, std::string& error);
  // Reads up to capacity bytes into buffer: the count read, 0 at the end, -1 on a read error (errno set).
  long read(unsigned char* buffer, size_t capacity);
  // The rest of the file appended to out; false with a message naming the file.
  bool readAll(std::vector<unsigned char>& out, std::string& error);
  // The open descriptor, -1 when none, for a reader that needs more than read: the file's status, a second
  // pass from the start, a copy the kernel makes. It stays the file's own, closed with it.
  int descriptor() const { return fd_; }

 private:
  int fd_ = -1;
  std::string path_;
};

// The whole of path in out; false with a one-line message naming the file.
bool readInputFile(const std::string& path, std::vector<unsigned char>& out, std::string& error);

// The whole of path in out, for readers that report a failure in their own words; false when it cannot be read.
bool readWholeFile(const std::string& path, std::vector<unsigned char>& out);

// Whether path can be opened as an input, for inputs that another reader opens itself (OpenSSL's, the
// library's streams); false with the message open would give.
bool checkInputFile(const std::string& path, std::string& error);

#endif  // KOLVARI_TOOLS_IO_INPUT_FILE_H
