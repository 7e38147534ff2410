#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "QRTSysTSHashMapOfIntToVoidPtr.h"

namespace {

void* V(intptr_t n) { return reinterpret_cast<void*>(n); }

using Entries = std::vector<std::pair<int, void*>>;

Entries Walk(QRTSysTSHashMapOfIntToVoidPtr const& map) {
  Entries out;
  QRTSysTSHashMapOfIntToVoidPtr::const_iterator it = map.cBegin();
  int key;
  void* value;
  while (it.GetGoToNext(key, value) == 0) out.emplace_back(key, value);
  return out;
}

void PutRange(QRTSysTSHashMapOfIntToVoidPtr& map, int first, int last) {
  for (int k = first; k < last; ++k) map.Put(k, V(k * 10));
}

}  // namespace

TEST(QRTSysTSHashMapOfIntToVoidPtr, BucketCountFollowsSizeAndLoadFactor) {
  const struct {
    int size;
    float loadFactor;
    int buckets;
  } cases[] = {
      {12, 0.75f, 16}, {0, 0.0f, 16}, {-3, 1.0f, 12}, {10, 1.0f, 10}, {12, 0.1f, 120},
      {12, 0.09f, 16}, {12, 100.0f, 1}, {12, 101.0f, 16}, {24, 0.75f, 32}, {7, 0.5f, 14},
  };
  for (auto const& c : cases) {
    QRTSysTSHashMapOfIntToVoidPtr map(c.size, c.loadFactor);
    EXPECT_EQ(c.buckets, map.GetBucketCount()) << c.size << "/" << c.loadFactor;
    EXPECT_TRUE(map.IsEmpty());
  }
}

TEST(QRTSysTSHashMapOfIntToVoidPtr, PutGetRemoveKeepOneEntryPerKey) {
  QRTSysTSHashMapOfIntToVoidPtr map(12, 0.75f);
  map.Put(5, V(50));
  map.Put(21, V(210));  // same bucket as 5 among 16
  map.Put(5, V(51));
  EXPECT_EQ(2, map.GetLength());
  EXPECT_EQ((Entries{{5, V(51)}, {21, V(210)}}), Walk(map));

  void* out = V(7);
  EXPECT_EQ(0, map.Get(21, out));
  EXPECT_EQ(V(210), out);
  out = V(7);
  EXPECT_EQ(ZYN_E_FAIL, map.Get(99, out));
  EXPECT_EQ(V(7), out);
  EXPECT_EQ(nullptr, map.GetAsPtr(99));
  *map.GetAsPtr(21) = V(211);
  EXPECT_TRUE(map.Find(21));
  EXPECT_FALSE(map.Find(99));

  EXPECT_EQ(map.Hash(5), map.Hash(21));
  EXPECT_EQ(2, map.Remove(37));  // absent, yet the same bucket: its length comes back
  EXPECT_EQ(2, map.GetLength());
  EXPECT_EQ(1, map.Remove(5));
  EXPECT_EQ(1, map.GetLength());
  EXPECT_EQ((Entries{{21, V(211)}}), Walk(map));
}

TEST(QRTSysTSHashMapOfIntToVoidPtr, ThirteenthEntryDoublesDefaultTable) {
  QRTSysTSHashMapOfIntToVoidPtr map(12, 0.75f);
  PutRange(map, 0, 12);
  EXPECT_EQ(16, map.GetBucketCount());
  map.Put(12, V(120));
  EXPECT_EQ(32, map.GetBucketCount());
  EXPECT_EQ(13, map.GetLength());
  PutRange(map, 13, 1000);
  EXPECT_EQ(2048, map.GetBucketCount());
  EXPECT_EQ(1000, map.GetLength());
  for (int k = 0; k < 1000; ++k) {
    void* out = nullptr;
    ASSERT_EQ(0, map.Get(k, out));
    ASSERT_EQ(V(k * 10), out);
  }
}

TEST(QRTSysTSHashMapOfIntToVoidPtr, IterationRunsByBucketThenInsertion) {
  QRTSysTSHashMapOfIntToVoidPtr map(12, 0.75f);
  const int keys[] = {21, 0x80, 5, 0, 37, -1, 3};
  for (int k : keys) map.Put(k, V(k));
  // buckets among 16: 0x80 and 0 in 0, 3 in 1, 21, 5 and 37 in 7, -1 in 8
  EXPECT_EQ((Entries{{0x80, V(0x80)}, {0, V(0)}, {3, V(3)}, {21, V(21)}, {5, V(5)}, {37, V(37)}, {-1, V(-1)}}),
            Walk(map));
}

