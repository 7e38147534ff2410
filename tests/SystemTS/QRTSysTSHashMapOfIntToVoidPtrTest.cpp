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

  EXPECT_EQ(2, map.Remove(37));  // absent, yet the same bucket: its length comes back
  EXPECT_EQ(2, map.GetLength());
  EXPECT_EQ(1, map.Remove(5));
  EXPECT_EQ(1, map.GetLength());
  EXPECT_EQ((Entries{{21, V(211)}}), Walk(map));
}

// Growing while filling, and a rehash to too small a size, keep every entry findable.
TEST(QRTSysTSHashMapOfIntToVoidPtr, GrowthAndRehashKeepEveryEntry) {
  QRTSysTSHashMapOfIntToVoidPtr map(12, 0.75f);
  PutRange(map, 0, 1000);
  map.ReHash(1, 1.0f);
  EXPECT_EQ(1000, map.GetLength());
  EXPECT_EQ(1000u, Walk(map).size());
  for (int k = 0; k < 1000; ++k) {
    void* out = nullptr;
    ASSERT_EQ(0, map.Get(k, out));
    ASSERT_EQ(V(k * 10), out);
  }
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
  EXPECT_TRUE(map.IsEmpty() && map.cBegin().IsEnd());

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
