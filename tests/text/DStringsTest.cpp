#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "DStrings.h"
#include "support/TestText.h"

namespace {

std::vector<std::wstring> Texts(DStrings const& v) {
  std::vector<std::wstring> out;
  for (int i = 0; i < v.GetLength(); ++i) out.push_back(W(*v.GetAsPtr(i)));
  return out;
}

DStrings Make(std::vector<std::wstring> const& texts) {
  DStrings v;
  for (std::wstring const& t : texts) v.PutBack(DString(t.c_str()));
  return v;
}

using Ws = std::vector<std::wstring>;

}  // namespace

TEST(DStrings, EditingOperationsGiveResultAndContents) {
  struct Case {
    const char* name;
    std::function<int(DStrings&)> op;
    int result;
    Ws after;
  };
  const DStrings pqr = Make({L"p", L"q", L"r"});
  const DString buffer[] = {L"p", L"q"};
  const Case cases[] = {
      {"insert at count appends",
       [](DStrings& v) { return v.Insert(4, DString(L"x")); },
       0,
       {L"a", L"b", L"c", L"d", L"x"}},
      {"insert past count fails",
       [](DStrings& v) { return v.Insert(5, DString(L"x")); },
       ZYN_E_FAIL,
       {L"a", L"b", L"c", L"d"}},
      {"insert at -1 fails",
       [](DStrings& v) { return v.Insert(-1, DString(L"x")); },
       ZYN_E_FAIL,
       {L"a", L"b", L"c", L"d"}},
      {"insert vector", [&](DStrings& v) { return v.Insert(1, pqr); }, 0, {L"a", L"p", L"q", L"r", L"b", L"c", L"d"}},
      {"insert empty vector", [](DStrings& v) { return v.Insert(0, DStrings()); }, 0, {L"a", L"b", L"c", L"d"}},
      {"insert range", [&](DStrings& v) { return v.Insert(1, pqr, 1, 3); }, 0, {L"a", L"q", L"r", L"b", L"c", L"d"}},
      {"insert empty range fails",
       [&](DStrings& v) { return v.Insert(1, pqr, 2, 2); },
       ZYN_E_FAIL,
       {L"a", L"b", L"c", L"d"}},
      {"insert buffer", [&](DStrings& v) { return v.Insert(2, buffer, 2); }, 0, {L"a", L"b", L"p", L"q", L"c", L"d"}},
      {"insert null buffer fails",
       [](DStrings& v) { return v.Insert(0, nullptr, 1); },
       ZYN_E_FAIL,
       {L"a", L"b", L"c", L"d"}},
      {"insert zero count fails",
       [&](DStrings& v) { return v.Insert(0, buffer, 0); },
       ZYN_E_FAIL,
       {L"a", L"b", L"c", L"d"}},
      {"put front", [](DStrings& v) { return v.PutFront(DString(L"x")); }, 0, {L"x", L"a", L"b", L"c", L"d"}},
      {"put back vector", [&](DStrings& v) { return v.PutBack(pqr); }, 0, {L"a", L"b", L"c", L"d", L"p", L"q", L"r"}},
      {"insert itself",
       [](DStrings& v) { return v.Insert(1, v); },
       0,
       {L"a", L"a", L"b", L"c", L"d", L"b", L"c", L"d"}},
      {"put back own element while growing",
       [](DStrings& v) { return v.PutBack(*v.GetAsPtr(1)); },
       0,
       {L"a", L"b", L"c", L"d", L"b"}},
      {"insert own elements while growing",
       [](DStrings& v) { return v.Insert(0, v.GetAsPtr(2), 2); },
       0,
       {L"c", L"d", L"a", L"b", L"c", L"d"}},
      {"remove", [](DStrings& v) { return v.Remove(1); }, 0, {L"a", L"c", L"d"}},
      {"remove at count fails", [](DStrings& v) { return v.Remove(4); }, ZYN_E_FAIL, {L"a", L"b", L"c", L"d"}},
      {"remove range", [](DStrings& v) { return v.RemoveRange(1, 3); }, 0, {L"a", L"d"}},
      {"remove empty range fails",
       [](DStrings& v) { return v.RemoveRange(1, 1); },
       ZYN_E_FAIL,
       {L"a", L"b", L"c", L"d"}},
      {"remove reversed range fails",
       [](DStrings& v) { return v.RemoveRange(3, 1); },
       ZYN_E_FAIL,
       {L"a", L"b", L"c", L"d"}},
      {"remove past count fails",
       [](DStrings& v) { return v.RemoveRange(1, 5); },
       ZYN_E_FAIL,
       {L"a", L"b", L"c", L"d"}},
      {"set", [](DStrings& v) { return v.Set(3, DString(L"z")); }, 0, {L"a", L"b", L"c", L"z"}},
      {"set at count fails", [](DStrings& v) { return v.Set(4, DString(L"z")); }, ZYN_E_FAIL, {L"a", L"b", L"c", L"d"}},
  };
  for (Case const& c : cases) {
    DStrings v(DString(L"a"), DString(L"b"), DString(L"c"), DString(L"d"));
    ASSERT_EQ(4, v.GetCapacity());
    EXPECT_EQ(c.result, c.op(v)) << c.name;
    EXPECT_EQ(c.after, Texts(v)) << c.name;
  }
}