// A rehash re-puts entries in the old iteration order, each at its new bucket's tail.
TEST(QRTSysTSHashMapOfIntToVoidPtr, ReHashReinsertsInIterationOrder) {
  QRTSysTSHashMapOfIntToVoidPtr map(12, 0.75f);
  PutRange(map, 0, 12);
  Entries before = Walk(map);
  map.ReHash(20, 1.0f);
  EXPECT_EQ(20, map.GetBucketCount());
  EXPECT_EQ(12, map.GetLength());
  Entries expected;
  for (int bucket = 0; bucket < 20; ++bucket) {
    for (auto const& e : before) {
      if (map.Hash(e.first) == bucket) expected.push_back(e);
    }
  }
  EXPECT_EQ(expected, Walk(map));

  // Too small a size grows again while refilling, as successive puts would.
  QRTSysTSHashMapOfIntToVoidPtr big(12, 0.75f);
  PutRange(big, 0, 100);
  big.ReHash(1, 1.0f);
  EXPECT_EQ(128, big.GetBucketCount());
  EXPECT_EQ(100, big.GetLength());
}

TEST(QRTSysTSHashMapOfIntToVoidPtr, CopiesAreIndependent) {
  QRTSysTSHashMapOfIntToVoidPtr source(12, 0.75f);
  PutRange(source, 0, 20);
  QRTSysTSHashMapOfIntToVoidPtr copy(source), assigned(3, 1.0f), refilled(source, 2, 1.0f), merged(12, 0.75f);
  assigned = source;
  merged.Put(3, V(0));
  merged.Put(500, V(5));
  merged.Put(source);
  EXPECT_EQ(Walk(source), Walk(copy));
  EXPECT_EQ(Walk(source), Walk(assigned));
  EXPECT_EQ(20, refilled.GetLength());
  EXPECT_EQ(32, refilled.GetBucketCount());
  for (QRTSysTSHashMapOfIntToVoidPtr* m : {&copy, &assigned, &refilled, &merged}) {
    m->Put(100, V(1));
    m->Remove(3);
  }
  EXPECT_EQ(20, source.GetLength());
  EXPECT_FALSE(source.Find(100));
  EXPECT_TRUE(source.Find(3));
  EXPECT_EQ(21, merged.GetLength());
}

TEST(QRTSysTSHashMapOfIntToVoidPtr, ClearAndDeleteDropEntries) {
  QRTSysTSHashMapOfIntToVoidPtr map(12, 0.75f);
  PutRange(map, 0, 40);
  map.Clear(12, 0.75f);
  EXPECT_TRUE(map.IsEmpty());
  EXPECT_EQ(16, map.GetBucketCount());
  EXPECT_TRUE(map.cBegin().IsEnd());

  for (int k = 0; k < 3; ++k) map.Put(k, new int(k));
  map.Delete(1);
  EXPECT_EQ(2, map.GetLength());
  EXPECT_FALSE(map.Find(1));
  map.DeleteAll();
  EXPECT_TRUE(map.IsEmpty() && map.cBegin().IsEnd());
  QRTSysTSHashMapOfIntToVoidPtr* owned = new QRTSysTSHashMapOfIntToVoidPtr(12, 0.75f);
  owned->Put(1, new int(1));
  owned->DeleteAllAndThis();  // the leak checker of the sanitizer builds watches both
}

TEST(QRTSysTSHashMapOfIntToVoidPtr, CursorReadsAndWritesValues) {
  QRTSysTSHashMapOfIntToVoidPtr map(12, 0.75f);
  PutRange(map, 0, 5);
  for (QRTSysTSHashMapOfIntToVoidPtr::iterator it = map.Begin(); !it.IsEnd(); it.Next()) {
    EXPECT_EQ(0, it.SetVal(V(*it.GetKeyAsPtr() + 1)));
  }
  QRTSysTSHashMapOfIntToVoidPtr::const_iterator it = map.cBegin();
  int seen = 0;
  while (LinkedMapOfKeyValNode const* e = it.GetEntryAsPtrGoToNext()) {
    EXPECT_EQ(V(e->key + 1), e->value);
    ++seen;
  }
  EXPECT_EQ(5, seen);
  EXPECT_EQ(ZYN_E_FAIL, it.Next());
  int key = -7;
  EXPECT_EQ(ZYN_E_FAIL, it.GetKey(key));
  EXPECT_EQ(-7, key);
  EXPECT_EQ(nullptr, it.GetValAsConstPtr());
}
