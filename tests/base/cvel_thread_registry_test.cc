#include "base/cvel_thread_registry.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

int32_t myNumber() { return threadNumber(currentThreadEntry()); }

// The thread that first uses the registry becomes its main thread: here always the test program's own.
class CvelThreadRegistry : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(currentThreadEntry(), nullptr); }
};

TEST_F(CvelThreadRegistry, MainThreadIsNumberZeroAndOthersAreUnknown) {
  EXPECT_EQ(myNumber(), 0);
  EXPECT_EQ(registerCurrentThread(4), kCvelErrBadParameter);  // already known, as the main thread
  int32_t other = 0;
  std::thread([&other] { other = myNumber(); }).join();
  EXPECT_EQ(other, -1);
  EXPECT_EQ(threadNumber(nullptr), -1);
}

TEST_F(CvelThreadRegistry, EndedOrInactiveEntriesHaveNoNumber) {
  CvelThreadEntry entry{};
  entry.number = 5;
  entry.active = 1;
  EXPECT_EQ(threadNumber(&entry), 5);
  entry.state = -1;
  EXPECT_EQ(threadNumber(&entry), -1);
  entry.state = 0;
  entry.active = 0;
  EXPECT_EQ(threadNumber(&entry), -1);
}

TEST_F(CvelThreadRegistry, RegisteredThreadsShowTheirOwnNumbers) {
  constexpr int kThreads = 8;
  std::vector<int32_t> seen(kThreads, -2);
  std::vector<int32_t> after(kThreads, -2);
  std::vector<CvelResult> refused(kThreads, kCvelOk);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([i, &seen, &after, &refused] {
      {
        CvelThreadRegistration registration(i + 1);
        if (registration.result() != kCvelOk) return;
        refused[i] = registerCurrentThread(i + 100);  // a second registration of the same thread
        for (int round = 0; round < 200; ++round) seen[i] = myNumber();
      }
      after[i] = myNumber();
    });
  }
  for (auto& t : threads) t.join();
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_EQ(seen[i], i + 1);
    EXPECT_EQ(refused[i], kCvelErrBadParameter);
    EXPECT_EQ(after[i], -1);  // unregistered when the registration ended
  }
  EXPECT_EQ(myNumber(), 0);
}

TEST_F(CvelThreadRegistry, RefusesNumbersBelowOneAndUnknownUnregistration) {
  std::vector<CvelResult> results;
  std::thread([&results] {
    results = {registerCurrentThread(0), registerCurrentThread(-3), unregisterCurrentThread()};
  }).join();
  EXPECT_EQ(results, (std::vector<CvelResult>{kCvelErrBadParameter, kCvelErrBadParameter, kCvelErrBadParameter}));
}

}  // namespace
