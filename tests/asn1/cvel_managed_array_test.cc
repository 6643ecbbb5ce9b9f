#include "asn1/cvel_managed_array.h"

#include <gtest/gtest.h>

namespace {

// Counts the elements alive, so that a leak or a double destruction shows as a wrong count.
struct Counted {
  static inline int alive = 0;
  int value = 0;
  Counted() { ++alive; }
  ~Counted() { --alive; }
};

class CountedList : public CvelBlockArray<Counted> {};

// Every list of a test is gone by its end, and every element with it.
class CvelBlockArrayTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(Counted::alive, 0); }
};

}  // namespace

TEST_F(CvelBlockArrayTest, ElementsOfOneBlockLiveWithTheBlockAndMixWithSingleOnes) {
  CountedList list;
  Counted* block = list.makeElements(3);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(Counted::alive, 3);
  block[0].value = 10;
  block[2].value = 12;
  EXPECT_EQ(list.add(&block[0]), kCvelOk);
  EXPECT_EQ(list.makeElements(2), nullptr);  // only for an empty list
  EXPECT_EQ(list.add(new Counted()), kCvelOk);
  EXPECT_EQ(list.add(&block[2]), kCvelOk);
  EXPECT_EQ(list.size(), 3u);
  EXPECT_EQ(Counted::alive, 4);
  Counted* got = nullptr;
  ASSERT_EQ(list.get(2, got), kCvelOk);
  EXPECT_EQ(got->value, 12);
  // A block element taken out stays alive with its block; a single one goes at once.
  EXPECT_EQ(list.removeLast(), kCvelOk);
  EXPECT_EQ(Counted::alive, 4);
  EXPECT_EQ(list.removeLast(), kCvelOk);
  EXPECT_EQ(Counted::alive, 3);
  list.clear();
  EXPECT_EQ(list.size(), 0u);
  EXPECT_EQ(Counted::alive, 3);
  // The next block replaces the old one; the list's end releases it, unused elements included.
  ASSERT_NE(list.makeElements(2), nullptr);
  EXPECT_EQ(Counted::alive, 2);
  EXPECT_EQ(list.add(new Counted()), kCvelOk);
  EXPECT_EQ(Counted::alive, 3);
  EXPECT_EQ(list.makeElements(0), nullptr);
}

TEST_F(CvelBlockArrayTest, AListOutgrowingItsBlockKeepsEveryElementInOrder) {
  CountedList list;
  Counted* block = list.makeElements(2);
  ASSERT_NE(block, nullptr);
  block[0].value = 1;
  block[1].value = 2;
  EXPECT_EQ(list.add(&block[0]), kCvelOk);
  EXPECT_EQ(list.add(&block[1]), kCvelOk);
  // The slots came with the block; more elements than it holds move them elsewhere, twice over.
  for (int v = 3; v <= 20; ++v) {
    Counted* single = new Counted();
    single->value = v;
    EXPECT_EQ(list.add(single), kCvelOk);
  }
  ASSERT_EQ(list.size(), 20u);
  for (uint32_t i = 0; i < list.size(); ++i) {
    Counted* got = nullptr;
    ASSERT_EQ(list.get(i, got), kCvelOk);
    EXPECT_EQ(got->value, static_cast<int>(i) + 1);
  }
  EXPECT_EQ(Counted::alive, 20);
  // Emptied, the list takes a new block with slots again, and a smaller one than its own slots.
  list.clear();
  ASSERT_NE(list.makeElements(1), nullptr);
  EXPECT_EQ(Counted::alive, 1);
}

TEST_F(CvelBlockArrayTest, ListsShareOneStoreAndAllocateWhatDoesNotFit) {
  CvelBlockStore store;
  CountedList first;
  CountedList second;
  ASSERT_TRUE(store.reserve(CvelBlockStore::pieceBytes(CountedList::blockBytes(2)) +
                            CvelBlockStore::pieceBytes(CountedList::blockBytes(3))));
  Counted* a = first.makeElements(2, &store);
  Counted* b = second.makeElements(3, &store);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  // The second block lies in the store right behind the first.
  EXPECT_EQ(static_cast<void*>(b),
            static_cast<void*>(reinterpret_cast<unsigned char*>(a) +
                               CvelBlockStore::pieceBytes(CountedList::blockBytes(2))));
  EXPECT_EQ(store.take(1), nullptr);  // full
  first.release();
  EXPECT_EQ(Counted::alive, 3);
  // A store without room leaves the list to allocate its block, which it frees itself (ASan sees a wrong
  // free of either kind).
  ASSERT_NE(first.makeElements(4, &store), nullptr);
  EXPECT_EQ(Counted::alive, 7);
}
