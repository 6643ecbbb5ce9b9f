// CvelLogBase: the sink family. A sink receives finished record lines from the logger, which calls it only
// while holding its own mutex, and puts them somewhere. Sinks never report failures: a line they cannot
// write is lost.
#ifndef KOLVARI_LOG_CVEL_LOG_BASE_H
#define KOLVARI_LOG_CVEL_LOG_BASE_H

#include <cstdint>
#include <string>

class CvelLogBase {
 public:
  CvelLogBase() = default;
  virtual ~CvelLogBase() = default;
  CvelLogBase(const CvelLogBase&) = delete;
  CvelLogBase& operator=(const CvelLogBase&) = delete;

  // The one operation the logger calls: level is the record's level bit, line the composed text with its
  // newline (zero-terminated).
  virtual void log(uint32_t level, const char* line) { (void)level; write(line); }
  // The sink's raw output, called by its own log().
  virtual void write(const char* line) = 0;

 protected:
  // No sink sets or reads it; it stays for the layout the sinks share.
  std::string name_;
};

#endif  // KOLVARI_LOG_CVEL_LOG_BASE_H
