#include "base/cvel_last_error.h"

#include <netdb.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

namespace {

TEST(CvelLastError, MessageChosenByTheFirstMatchingFlag) {
  // The texts are glibc's, written out here rather than asked of the same calls.
  const struct { int32_t errorNumber; uint32_t detail2, flags; const char* message; } cases[] = {
      {ENOENT, 0, 0x003, "No such file or directory"},  // system text before "Lasterror"
      {ENOENT, 0, 0x002, "Lasterror"},
      {0, static_cast<uint32_t>(EAI_NONAME), 0x00C, "Name or service not known"},
      {0, static_cast<uint32_t>(EAI_NONAME), 0x024, "Name or service not known"},
      {0, HOST_NOT_FOUND, 0x014, "Unknown host"},
      {0, HOST_NOT_FOUND, 0x010, ""},  // no resolver flag
  };
  for (const auto& c : cases) {
    setLastError(c.errorNumber, 11, c.detail2, c.flags);
    EXPECT_EQ(lastErrorRecord()->flags, c.flags | kCvelRecordShared) << c.flags;
    EXPECT_STREQ(lastErrorRecord()->message, c.message) << c.flags;
  }
  setLastError(EINVAL, 5, 6, 0x401);  // records nothing
  EXPECT_EQ(lastErrorRecord()->detail1, 11u);
  EXPECT_STREQ(lastErrorRecord()->message, "");
}

TEST(CvelLastError, EveryThreadSharesTheOneRecord) {
  CvelLastError* theirs = nullptr;
  std::thread([&theirs] {
    theirs = lastErrorRecord();
    setLastError(EPERM, 0, 0, 0x002);
  }).join();
  EXPECT_EQ(theirs, lastErrorRecord());
  EXPECT_EQ(lastErrorRecord()->errorNumber, EPERM);
  // Asked for at every call, the per-thread key must not use up the keys of the process.
  for (int i = 0; i < 2000; ++i) lastErrorRecord();
  pthread_key_t key;
  ASSERT_EQ(pthread_key_create(&key, nullptr), 0);
  pthread_key_delete(key);
}

}  // namespace
