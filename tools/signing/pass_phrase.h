// The pass phrase of an encrypted key file or a PKCS #12 file, from where --pass says, in the forms of
// openssl's -passin: pass:TEXT, env:VAR, file:PATH (its first line), fd:N (its first line) or stdin (its first
// line). Without --pass it is asked for on the terminal, with echo off; off a terminal there is no one to ask.
#ifndef KOLVARI_TOOLS_SIGNING_PASS_PHRASE_H
#define KOLVARI_TOOLS_SIGNING_PASS_PHRASE_H

#include <string>

// The longest pass phrase read from a file, a descriptor or the terminal (openssl's own limit).
inline constexpr size_t kMaxPassPhraseLength = 1024;

// True when source has one of the forms above (the value itself is read only when a key needs it).
bool isPassSource(const std::string& source);

class PassPhrase {
 public:
  // source: the text of --pass, or empty to ask on the terminal.
  explicit PassPhrase(std::string source) : source_(std::move(source)) {}
  PassPhrase(const PassPhrase&) = delete;
  PassPhrase& operator=(const PassPhrase&) = delete;
  ~PassPhrase();

  // The pass phrase for the file at path. A --pass source is read once and serves every file of the run (a
  // descriptor or standard input cannot be read twice); the terminal is asked once per file. False with a
  // one-line message naming the file or the source.
  bool get(const std::string& path, std::string& out, std::string& error);
  // Whether a --pass source was given.
  bool given() const { return !source_.empty(); }

 private:
  bool readSource(std::string& error);

  std::string source_;
  std::string value_;
  bool read_ = false;
};

#endif  // KOLVARI_TOOLS_SIGNING_PASS_PHRASE_H
