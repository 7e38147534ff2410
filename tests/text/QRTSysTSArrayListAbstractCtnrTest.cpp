#include <gtest/gtest.h>

#include <vector>

#include "QRTSysTSArrayListAbstractCtnr.h"

TEST(QRTSysTSArrayListAbstractCtnr, IndexRangeAndRoomChecks) {
  QRTSysTSArrayListAbstractCtnr a(sizeof(int));
  EXPECT_EQ(ZYN_E_FAIL, a.Move(0, 0, 0));  // no storage yet
  ASSERT_EQ(0, a.MakeRoom(0, 3));
  const struct {
    int first, last, index, range, room;  // CheckIndex(first), CheckRange(first, last), MakeRoom(first, last)
  } cases[] = {
      {-1, 1, ZYN_E_FAIL, ZYN_E_FAIL, ZYN_E_FAIL}, {0, 3, 0, 0, 0},  {2, 3, 0, 0, 0},
      {2, 2, 0, ZYN_E_FAIL, 0},                    {3, 1, ZYN_E_FAIL, ZYN_E_FAIL, 0}, {1, 4, 0, ZYN_E_FAIL, 0},
      {4, 5, ZYN_E_FAIL, ZYN_E_FAIL, ZYN_E_FAIL},  {0, -1, 0, ZYN_E_FAIL, ZYN_E_FAIL},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(c.index, a.CheckIndex(c.first)) << c.first;
    EXPECT_EQ(c.range, a.CheckRange(c.first, c.last)) << c.first << "," << c.last;
    QRTSysTSArrayListAbstractCtnr room(sizeof(int));
    room.MakeRoom(0, 3);
    EXPECT_EQ(c.room, room.MakeRoom(c.first, c.last)) << c.first << "," << c.last;
  }
}
