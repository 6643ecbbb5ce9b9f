#include "base/cvel_last_error.h"

#include <netdb.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>

namespace {

// Expected texts come from glibc's own tables, written out here rather than asked of the same calls.
struct ReportCase {
  int32_t errorNumber;
  uint32_t detail2;
  uint32_t flags;
  const char* message;
};

TEST(CvelLastError, MessageChosenByTheFirstMatchingFlag) {
  const ReportCase cases[] = {
      {ENOENT, 0, 0x001, "No such file or directory"},
      {ENOENT, 0, 0x003, "No such file or directory"},  // system text wins over "Lasterror"
      {ENOENT, 0, 0x002, "Lasterror"},
      {0, static_cast<uint32_t>(EAI_NONAME), 0x00C, "Name or service not known"},
      {0, static_cast<uint32_t>(EAI_NONAME), 0x024, "Name or service not known"},
      {0, HOST_NOT_FOUND, 0x014, "Unknown host"},
      {0, HOST_NOT_FOUND, 0x010, ""},  // a host-lookup code without the resolver flag
      {0, static_cast<uint32_t>(EAI_NONAME), 0x004, ""},
      {EACCES, 0, 0x000, ""},
  };
  for (const auto& c : cases) {
    setLastError(c.errorNumber, 11, c.detail2, c.flags);
    const CvelLastError& record = *lastErrorRecord();
    EXPECT_EQ(record.errorNumber, c.errorNumber);
    EXPECT_EQ(record.detail1, 11u);
    EXPECT_EQ(record.detail2, c.detail2);
    EXPECT_EQ(record.flags, c.flags | kCvelRecordShared) << c.flags;
    EXPECT_STREQ(record.message, c.message) << c.flags;
  }
}

TEST(CvelLastError, RecordNothingFlagLeavesTheRecordAlone) {
  setLastError(ENOENT, 1, 2, 0x001);
  setLastError(EINVAL, 5, 6, 0x401);
  const CvelLastError& record = *lastErrorRecord();
  EXPECT_EQ(record.errorNumber, ENOENT);
  EXPECT_EQ(record.detail1, 1u);
  EXPECT_EQ(record.flags, 0x801u);
  EXPECT_STREQ(record.message, "No such file or directory");
}

TEST(CvelLastError, EveryThreadSharesTheOneRecord) {
  CvelLastError* mine = lastErrorRecord();
  CvelLastError* theirs = nullptr;
  std::thread([&theirs] {
    theirs = lastErrorRecord();
    setLastError(EPERM, 0, 0, 0x002);
  }).join();
  EXPECT_EQ(theirs, mine);
  EXPECT_EQ(mine->errorNumber, EPERM);
  // Asked for at every call, the per-thread key must not use up the keys of the process.
  for (int i = 0; i < 2000; ++i) lastErrorRecord();
  pthread_key_t key;
  ASSERT_EQ(pthread_key_create(&key, nullptr), 0);
  pthread_key_delete(key);
}

}  // namespace