TEST(DStrings, FindUsesStringEqualityFromStart) {
  const DStrings v = Make({L"a", L"b", L"a", L"\x100yz"});
  const struct {
    const wchar_t* value;
    int start, expected;
  } cases[] = {
      {L"a", 0, 0},
      {L"a", 1, 2},
      {L"abc", 0, -1},
      {L"a", 4, -1},
      {L"a", -1, -1},
      // no "c", but a longer text whose first unit has a zero low byte equals any shorter one
      {L"c", 0, 3},
  };
  for (auto const& c : cases) EXPECT_EQ(c.expected, v.Find(DString(c.value), c.start)) << c.start;
  EXPECT_EQ(-1, DStrings().Find(DString(L"a"), 0));
}

TEST(DStrings, GetAndPopFailOutOfRange) {
  DStrings v = Make({L"a", L"b"});
  for (int index : {-1, 2}) {
    DString out(L"keep");
    EXPECT_EQ(ZYN_E_FAIL, v.Get(index, out));
    EXPECT_EQ(L"keep", W(out));
    EXPECT_EQ(nullptr, v.GetAsPtr(index));
  }
  DString out;
  EXPECT_EQ(0, v.PopFront(out));
  EXPECT_EQ(L"a", W(out));
  EXPECT_EQ(0, v.Get(0, out));
  EXPECT_EQ(L"b", W(out));
  EXPECT_EQ(0, v.PopBack(out));
  EXPECT_TRUE(v.IsEmpty());
  EXPECT_EQ(L"b", W(out));
  EXPECT_EQ(ZYN_E_FAIL, v.PopBack(out));
  EXPECT_EQ(ZYN_E_FAIL, v.PopFront(out));
}

TEST(DStrings, CopiesAreEqualAndIndependent) {
  DStrings source = Make({L"a", L"b"});
  DStrings copy(source);
  EXPECT_TRUE(copy == source);
  copy.Set(0, DString(L"q"));
  EXPECT_TRUE(copy != source);
  EXPECT_EQ(L"a", W(*source.GetAsPtr(0)));

  DStrings target = Make({L"x", L"y", L"z", L"w", L"v"});
  target = source;
  DStrings& alias = target;
  target = alias;
  EXPECT_EQ(Ws({L"a", L"b"}), Texts(target));
  target.Clear();
  EXPECT_TRUE(target.IsEmpty());

  EXPECT_TRUE(DStrings(source, 1, 1).IsEmpty());
  EXPECT_EQ(Ws{L"b"}, Texts(DStrings(source, 1, 2)));
}

