#include "asn1/cvel_managed_array.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_string_tuple.h"

namespace {

// An element that records its destruction in a shared log.
class Tracked : public CvelNonCopyObject {
 public:
  Tracked(std::vector<std::string>& log, std::string name) : log_(log), name_(std::move(name)) {}
  ~Tracked() override { log_.push_back(name_); }
  const std::string& name() const { return name_; }

 private:
  std::vector<std::string>& log_;
  std::string name_;
};

TEST(CvelManagedArray, GetOutOfRangeLeavesTheOutputAlone) {
  CvelManagedArray<Tracked> list;
  std::vector<std::string> log;
  Tracked outside(log, "outside");
  Tracked* out = &outside;
  EXPECT_EQ(list.get(0, out), kCvelErrBadParameter);
  EXPECT_EQ(out, &outside);
  EXPECT_EQ(list.size(), 0u);
}

TEST(CvelManagedArray, OwnsItsElementsAndDestroysThemInOrder) {
  std::vector<std::string> log;
  {
    CvelManagedArray<Tracked> list;
    EXPECT_EQ(list.add(new Tracked(log, "a")), kCvelOk);
    EXPECT_EQ(list.add(new Tracked(log, "b")), kCvelOk);
    Tracked* out = nullptr;
    ASSERT_EQ(list.get(1, out), kCvelOk);
    EXPECT_EQ(out->name(), "b");
    ASSERT_EQ(list.get(0, out), kCvelOk);
    EXPECT_EQ(out->name(), "a");
    EXPECT_EQ(list.get(2, out), kCvelErrBadParameter);
    list.clear();
    EXPECT_EQ(log, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(list.size(), 0u);
    // The array is usable after clear, and its destructor destroys what is left exactly once.
    for (int i = 0; i < 9; ++i) list.add(new Tracked(log, "n" + std::to_string(i)));
    EXPECT_EQ(list.size(), 9u);
    ASSERT_EQ(list.get(8, out), kCvelOk);
    EXPECT_EQ(out->name(), "n8");
    ASSERT_EQ(list.removeLast(), kCvelOk);
    EXPECT_EQ(log.back(), "n8");
  }
  ASSERT_EQ(log.size(), 11u);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(log[static_cast<size_t>(3 + i)], "n" + std::to_string(i));
  CvelManagedArray<Tracked> empty;
  EXPECT_EQ(empty.removeLast(), kCvelErrBadParameter);
}

TEST(CvelManagedArray, StringTuplesHoldCopies) {
  CvelStringTuples tuples;
  auto* tuple = new CvelStringTuple();
  std::string text = "first";
  ASSERT_EQ(tuple->addText(text.c_str()), kCvelOk);
  ASSERT_EQ(tuple->addText(nullptr), kCvelOk);  // an empty entry
  text[0] = 'X';
  ASSERT_EQ(tuples.add(tuple), kCvelOk);
  CvelStringTuple* got = nullptr;
  ASSERT_EQ(tuples.get(0, got), kCvelOk);
  CvelString* s = nullptr;
  ASSERT_EQ(got->get(0, s), kCvelOk);
  EXPECT_EQ(std::string(s->c_str()), "first");
  ASSERT_EQ(got->get(1, s), kCvelOk);
  EXPECT_TRUE(s->isEmpty());
}

}  // namespace
