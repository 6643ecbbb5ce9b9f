#include "asn1/cvel_managed_array.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// An element that records its destruction in a shared log.
struct Tracked {
  std::vector<std::string>& log;
  std::string name;
  ~Tracked() { log.push_back(name); }
};

TEST(CvelManagedArray, OwnsItsElementsAndDestroysEachOnceInOrder) {
  std::vector<std::string> log;
  {
    CvelManagedArray<Tracked> list;
    Tracked* out = nullptr;
    EXPECT_EQ(list.get(0, out), kCvelErrBadParameter);  // out of range: out is left alone
    EXPECT_EQ(out, nullptr);
    for (const char* name : {"a", "b"}) list.add(new Tracked{log, name});
    list.clear();
    // Usable after clear, growing past several capacities; the destructor destroys what is left.
    for (int i = 0; i < 9; ++i) list.add(new Tracked{log, std::to_string(i)});
    ASSERT_EQ(list.get(8, out), kCvelOk);
    EXPECT_EQ(out->name, "8");
    ASSERT_EQ(list.removeLast(), kCvelOk);
  }
  EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "8", "0", "1", "2", "3", "4", "5", "6", "7"}));
}

}  // namespace