TEST(DStrings, SortOrdersByComparator) {
  const struct {
    Ws input, sorted;
  } cases[] = {
      {{}, {}},
      {{L"b"}, {L"b"}},
      {{L"b", L"a", L"", L"ab", L"B", L"a"}, {L"", L"B", L"a", L"a", L"ab", L"b"}},
      {{L"z/y", L"z", L"z/x/w", L"a/z"}, {L"a/z", L"z", L"z/x/w", L"z/y"}},
  };
  for (auto const& c : cases) {
    DStrings v = Make(c.input);
    EXPECT_EQ(0, v.Sort(DString::Compare));
    EXPECT_EQ(c.sorted, Texts(v));
  }
}

TEST(DStrings, CursorStepsFollowIndexRules) {
  enum Op { kNext, kPrev };
  const struct {
    int size, start;
    Op op;
    int result, index;
  } cases[] = {
      {3, -1, kNext, 0, 0},           {3, 2, kNext, 0, 3},          {3, 3, kNext, ZYN_E_FAIL, 3},
      {3, -2, kNext, ZYN_E_FAIL, -2}, {3, 0, kPrev, 0, -1},         {3, 3, kPrev, 0, 2},
      {3, -1, kPrev, ZYN_E_FAIL, -1}, {3, 4, kPrev, ZYN_E_FAIL, 4}, {0, -1, kNext, 0, 0},
      {0, 0, kNext, ZYN_E_FAIL, 0},   {0, 0, kPrev, 0, -1},
  };
  for (auto const& c : cases) {
    DStrings v = Make(Ws(static_cast<size_t>(c.size), L"s"));
    DStrings::const_iterator it(v, c.start);
    EXPECT_EQ(c.result, c.op == kNext ? it.Next() : it.Prev()) << c.size << "/" << c.start;
    EXPECT_EQ(c.index, it.GetIndex()) << c.size << "/" << c.start;
  }
  DStrings::iterator unowned;
  EXPECT_EQ(-2, unowned.GetIndex());
  EXPECT_EQ(ZYN_E_FAIL, unowned.Next());
  EXPECT_EQ(ZYN_E_FAIL, unowned.Prev());
  EXPECT_EQ(ZYN_E_FAIL, unowned.Insert(DString(L"x")));
  EXPECT_TRUE(unowned.IsEnd());
}

TEST(DStrings, CursorWalksEditsAndRemovals) {
  DStrings v = Make({L"a", L"b", L"c"});
  std::wstring walked;
  DStrings::const_iterator it = v.cBegin();
  while (DString const* s = it.GetAsConstPtrGoToNext()) walked += W(*s);
  DStrings::iterator back = v.Last();
  while (DString* s = back.GetAsPtrGoToPrev()) walked += W(*s);
  EXPECT_EQ(L"abccba", walked);
  EXPECT_EQ(3, it.GetIndex());
  EXPECT_EQ(-1, back.GetIndex());
  EXPECT_TRUE(v.cBegin().IsBegin() && v.cLast().IsLast() && !v.cLast().IsBegin() && it.IsEnd());
  EXPECT_EQ(-2, DStrings().cLast().GetIndex());

  DStrings::iterator at(v, 1);
  EXPECT_EQ(0, at.Insert(DString(L"x")));
  EXPECT_EQ(0, at.Insert(Make({L"y", L"z"})));
  EXPECT_EQ(0, at.Set(DString(L"B")));
  EXPECT_EQ(Ws({L"a", L"x", L"y", L"z", L"B", L"c"}), Texts(v));
  EXPECT_EQ(ZYN_E_FAIL, DStrings::iterator(v, 6).Set(DString(L"q")));

  // Removing while walking forward skips the element that moved up; backward empties.
  for (DStrings::iterator walk = v.Begin(); !walk.IsEnd();) walk.RemoveGoToNext();
  EXPECT_EQ(Ws({L"x", L"z", L"c"}), Texts(v));
  for (DStrings::iterator walk = v.Last(); !walk.IsEnd();) walk.RemoveGoToPrev();
  EXPECT_TRUE(v.IsEmpty());
  DStrings::iterator gone(v, 0);
  EXPECT_EQ(ZYN_E_FAIL, gone.RemoveGoToNext());
  EXPECT_EQ(0, gone.GetIndex());
}
