// Where a signature's bytes go as they are made: a file descriptor, or PEM text around another sink. Output
// of any size passes through them in pieces, never whole.
#ifndef KOLVARI_TOOLS_SIGNING_BYTE_SINK_H
#define KOLVARI_TOOLS_SIGNING_BYTE_SINK_H

#include <cstddef>
#include <string>
#include <vector>

class ByteSink {
 public:
  virtual ~ByteSink() = default;
  // Takes size bytes; false when they could not be written (errno tells why).
  virtual bool write(const unsigned char* bytes, size_t size) = 0;
  bool write(const std::vector<unsigned char>& bytes) { return write(bytes.data(), bytes.size()); }
  // The descriptor the bytes go to unchanged, for a copy the kernel makes from file to file; -1 if none.
  virtual int descriptor() const { return -1; }
};

// Writes straight to an open descriptor, retrying short writes and interruptions.
class FdSink : public ByteSink {
 public:
  explicit FdSink(int fd) : fd_(fd) {}
  bool write(const unsigned char* bytes, size_t size) override;
  int descriptor() const override { return fd_; }

 private:
  int fd_;
};

// PEM text of everything written, in lines of 64 characters under the given label: the same text as
// toPem() of the whole, written to the inner sink a batch of lines at a time.
class PemSink : public ByteSink {
 public:
  PemSink(ByteSink& inner, const char* label);
  bool write(const unsigned char* bytes, size_t size) override;
  // Writes the BEGIN line when nothing was written yet, the last short line and the END line.
  bool finish();

 private:
  void begin();
  bool encodeLines(const unsigned char* bytes, size_t lines);
  bool flushText();

  ByteSink& inner_;
  std::string label_;
  bool begun_ = false;
  std::vector<unsigned char> carry_;  // fewer bytes than one line takes
  std::string text_;                  // encoded lines not yet written
};

#endif  // KOLVARI_TOOLS_SIGNING_BYTE_SINK_H
