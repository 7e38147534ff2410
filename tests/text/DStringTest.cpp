#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "DString.h"

namespace {

std::u16string Units(DString const& s) {
  return std::u16string(reinterpret_cast<char16_t const*>(s.ConvertToUCChar()), static_cast<size_t>(s.Length()));
}

DString FromUnits(std::u16string const& u) {
  return DString(reinterpret_cast<unsigned short const*>(u.data()), static_cast<int>(u.size()));
}

TEST(DStringValue, EmptyValuesShareTheStaticRecordWithoutCounting) {
  DString a;
  DString b(static_cast<wchar_t const*>(nullptr));
  DString c(a);
  EXPECT_EQ(a._GetRecord(), _DStringEmptyPtr);
  EXPECT_EQ(b._GetRecord(), _DStringEmptyPtr);
  EXPECT_EQ(c._GetRecord(), _DStringEmptyPtr);
  EXPECT_EQ(_DStringEmptyPtr->refCount, -1);
  EXPECT_TRUE(a.IsEmpty());
}

TEST(DStringValue, WideCharactersAboveBmpAreCutToTheirLowUnit) {
  DString s(L"\U0001F600");
  ASSERT_EQ(s.Length(), 1);
  EXPECT_EQ(s[0], 0xF600);
}

TEST(DStringValue, WriteThroughOneHandleIsNeverSeenThroughAnother) {
  DString a(L"shared");
  DString b(a);
  EXPECT_EQ(a._GetRecord(), b._GetRecord());
  EXPECT_EQ(a._GetRecord()->refCount, 2);
  b.Append(L'!');
  EXPECT_NE(a._GetRecord(), b._GetRecord());
  EXPECT_EQ(Units(a), u"shared");
  EXPECT_EQ(Units(b), u"shared!");
  EXPECT_EQ(a._GetRecord()->refCount, 1);

  DString c(a);
  c.ReplaceAll(DString(L"a"), DString(L"A"));
  c.Remove(0, 1);
  EXPECT_EQ(Units(a), u"shared");
  EXPECT_EQ(Units(c), u"hAred");
}

TEST(DStringValue, AssigningNullEmptiesButKeepsThePrivateRecord) {
  DString s(L"abc");
  DStringInternal* record = s._GetRecord();
  s = static_cast<wchar_t const*>(nullptr);
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_EQ(s._GetRecord(), record);
  s = L"xy";  // fits: the allocation is reused
  EXPECT_EQ(s._GetRecord(), record);
  EXPECT_EQ(Units(s), u"xy");
}

TEST(DStringValue, SelfAssignmentAndSelfAppendKeepTheText) {
  DString s(L"ab");
  DString& alias = s;
  s = alias;
  EXPECT_EQ(Units(s), u"ab");
  s.Append(s);
  EXPECT_EQ(Units(s), u"abab");
  s.Append(s, s, s);
  EXPECT_EQ(Units(s), u"abababababababab");
  s.Insert(1, s);
  EXPECT_EQ(s.Length(), 32);
}

TEST(DStringValue, AppendOfCharacterZeroChangesNothing) {
  DString s(L"a");
  s.Append(L'\0');
  s.Append(static_cast<wchar_t>(0x10000));  // cut to 0
  EXPECT_EQ(Units(s), u"a");
  s += static_cast<wchar_t>(0x10041);
  EXPECT_EQ(Units(s), u"aA");
}

TEST(DStringValue, RepeatedAppendsGrowByHalf) {
  DString s;
  s.Append(L'x');
  EXPECT_EQ(s.GetCapacity(), 1);
  s.Append(L'x');
  EXPECT_EQ(s.GetCapacity(), 2);
  s.Append(L'x');
  EXPECT_EQ(s.GetCapacity(), 3);
  s.Append(DString(L"xxx"));  // 6 > 1.5 * 3
  EXPECT_EQ(s.GetCapacity(), 6);
  s.Append(L'x');
  EXPECT_EQ(s.GetCapacity(), 9);
}

TEST(DStringValue, OperatorPlusLeavesTheLeftOperandAlone) {
  DString left(L"left");
  DString joined = left + L"/" + DString(L"right") + L'!';
  EXPECT_EQ(Units(left), u"left");
  EXPECT_EQ(Units(joined), u"left/right!");
  EXPECT_EQ(Units(L"pre" + left), u"preleft");
  EXPECT_EQ(Units(L'<' + left), u"<left");
}

TEST(DStringValue, RangeConstructionRejectsBadRanges) {
  DString s(L"abcdef");
  struct Case {
    int first, last;
    std::u16string expected;
  } cases[] = {{0, 6, u"abcdef"}, {2, 4, u"cd"}, {3, 3, u""}, {-1, 2, u""}, {4, 2, u""}, {0, 7, u""}};
  for (auto const& c : cases) {
    EXPECT_EQ(Units(DString(s, c.first, c.last)), c.expected) << c.first << "," << c.last;
    EXPECT_EQ(Units(s.SubStringD(c.first, c.last)), c.expected) << c.first << "," << c.last;
  }
}

TEST(DStringValue, IndexingOutsideTheTextGivesZero) {
  DString s(L"ab");
  EXPECT_EQ(s[0], L'a');
  EXPECT_EQ(s[2], 0);
  EXPECT_EQ(s[-1], 0);
}

TEST(DStringCompare, EqualityFollowsTheLowByteRuleForDifferentLengths) {
  struct Case {
    std::u16string a, b;
    bool equal;
  } cases[] = {
      {u"a", u"ab", false},        {u"ab", u"ab", true},  {u"", u"", true},
      {u"a", u"\u0100b", true},    // longer begins with a unit whose low byte is 0
      {u"\u4E00xyz", u"q", true},  {u"ab", u"ac", false}, {u"", u"a", false},
      {u"\u0100", u"\u0200", false},
  };
  for (auto const& c : cases) {
    DString a = FromUnits(c.a), b = FromUnits(c.b);
    EXPECT_EQ(a == b, c.equal);
    EXPECT_EQ(b == a, c.equal);
    EXPECT_EQ(a != b, !c.equal);
  }
}

TEST(DStringCompare, OrderIsByUnsignedUnitsWithEmptyFirst) {
  struct Case {
    std::u16string a, b;
    int order;
  } cases[] = {
      {u"", u"", 0},           {u"", u"a", -1},        {u"a", u"", 1},      {u"a", u"ab", -1},
      {u"ab", u"a", 1},        {u"abc", u"abd", -1},   {u"b", u"abc", 1},   {u"a", u"\u0100b", -1},
      {u"\uFFFF", u"a", 1},    {u"same", u"same", 0},  {u"A", u"a", -1},
  };
  for (auto const& c : cases) {
    DString a = FromUnits(c.a), b = FromUnits(c.b);
    EXPECT_EQ(DString::Compare(&a, &b), c.order);
    EXPECT_EQ(a < b, c.order < 0);
    EXPECT_EQ(a >= b, c.order >= 0);
  }
  DString a(L"a");
  EXPECT_EQ(DString::Compare(nullptr, &a), -1);
  EXPECT_EQ(DString::Compare(&a, nullptr), 1);
  EXPECT_EQ(DString::Compare(nullptr, nullptr), 0);
}

TEST(DStringCompare, UnitZeroEndsTheComparison) {
  unsigned short left[] = {'a', 0, 'x'};
  unsigned short right[] = {'a', 0, 'y'};
  DString l(left, 3), r(right, 3);
  EXPECT_EQ(DString::Compare(&l, &r), 0);
  EXPECT_FALSE(l == r);
}

TEST(DStringCompare, SubStringAtChecksBounds) {
  DString s(L"media/1");
  EXPECT_TRUE(s.IsSubStringAt(0, DString(L"media")));
  EXPECT_TRUE(s.IsSubStringAt(6, DString(L"1")));
  EXPECT_FALSE(s.IsSubStringAt(6, DString(L"12")));
  EXPECT_TRUE(s.IsSubStringAt(7, DString()));
  EXPECT_FALSE(s.IsSubStringAt(8, DString()));
}

TEST(DStringBuffer, GetAndReleaseBufferKeepTheTextAndDoubleTheCapacity) {
  DString s(L"hello");
  int capacity = s.GetCapacity();
  wchar_t* wide = s.GetBuffer(-1);
  ASSERT_NE(wide, nullptr);
  EXPECT_EQ(std::wstring(wide), L"hello");
  s.ReleaseBuffer(-1);
  EXPECT_EQ(Units(s), u"hello");
  EXPECT_EQ(s.GetCapacity(), capacity * 2);

  DString empty;
  wchar_t* none = empty.GetBuffer(-1);
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none[0], 0);
  empty.ReleaseBuffer(-1);
  EXPECT_TRUE(empty.IsEmpty());
}

