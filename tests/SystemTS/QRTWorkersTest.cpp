// Ranges handed to every core: each index done once, whatever the count and range size.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <memory>

#include "QRTWorkers.h"

TEST(QRTWorkers, ForEachRangeDoesEveryIndexOnce) {
  const struct {
    size_t count;
    size_t rangeSize;
  } cases[] = {{0, 4}, {1, 4}, {5, 1}, {5, 0}, {2048, 2048}, {2049, 2048}, {10000, 7}};
  for (auto const& c : cases) {
    std::unique_ptr<std::atomic<int>[]> done(new std::atomic<int>[c.count + 1]);
    for (size_t i = 0; i <= c.count; ++i) done[i] = 0;
    std::atomic<bool> badRange{false};
    QRTForEachRange("test", c.count, c.rangeSize, [&](size_t first, size_t last) {
      if (first >= last || last > c.count) badRange = true;
      for (size_t i = first; i < last && i < c.count; ++i) ++done[i];
    });
    EXPECT_FALSE(badRange) << c.count << "/" << c.rangeSize;
    int wrong = 0;
    for (size_t i = 0; i < c.count; ++i) wrong += done[i] != 1 ? 1 : 0;
    EXPECT_EQ(wrong, 0) << c.count << "/" << c.rangeSize;
  }
}
