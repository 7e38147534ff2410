#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "DString.h"
#include "support/TestText.h"

namespace {

TEST(DStringValue, WideCharactersAboveBmpAreCutToTheirLowUnit) {
  DString s(L"\U0001F600");
  ASSERT_EQ(s.Length(), 1);
  EXPECT_EQ(s[0], 0xF600);
}

TEST(DStringValue, WriteThroughOneHandleIsNeverSeenThroughAnother) {
  DString a(L"shared");
  DString b(a);
  b.Append(L'!');
  EXPECT_EQ(U16(a), u"shared");
  EXPECT_EQ(U16(b), u"shared!");

  DString c(a);
  c.ReplaceAll(DString(L"a"), DString(L"A"));
  c.Remove(0, 1);
  EXPECT_EQ(U16(a), u"shared");
  EXPECT_EQ(U16(c), u"hAred");
}

TEST(DStringValue, AssignmentsAndSelfAppendKeepTheText) {
  DString s(L"abc");
  s = static_cast<wchar_t const*>(nullptr);
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_TRUE(DString(static_cast<wchar_t const*>(nullptr)).IsEmpty());
  s = L"ab";
  DString& alias = s;
  s = alias;
  EXPECT_EQ(U16(s), u"ab");
  s.Append(s);
  EXPECT_EQ(U16(s), u"abab");
  s.Append(s, s, s);
  EXPECT_EQ(U16(s), u"abababababababab");
  s.Insert(1, s);
  EXPECT_EQ(s.Length(), 32);
}

TEST(DStringValue, AppendOfCharacterZeroChangesNothing) {
  DString s(L"a");
  s.Append(L'\0');
  s.Append(static_cast<wchar_t>(0x10000));  // cut to 0
  EXPECT_EQ(U16(s), u"a");
  s += static_cast<wchar_t>(0x10041);
  EXPECT_EQ(U16(s), u"aA");
}

TEST(DStringValue, OperatorPlusLeavesTheLeftOperandAlone) {
  DString left(L"left");
  DString joined = left + L"/" + DString(L"right") + L'!';
  EXPECT_EQ(U16(left), u"left");
  EXPECT_EQ(U16(joined), u"left/right!");
  EXPECT_EQ(U16(L"pre" + left), u"preleft");
  EXPECT_EQ(U16(L'<' + left), u"<left");
}

TEST(DStringValue, RangeConstructionRejectsBadRanges) {
  DString s(L"abcdef");
  struct Case {
    int first, last;
    std::u16string expected;
  } cases[] = {{0, 6, u"abcdef"}, {2, 4, u"cd"}, {3, 3, u""}, {-1, 2, u""}, {4, 2, u""}, {0, 7, u""}};
  for (auto const& c : cases) {
    EXPECT_EQ(U16(DString(s, c.first, c.last)), c.expected) << c.first << "," << c.last;
    EXPECT_EQ(U16(s.SubStringD(c.first, c.last)), c.expected) << c.first << "," << c.last;
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
    DString a = FromU16(c.a), b = FromU16(c.b);
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
    DString a = FromU16(c.a), b = FromU16(c.b);
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

TEST(DStringBuffer, GetAndReleaseBufferKeepTheText) {
  DString s(L"hello");
  wchar_t* wide = s.GetBuffer(-1);
  ASSERT_NE(wide, nullptr);
  EXPECT_EQ(std::wstring(wide), L"hello");
  s.ReleaseBuffer(-1);
  EXPECT_EQ(U16(s), u"hello");

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
  EXPECT_EQ(U16(b), u"te");
  EXPECT_EQ(U16(a), u"text");
  b.ReleaseBuffer(0);
  EXPECT_TRUE(b.IsEmpty());
}

TEST(DStringHash, HashValuesAreStableAndSharedByCopies) {
  struct Case {
    std::u16string text;
    unsigned int hash;
  } cases[] = {
      {u"", 0},  // the shared empty record holds hash 0 with the cache valid
      {u"a", 97},
      {u"ab", 97 * 37 + 98},
  };
  for (auto const& c : cases) EXPECT_EQ(FromU16(c.text).HashFunc(), c.hash);

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
  EXPECT_EQ(U16(shared), u"a text shared by every thread");
}

}  // namespace
