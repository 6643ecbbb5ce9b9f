// Writing signatures without ever leaving half a file behind, and the progress line of a batch.
#ifndef KOLVARI_TOOLS_SIGNING_OUTPUT_FILE_H
#define KOLVARI_TOOLS_SIGNING_OUTPUT_FILE_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

// Writes size bytes to an unnamed file in path's folder and then names it path (where the file system has
// no unnamed files: a temporary file beside path, renamed to it), so that a reader sees either nothing or
// the whole file. Without replace an existing path is left alone and reported. False with a one-line
// message.
bool writeWholeFile(const std::string& path, const void* bytes, size_t size, bool replace, std::string& error);

// Writes the content into the new file's descriptor. False when a write failed (errno says why, error
// left empty) or, with a message in error, for a fault of its own (an input that could not be read).
using FileFiller = std::function<bool(int fd, std::string& error)>;
// As writeWholeFile, with the content written by fill, in as many pieces as it likes: a file of any size
// passes through without being held whole.
bool writeFileThrough(const std::string& path, bool replace, const FileFiller& fill, std::string& error);

// The rule of every output the tool writes: an existing path is refused unless replace (--force), and the
// input itself (the same device and inode) in any case, as is a directory. False with a one-line message.
bool checkOutput(const std::string& path, const std::string& input, bool replace, std::string& error);

// checkOutput, then writeWholeFile.
bool writeOutputFile(const std::string& path, const std::string& input, const void* bytes, size_t size,
                     bool replace, std::string& error);

// checkOutput, then writeFileThrough.
bool writeOutputFile(const std::string& path, const std::string& input, const FileFiller& fill, bool replace,
                     std::string& error);

// What to print when a signal (SIGINT, SIGTERM, SIGHUP) ends the process. Whether or not a note is set, the
// temporary file being written is removed first, and the process then ends by the signal.
void setInterruptNote(const std::string& note);

// "done/total  N sig/s  Ms left", redrawn in place on standard error (a terminal) at most a few times a second.
class ProgressLine {
 public:
  ProgressLine(size_t total, bool shown);
  // One more file finished (signed or failed).
  void step();
  // Clears the line so that a message can be printed on a line of its own.
  void clear();
  // Draws the final state and ends the line.
  void finish();

 private:
  void draw();

  using Clock = std::chrono::steady_clock;
  size_t total_;
  size_t done_ = 0;
  bool shown_;
  Clock::time_point start_;
  Clock::time_point lastDrawn_;
};

#endif  // KOLVARI_TOOLS_SIGNING_OUTPUT_FILE_H
