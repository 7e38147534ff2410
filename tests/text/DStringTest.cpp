#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "DString.h"
#include "support/TestText.h"

namespace {

// Each case edits texts through the value interface and shows every handle it touched.
TEST(DStringValue, EditsGiveTheirTextAndLeaveOtherHandlesAlone) {
  struct Case {
    char const* name;
    DString (*run)();
    std::u16string expected;
  } const cases[] = {
      {"above the BMP: the low unit", [] { return DString(L"\U0001F600"); }, u"\uF600"},
      {"copy on write",
       [] {
         DString a(L"shared"), b(a), c(a);
         b.Append(L'!');
         c.ReplaceAll(DString(L"a"), DString(L"A"));
         c.Remove(0, 1);
         return a + L"|" + b + L"|" + c;
       },
       u"shared|shared!|hAred"},
      {"null texts are empty",
       [] {
         DString s(L"abc");
         s = static_cast<wchar_t const*>(nullptr);
         return s + DString(static_cast<wchar_t const*>(nullptr));
       },
       u""},
      {"self assignment, append and insert",
       [] {
         DString s(L"ab");
         DString& alias = s;
         s = alias;
         s.Append(s);
         DString once = s;
         s.Append(s, s, s);
         s.Insert(1, s);
         return once + L"|" + s;
       },
       u"abab|aababababababababbababababababab"},
      {"character 0 appends nothing",
       [] {
         DString s(L"a");
         s.Append(L'\0');
         s.Append(static_cast<wchar_t>(0x10000));  // cut to 0
         s += static_cast<wchar_t>(0x10041);
         return s;
       },
       u"aA"},
      {"operator + leaves its left operand",
       [] {
         DString left(L"left");
         DString joined = left + L"/" + DString(L"right") + L'!';
         return left + L"|" + joined + L"|" + (L"pre" + left) + (L'<' + left);
       },
       u"left|left/right!|preleft<left"},
      {"index outside the text gives 0",
       [] {
         DString s(L"ab");
         return DString(L"") + s[0] + static_cast<wchar_t>(L'0' + s[2]) + static_cast<wchar_t>(L'0' + s[-1]);
       },
       u"a00"},
      {"buffer of a shared record",
       [] {
         DString a(L"text"), b(a);
         DString seen(b.GetBuffer(-1));
         b.ReleaseBuffer(2);
         return seen + L"|" + a + L"|" + b;
       },
       u"text|text|te"},
      {"buffer kept whole, and of the empty text",
       [] {
         DString s(L"hello"), empty;
         DString seen(s.GetBuffer(-1));
         s.ReleaseBuffer(-1);
         wchar_t* none = empty.GetBuffer(-1);
         DString mark(none != nullptr && none[0] == 0 ? L"|" : L"|bad");
         empty.ReleaseBuffer(-1);
         return seen + L"|" + s + mark + empty;
       },
       u"hello|hello|"},
  };
  for (auto const& c : cases) EXPECT_EQ(U16(c.run()), c.expected) << c.name;
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

TEST(DStringCompare, EqualityFollowsTheLowByteRuleForDifferentLengths) {
  struct Case {
    std::u16string a, b;
    bool equal;
  } cases[] = {
      {u"a", u"ab", false},       {u"ab", u"ab", true},
      {u"", u"", true},           {u"a", u"\u0100b", true},  // longer begins with a unit whose low byte is 0
      {u"\u4E00xyz", u"q", true}, {u"ab", u"ac", false},
      {u"", u"a", false},         {u"\u0100", u"\u0200", false},
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
      {u"", u"", 0},        {u"", u"a", -1},       {u"a", u"", 1},    {u"a", u"ab", -1},
      {u"ab", u"a", 1},     {u"abc", u"abd", -1},  {u"b", u"abc", 1}, {u"a", u"\u0100b", -1},
      {u"\uFFFF", u"a", 1}, {u"same", u"same", 0}, {u"A", u"a", -1},
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
  EXPECT_EQ(U16(shared), u"a text shared by every thread");
}

}  // namespace