TEST(DStringBuffer, GetBufferOnASharedRecordLeavesTheOtherHandleIntact) {
  DString a(L"text");
  DString b(a);
  wchar_t* wide = b.GetBuffer(-1);
  EXPECT_EQ(std::wstring(wide), L"text");
  b.ReleaseBuffer(2);
  EXPECT_EQ(Units(b), u"te");
  EXPECT_EQ(Units(a), u"text");
  b.ReleaseBuffer(0);
  EXPECT_TRUE(b.IsEmpty());
}

TEST(DStringHash, HashIsCachedAndSampledOnLongText) {
  struct Case {
    std::u16string text;
    unsigned int hash;
  } cases[] = {
      {u"", 0},  // the shared empty record holds hash 0 with the cache valid
      {u"a", 97},
      {u"ab", 97 * 37 + 98},
  };
  for (auto const& c : cases) EXPECT_EQ(FromUnits(c.text).HashFunc(), c.hash);

  std::u16string longText(1000, u'x');
  longText[15] = u'y';  // step is 1000/64 = 15: index 15 is sampled
  std::u16string otherText(1000, u'x');
  EXPECT_NE(FromUnits(longText).HashFunc(), FromUnits(otherText).HashFunc());
  longText[15] = u'x';
  longText[16] = u'y';  // index 16 is not sampled
  EXPECT_EQ(FromUnits(longText).HashFunc(), FromUnits(otherText).HashFunc());

  DString shared(L"abc");
  DString copy(shared);
  EXPECT_EQ(copy.HashFunc(), shared.HashFunc());
  DString privateEmpty(L"x");
  privateEmpty = L"";
  EXPECT_EQ(privateEmpty.HashFunc(), 1u);  // accumulator 0 gives 1
}

TEST(DStringConcurrency, CopiesOnManyThreadsKeepTheCountExact) {
  DString shared(L"a text shared by every thread");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([shared] {
      for (int i = 0; i < 10000; ++i) {
        DString copy(shared);
        DString other = copy;
        other.Append(L'x');
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(shared._GetRecord()->refCount, 1);
  EXPECT_EQ(Units(shared), u"a text shared by every thread");
}

}  // namespace
