// Signing content of any size. The input is hashed through one fixed buffer, and the content of an attached
// signature is copied from the file into the output between the container's head and tail: memory stays
// bounded by the buffer, whatever the size of the file.
#ifndef KOLVARI_TOOLS_SIGNING_CONTENT_STREAM_H
#define KOLVARI_TOOLS_SIGNING_CONTENT_STREAM_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "host_crypto.h"
#include "io/input_file.h"
#include "signing/byte_sink.h"

// Bytes read from the input at a time.
inline constexpr size_t kContentReadBuffer = size_t{1} << 20;

// One input file, read from its start once to hash it and, for an attached signature, once more to copy it.
class ContentFile {
 public:
  ContentFile() = default;
  ContentFile(const ContentFile&) = delete;
  ContentFile& operator=(const ContentFile&) = delete;

  // Opens path as every input opens (io/input_file.h); false with a message naming it.
  bool open(const std::string& path, std::string& error);
  // A plain file, which can be read a second time; a pipe is read once.
  bool rereadable() const { return regular_; }
  // The digest of the whole content; its length is size() afterwards.
  bool digest(const DigestChoice& digest, Bytes& out, std::string& error);
  // The whole content in memory, for a signature whose content the library encodes itself.
  bool readAll(Bytes& out, std::string& error);
  uint64_t size() const { return size_; }
  // Writes the content hashed by digest() to sink, read again from its start; false when the file changed
  // since it was hashed, could not be read, or the sink refused the bytes.
  bool copyTo(ByteSink& sink, std::string& error);

 private:
  bool unchangedSince(const struct stat& before, std::string& error) const;
  bool readChunk(size_t& got, std::string& error);
  bool copyInKernel(int to, uint64_t& left, std::string& error);

  InputFile file_;
  std::string path_;
  bool regular_ = false;
  uint64_t size_ = 0;
  struct stat opened_ = {};
  Bytes buffer_;
};

// A ContentInfo of type signedData encoded around an empty content, split where the content goes: head holds
// every byte before the content with each enclosing length grown by it, tail every byte after it. head, the
// content and tail written one after the other are the container's encoding with the content in place.
struct SplicedContainer {
  Bytes head;
  Bytes tail;
};

// The encapsulated content info the container is encoded around: id-data with an empty OCTET STRING.
Bytes placeholderContentInfo();

// Splits placeholder, a ContentInfo whose encapsulated content info is placeholderContentInfo(), for a content
// of contentLength bytes. False with a message when placeholder is not such a container or contentLength is
// beyond what the tool writes.
bool spliceContent(const Bytes& placeholder, uint64_t contentLength, SplicedContainer& out, std::string& error);

#endif  // KOLVARI_TOOLS_SIGNING_CONTENT_STREAM_H
