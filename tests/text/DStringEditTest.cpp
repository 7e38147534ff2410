#include <gtest/gtest.h>

#include <string>

#include "DString.h"
#include "DStrings.h"
#include "support/TestText.h"

namespace {

TEST(DStringSearch, ForwardSearchRules) {
  struct Case {
    wchar_t const *text, *sub;
    int start, expected;
  } cases[] = {
      {L"abcabc", L"bc", 0, 1}, {L"abcabc", L"bc", 2, 4}, {L"abcabc", L"bc", 5, -1},
      {L"abc", L"", 0, -1},     {L"abc", L"abcd", 0, -1}, {L"abc", L"c", 3, -1},
      {L"abc", L"c", -1, -1},   {L"", L"", 0, -1},        {L"aaa", L"aa", 1, 1},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(DString(c.text).SearchSubString(DString(c.sub), c.start), c.expected) << c.text << " " << c.sub;
  }
}

TEST(DStringSearch, BackwardSearchCountsFromTheEnd) {
  struct Case {
    wchar_t const *text, *sub;
    int offset, expected;
  } cases[] = {
      {L"a/b/c", L"/", 0, 3}, {L"a/b/c", L"/", 2, 1}, {L"abab", L"ab", 0, 2},  {L"abab", L"ab", 1, 0},
      {L"abc", L"c", 3, -1},  {L"abc", L"", 0, -1},   {L"abc", L"abc", 1, -1}, {L"abc", L"a", -1, -1},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(DString(c.text).SearchSubStringBackward(DString(c.sub), c.offset), c.expected)
        << c.text << " " << c.sub << " " << c.offset;
  }
}

TEST(DStringSplit, SplitKeepsEmptyPieces) {
  struct Case {
    wchar_t const *text, *separator;
    std::vector<std::wstring> pieces;
  } cases[] = {
      {L"a;b;", L";", {L"a", L"b", L""}},
      {L"", L";", {L""}},
      {L"abc", L"", {L"abc"}},
      {L";;", L";", {L"", L"", L""}},
      {L"/1/0data/", L"/", {L"", L"1", L"0data", L""}},
      {L"a::b", L"::", {L"a", L"b"}},
      {L"a:::b", L"::", {L"a", L":b"}},
  };
  for (auto const& c : cases) {
    DStrings result;
    result.PutBack(DString(L"stale"));
    DString(c.text).Split(DString(c.separator), result);
    ASSERT_EQ(result.GetLength(), static_cast<int>(c.pieces.size())) << c.text;
    for (int i = 0; i < result.GetLength(); ++i) EXPECT_EQ(W(*result.GetAsPtr(i)), c.pieces[i]) << c.text;
  }
}

TEST(DStringReplace, ReplaceAllNeverRescansTheReplacement) {
  struct Case {
    wchar_t const *text, *from, *to, *expected;
    int count;
  } cases[] = {
      {L"a.b.c", L".", L"..", L"a..b..c", 2}, {L"aaaa", L"aa", L"b", L"bb", 2},
      {L"abc", L"abc", L"", L"", 1},          {L"abab", L"ab", L"", L"", 2},
      {L"abc", L"x", L"y", L"abc", 0},        {L"abc", L"", L"y", L"abc", 0},
      {L"ab", L"abc", L"y", L"ab", 0},        {L"&<&", L"&", L"&amp;", L"&amp;<&amp;", 2},
  };
  for (auto const& c : cases) {
    DString s(c.text);
    EXPECT_EQ(s.ReplaceAll(DString(c.from), DString(c.to)), c.count) << c.text;
    EXPECT_EQ(W(s), c.expected) << c.text;
  }
}

TEST(DStringReplace, RangeEditsAndTheirRefusals) {
  DString s(L"abcdef");
  EXPECT_EQ(s.ReplaceRange(1, 3, DString(L"XYZ")), 0);
  EXPECT_EQ(W(s), L"aXYZdef");
  EXPECT_EQ(s.ReplaceRange(0, 8, DString(L"q")), ZYN_E_FAIL);
  EXPECT_EQ(s.ReplaceRange(3, 2, DString(L"q")), ZYN_E_FAIL);
  EXPECT_EQ(s.ReplaceSubString(DString(L"YZ"), DString(L""), 0), 2);
  EXPECT_EQ(W(s), L"aXdef");
  EXPECT_EQ(s.ReplaceSubString(DString(L"a"), DString(L"b"), 1), -1);
  EXPECT_EQ(s.Insert(5, DString(L"!")), 0);
  EXPECT_EQ(W(s), L"aXdef!");
  EXPECT_EQ(s.Insert(0, DString(L"0123"), 1, 3), 0);
  EXPECT_EQ(W(s), L"12aXdef!");
  EXPECT_EQ(s.Insert(0, DString(L"0123"), 2, 2), ZYN_E_FAIL);
  EXPECT_EQ(s.Insert(99, DString(L"0123"), 0, 1), ZYN_E_FAIL);
  EXPECT_EQ(s.Remove(2, 100), 0);
  EXPECT_EQ(W(s), L"12");
  EXPECT_EQ(s.Remove(2, 1), 0);
  EXPECT_EQ(W(s), L"12");

  DString empty;
  EXPECT_EQ(empty.Insert(0, DString()), ZYN_E_FAIL);

  DString shared(L"keep me");
  DString copy(shared);
  copy.ReplaceRange(0, 5, DString(L"-"));
  EXPECT_EQ(W(shared), L"keep me");
  EXPECT_EQ(W(copy), L"-me");
}

TEST(DStringNumbers, FormattingAndParsing) {
  EXPECT_EQ(W(DString::FromNum(42, "%d")), L"42");
  EXPECT_EQ(W(DString::FromNum(-7LL, "%lld")), L"-7");
  EXPECT_EQ(W(DString::FromNum(1234567890123LL, "%lld")), L"1234567890123");
  EXPECT_EQ(W(DString::FromNum(1.5, "%.2f")), L"1.50");
  EXPECT_EQ(W(DString::FromNum(1, "")), L"Error_BadNum");

  DString kept(L"kept");
  EXPECT_EQ(kept.BuildFromNum(3, ""), ZYN_E_FAIL);
  EXPECT_EQ(W(kept), L"kept");

  struct Case {
    wchar_t const* text;
    int result;
    int value;
  } cases[] = {
      {L"12x", 0, 12}, {L"", ZYN_E_FAIL, 0},        {L"x1", ZYN_E_FAIL, 0},
      {L"-5", 0, -5},  {L"\u00e91", ZYN_E_FAIL, 0}, {L" 7", 0, 7},
  };
  for (auto const& c : cases) {
    int value = 99;
    EXPECT_EQ(DString(c.text).ConvertToNum(value, "%d"), c.result) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
  }
  long long big = 0;
  EXPECT_EQ(DString(L"1700000000123").ConvertToNum(big, "%lld"), 0);
  EXPECT_EQ(big, 1700000000123LL);
}

}  // namespace
