// The file-by-file comparison on trees built here: each finding's words, their order,
// and the tolerance for clocks shifted together.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZYNAdmXmlElement.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "support/OptionsForTests.h"
#include "support/ZYNTestTempTree.h"

typedef ZYNInsMediaCheckerServices Services;

namespace {

const long long T = 1700000000;

struct F {
  std::string path;
  long long time;
  std::string hash = "h";
  std::string timeText = "";  // replaces the number where not empty
};
typedef std::vector<std::vector<F>> Volumes;

ZYNAdmXmlElement Media(Volumes const& volumes) {
  ZYNAdmXmlElement media(DString(L"Media"));
  ZYNAdmXmlElement cds(DString(L"CDs"));
  media.AddChild(cds);
  for (auto const& files : volumes) {
    ZYNAdmXmlElement cd(DString(L"CD"));
    for (F const& f : files) {
      ZYNAdmXmlElement file(DString(L"File"));
      file.SetAttributeValue(DString(L"hash"), ZYNTestD(f.hash));
      file.SetAttributeValue(DString(L"path"), ZYNTestD(f.path));
      file.SetAttributeValue(DString(L"timestamp"),
                             f.timeText.empty() ? DString::FromNum(f.time, "%lld") : ZYNTestD(f.timeText));
      cd.AddChild(file);
    }
    cds.AddChild(cd);
  }
  return media;
}

std::string Compare(ZYNAdmXmlElement ref, ZYNAdmXmlElement cur, std::vector<std::string> const& cds = {}) {
  DStrings toCheck;
  for (auto const& cd : cds) toCheck.PutBack(ZYNTestD(cd));
  ZYNInsMediaCheckerOptionsForTests::SetCDsToCheck(toCheck);
  DString errors;
  Services::GetErrors(ref, cur, errors);
  ZYNInsMediaCheckerOptionsForTests::SetCDsToCheck(DStrings());
  return ZYNTestS(errors);
}

std::string Line(int cd, std::string const& path, std::string const& words) {
  return "[CD" + std::to_string(cd) + "] \"" + path + "\" " + words + "\n";
}
std::string Missing(int cd, std::string const& path) { return Line(cd, path, "File cannot be found on media"); }
std::string Content(int cd, std::string const& path, std::string const& found) {
  return Line(cd, path, "File's content corrupted " + found + " retrieved h expected");
}
std::string Time(int cd, std::string const& path, long long found, long long expected = T) {
  return Line(
      cd, path,
      "File's timedata corrupted " + std::to_string(found) + " retrieved " + std::to_string(expected) + " expected");
}
std::string Unexpected(int cd, std::string const& path) { return Line(cd, path, "Unexpected file on this media"); }

// Unmoved files, so that a single moved file can't set the shift by itself.
std::vector<F> Steady(std::vector<F> more, std::string const& prefix = "") {
  for (auto const& name : {"/s1", "/s2", "/s3"}) more.insert(more.begin(), F{prefix + name, T});
  return more;
}
std::vector<F> Moved(std::vector<long long> const& deltas) {
  std::vector<F> files;
  for (size_t i = 0; i < deltas.size(); ++i) files.push_back({"/" + std::to_string(i), T + deltas[i]});
  return files;
}
// `count` unmoved files, the last renamed.
std::vector<F> Renamed(size_t count) {
  std::vector<F> files = Moved(std::vector<long long>(count));
  files.back().path = "/x";
  return files;
}

TEST(MediaCompare, WordsEachDifferenceAndJudgesTimesAgainstCommonShifts) {
  const std::vector<F> ab = {{"/a", T}, {"/b", T}};
  const struct {
    char const* name;
    Volumes reference, current;
    std::vector<std::string> cds;
    std::string expected;
  } cases[] = {
      // clang-format off
      {"identical", {ab}, {ab}, {}, ""},
      {"missing", {ab}, {{{"/b", T}}}, {}, Missing(1, "/a")},
      {"content and time", {Steady({{"/a", T}})}, {Steady({{"/a", T + 5, "x"}})}, {}, Content(1, "/a", "x") + Time(1, "/a", T + 5)},
      {"unexpected, and the second of one path", {ab}, {{{"/a", T}, {"/a", T + 9}, {"/b", T}, {"/c", T}}}, {}, Unexpected(1, "/a") + Unexpected(1, "/c")},
      {"all moved by an hour", {Moved({0, 0})}, {Moved({3600, 3600})}, {}, ""},
      {"all moved back by whole hours", {Moved({0, 0, 0})}, {Moved({-7200, -7200, -7201})}, {}, ""},
      {"back by hours, one file further off", {Moved({0, 0, 0, 0})}, {Moved({-7200, -7200, -3600, -7230})}, {}, Time(1, "/3", T - 7230)},
      {"one moved by an hour among unmoved", {Steady({{"/a", T}})}, {Steady({{"/a", T + 3600}})}, {}, ""},
      {"one second off the shift", {Moved({0, 0, 0})}, {Moved({3600, 3600, 3601})}, {}, ""},
      {"a second past the first shift, a second shift beside", {Moved({0, 0, 0, 0, 0, 0})}, {Moved({7200, 7200, 7200, 3600, 3600, 7201})}, {}, ""},
      {"a TOC as old as the second shift", {Steady({{"/TOC", T}, {"/a", T}, {"/b", T}, {"/c", T}})}, {Steady({{"/TOC", T}, {"/a", T + 3600}, {"/b", T + 3600}, {"/c", T}})}, {}, ""},
      {"a lone odd difference is the second shift, a third one isn't", {Moved({0, 0, 0, 0})}, {Moved({3600, 3600, 3602, 3605})}, {}, Time(1, "/3", T + 3605)},
      {"two shifts and their sum", {Moved({0, 0, 0}), Moved({0, 0})}, {Moved({7200, 7200, 10800}), Moved({3600, 3600})}, {}, ""},
      {"a day is no shift", {Moved({0})}, {Moved({86400})}, {}, Time(1, "/0", T + 86400)},
      {"sixty seconds is no shift", {Moved({0})}, {Moved({60})}, {}, Time(1, "/0", T + 60)},
      {"sixty-one seconds is", {Moved({0})}, {Moved({61})}, {}, ""},
      {"a newer TOC at the root", {Steady({{"/TOC", T}})}, {Steady({{"/TOC", T + 50}})}, {}, ""},
      {"an older TOC at the root", {Steady({{"/TOC", T}})}, {Steady({{"/TOC", T - 2}})}, {}, Time(1, "/TOC", T - 2)},
      {"a TOC in a sub-folder", {Steady({{"/d/TOC", T}})}, {Steady({{"/d/TOC", T + 50}})}, {}, Time(1, "/d/TOC", T + 50)},
      {"-cds: true volume numbers, unexpected files by scanned volume", {{{"/a", T}}, {{"/b", T}, {"/c", T}}},
       {{{"/b", T, "x"}, {"/z", T}}}, {"2"}, Content(2, "/b", "x") + Missing(2, "/c") + Unexpected(1, "/z")},
      {"order: per pass, by volume, by reference order", {Steady({{"/1/a", T}, {"/1/b", T}}, "/1"), Steady({{"/2/c", T}}, "/2")},
       {Steady({{"/1/a", T + 5}, {"/1/b", T, "x"}, {"/1/new", T}}, "/1"), Steady({{"/2/new", T}}, "/2")}, {},
       Content(1, "/1/b", "x") + Missing(2, "/2/c") + Time(1, "/1/a", T + 5) + Unexpected(1, "/1/new") + Unexpected(2, "/2/new")},
      {"fewer scanned volumes than referenced", {ab, ab}, {ab}, {}, Missing(2, "/a") + Missing(2, "/b")},
      {"damaged timestamps wrap instead of overflowing", {{{"/a", 0, "h", "9223372036854775807"}, {"/b", 0, "h", "abc"}}},
       {{{"/a", 0, "h", "-9223372036854775807"}, {"/b", 0, "h", "12"}}}, {},
       Line(1, "/a", "File's timedata corrupted -9223372036854775807 retrieved 9223372036854775807 expected") +
       Line(1, "/b", "File's timedata corrupted 12 retrieved abc expected")},
      {"the lowest timestamp of a file gone", {{{"/a", 0, "h", "-9223372036854775808"}}}, {{}}, {}, Missing(1, "/a")},
      {"timestamps sscanf reads but plain digits don't spell", {{{"/a", 0, "h", " +1700000000"}, {"/b", 0, "h", "00000000001700000005"}}},
       {{{"/a", T}, {"/b", T + 5}}}, {}, ""},
      {"a path the reference lists twice finds one file", {{{"/a", T}, {"/a", T}}}, {{{"/a", T}}}, {},
       Line(1, "/a", "File's timedata corrupted  retrieved " + std::to_string(T) + " expected")},
      {"hashes compared whole", {{{"/a", T, "hh"}, {"/b", T, "H"}}}, {{{"/a", T}, {"/b", T}}}, {},
       Line(1, "/a", "File's content corrupted h retrieved hh expected") + Line(1, "/b", "File's content corrupted h retrieved H expected")},
      {"a root TXT is no TOC", {Steady({{"/TOC", T}, {"/TXT", T}})}, {Steady({{"/TOC", T}, {"/TXT", T + 50}})}, {}, Time(1, "/TXT", T + 50)},
      {"a full power of two of files, one renamed", {Moved(std::vector<long long>(16))}, {Renamed(16)}, {}, Missing(1, "/15") + Unexpected(1, "/x")},
      {"twice as many", {Moved(std::vector<long long>(32))}, {Renamed(32)}, {}, Missing(1, "/31") + Unexpected(1, "/x")},
      // clang-format on
  };
  for (auto const& c : cases) EXPECT_EQ(Compare(Media(c.reference), Media(c.current), c.cds), c.expected) << c.name;
  ZYNAdmXmlElement bare(DString(L"Media"));
  EXPECT_EQ(Compare(bare, bare.Clone(1)), "") << "trees without CDs";
}

int CountFiles(ZYNAdmXmlElement const& media) {
  int count = 0;
  ZYNAdmXmlElement cds;
  Services::GetFirstElement(media, DString(L"CDs"), cds);
  for (ZYNAdmXmlElement const& cd : cds.Children()) {
    for (ZYNAdmXmlElement const& file : cd.Children()) count += file.HasName(DString(L"File")) ? 1 : 0;
  }
  return count;
}

TEST(MediaCompare, ComparedFilesLeaveBothTreesAndUnexpectedOnesStay) {
  ZYNAdmXmlElement ref = Media({{{"/a", T}, {"/gone", T}, {"/b", T + 9}}});
  ZYNAdmXmlElement cur = Media({{{"/x", T}, {"/a", T}, {"/b", T}, {"/y", T}}});
  EXPECT_EQ(Compare(ref, cur),
            Missing(1, "/gone") + Time(1, "/b", T, T + 9) + Unexpected(1, "/x") + Unexpected(1, "/y"));
  EXPECT_EQ(CountFiles(ref), 0);
  EXPECT_EQ(CountFiles(cur), 2);
}

// A search from the first file of the volume for each file would take minutes here.
TEST(MediaCompare, LargeVolumesWithEveryFileDifferentStayLinear) {
  std::vector<F> reference, current;
  for (int i = 0; i < 60000; ++i) {
    reference.push_back({"/f" + std::to_string(i), T + i});
    current.push_back({"/f" + std::to_string(i), T + i + 2 * (i % 2), i % 3 == 0 ? "x" : "h"});
  }
  current.push_back({"/new", T});
  std::string errors = Compare(Media({reference}), Media({current}));
  EXPECT_EQ(errors.rfind(Content(1, "/f0", "x"), 0), 0u);
  EXPECT_NE(errors.find(Time(1, "/f1", T + 3, T + 1)), std::string::npos);
  EXPECT_EQ(errors.size() - errors.rfind(Unexpected(1, "/new")), Unexpected(1, "/new").size());
}

}  // namespace
