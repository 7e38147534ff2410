#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ZYNResult.h"
#include "ZYNSysCodePage.h"
#include "ZYNSysIConvTSWrap.h"

namespace {

// Standard error of the calls made while it lives, through a temporary file.
class StderrCapture {
 public:
  StderrCapture() : _file(std::tmpfile()), _saved(dup(2)) {
    std::fflush(stderr);
    dup2(fileno(_file), 2);
  }
  ~StderrCapture() { Finish(); }
  std::string Finish() {
    if (_saved < 0) return _text;
    std::fflush(stderr);
    dup2(_saved, 2);
    close(_saved);
    _saved = -1;
    std::rewind(_file);
    char buffer[512];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, _file)) > 0) _text.append(buffer, got);
    std::fclose(_file);
    return _text;
  }

 private:
  FILE* _file;
  int _saved;
  std::string _text;
};

std::u16string ToUnits(ZYNSysCodePage const& converter, std::string const& bytes) {
  std::vector<unsigned short> out(bytes.size() + 1);
  int count = 0;
  converter.ConvertMBCSToUCS2(bytes.data(), static_cast<int>(bytes.size()), out.data(), &count);
  return std::u16string(out.begin(), out.begin() + count);
}

std::string ToBytes(ZYNSysCodePage const& converter, std::u16string const& units) {
  std::vector<char> out(units.size() * 4 + 1);
  int count = 0;
  converter.ConvertUCS2ToMBCS(reinterpret_cast<unsigned short const*>(units.data()), static_cast<int>(units.size()),
                              out.data(), &count);
  return std::string(out.data(), static_cast<size_t>(count));
}

TEST(ZYNSysCodePage, BytesBecomeUnitsAndComeBackTheSame) {
  struct Case {
    char const* codePage;
    char const* bytes;  // null: units to bytes only
    std::u16string units;
    std::string back;
  } cases[] = {
      {"UTF-8", "caf\xC3\xA9", u"caf\u00e9", "caf\xC3\xA9"},
      {"UTF-8", "\xE4\xB8\x80", u"\u4e00", "\xE4\xB8\x80"},
      {"UTF-8", "caf\xE9s", u"caf\xdce9s", "caf\xE9s"},                                      // a Latin-1 byte
      {"UTF-8", "a\xF0\x9F\x98\x80z", u"a\xdcf0\xdc9f\xdc98\xdc80z", "a\xF0\x9F\x98\x80z"},  // beyond UCS-2
      {"UTF-8", "\xED\xB2\x80", u"\xdced\xdcb2\xdc80", "\xED\xB2\x80"},                      // an encoded surrogate
      {"UTF-8", nullptr, u"\xd800x", "?x"},  // a surrogate outside the escape range
      {"EUC-JP", "\xA4\xA2", u"\u3042", "\xA4\xA2"},
      {"N/A", "\xFF\x80", u"\u00ff\u0080", "\xFF\x80"},
      {"N/A", nullptr, u"\u0141", "A"},  // identity keeps the low byte
  };
  for (auto const& c : cases) {
    ZYNSysCodePage converter(c.codePage);
    if (c.bytes != nullptr) {
      EXPECT_EQ(ToUnits(converter, c.bytes), c.units) << c.codePage << " " << c.bytes;
    }
    EXPECT_EQ(ToBytes(converter, c.units), c.back) << c.codePage << " " << c.back;
  }
}

TEST(ZYNSysCodePage, TruncatedInputIsReportedAndItsByteKept) {
  ZYNSysCodePage converter("UTF-8");
  StderrCapture capture;
  EXPECT_EQ(ToUnits(converter, "caf\xE9"), u"caf\xdce9");
  EXPECT_EQ(capture.Finish(), "iconv EINVAL error: input buffer was truncated.\n");
}

TEST(ZYNSysCodePage, MissingOrUnknownCodePageConvertsByIdentity) {
  struct Case {
    char const* codePage;
    bool valid;
    char const* perThreadMessage;
  } cases[] = {
      {"N/A", false, ""},
      {"", false, ""},
      {"NO-SUCH-CODESET", true,
       "[ZYNSysIConvTSWrap] failed to initialize converters for conversion NO-SUCH-CODESET <-> UCS-2-INTERNAL\n"},
  };
  for (auto const& c : cases) {
    StderrCapture capture;
    ZYNSysCodePage converter(c.codePage);
    EXPECT_EQ(converter.IsValid(), c.valid) << c.codePage;
    EXPECT_STREQ(converter.GetCodePageName(), c.codePage);
    EXPECT_EQ(ToUnits(converter, "\xE9"), u"\u00e9") << c.codePage;
    EXPECT_EQ(ToUnits(converter, "\xE9"), u"\u00e9") << c.codePage;  // this thread doesn't try again
    std::thread other([&converter] { ToUnits(converter, "x"); });
    other.join();
    EXPECT_EQ(capture.Finish(), std::string(c.perThreadMessage) + c.perThreadMessage) << c.codePage;
  }
}

TEST(ZYNSysIConvTSWrap, OpenGivesOneHandlePerPairAndRefusesBadOnes) {
  IConvDesc_t forward = 1, again = 0, other = 0;
  ASSERT_EQ(ZYNSysIConvTSWrap::Open("PAIR-TO", "PAIR-FROM", forward), ZYN_S_OK);
  ASSERT_EQ(ZYNSysIConvTSWrap::Open("PAIR-TO", "PAIR-FROM", again), ZYN_S_OK);
  ASSERT_EQ(ZYNSysIConvTSWrap::Open("PAIR-OTHER", "PAIR-FROM", other), ZYN_S_OK);
  EXPECT_EQ(again, forward);
  EXPECT_NE(other, forward);
  EXPECT_EQ(ZYNSysIConvTSWrap::Open(nullptr, "PAIR-FROM", other), ZYN_E_FAIL);

  StderrCapture capture;
  EXPECT_EQ(ZYNSysIConvTSWrap::GetIConvDesc(0xFFFFFFF0u), reinterpret_cast<iconv_t>(-1));
  EXPECT_EQ(capture.Finish(), "[ZYNSysIConvTSWrap] The input IConvDesc_t handle is invalid.\n");
}

TEST(ZYNSysIConvTSWrap, EachThreadConvertsWithItsOwnDescriptors) {
  ZYNSysCodePage utf8("UTF-8"), latin1("ISO8859-1"), eucJp("EUC-JP");
  IConvDesc_t handle = 0;
  ASSERT_EQ(ZYNSysIConvTSWrap::Open(ZYN_ICONV_PIVOT, "UTF-8", handle), ZYN_S_OK);
  const int kThreads = 4;
  std::vector<iconv_t> descriptors(kThreads + 1);
  std::vector<int> failures(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      iconv_t first = ZYNSysIConvTSWrap::GetIConvDesc(handle);
      // Several pairs in turn: the thread's list reorders itself at each use.
      for (int i = 0; i < 200; ++i) {
        if (ToUnits(utf8, "caf\xC3\xA9") != u"caf\u00e9") ++failures[t];
        if (ToUnits(latin1, "\xE9") != u"\u00e9") ++failures[t];
        if (ToBytes(eucJp, u"\u3042") != "\xA4\xA2") ++failures[t];
      }
      descriptors[t] = ZYNSysIConvTSWrap::GetIConvDesc(handle) == first ? first : nullptr;
    });
  }
  for (auto& thread : threads) thread.join();
  descriptors[kThreads] = ZYNSysIConvTSWrap::GetIConvDesc(handle);
  std::set<iconv_t> distinct(descriptors.begin(), descriptors.end());
  EXPECT_EQ(distinct.size(), static_cast<size_t>(kThreads + 1));
  EXPECT_EQ(distinct.count(nullptr), 0u);
  EXPECT_EQ(distinct.count(reinterpret_cast<iconv_t>(-1)), 0u);
  EXPECT_EQ(failures, std::vector<int>(kThreads, 0));
}

TEST(ZYNSysCodePage, EnvironmentConverterIsMadeOnceForRacingThreads) {
  std::vector<ZYNSysCodePage*> seen(4, nullptr);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < seen.size(); ++t) {
    threads.emplace_back([&seen, t] { seen[t] = ZYNSysCodePage::GetEnvConverter(); });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_NE(seen[0], nullptr);
  for (ZYNSysCodePage* converter : seen) EXPECT_EQ(converter, seen[0]);
  EXPECT_EQ(ZYNSysCodePage::GetEnvCodePageConv(), seen[0]);
}

TEST(ZYNSysCodePage, CanConvertTellsWhetherTextSurvivesTheRoundTrip) {
  struct Case {
    char const* codePage;
    std::string bytes;
    std::u16string units;
    int bytesResult;
    int unitsResult;
  } cases[] = {
      {"UTF-8", "caf\xC3\xA9", u"\u4e00\u00e9", 0, 0},
      {"UTF-8", "ab\xFFx", u"\xd800", -1, -1},
      {"UTF-8", "\xE4\xB8\x80?", u"\xdce9?", 0, 0},  // an escape unit gives its byte back
      {"ISO8859-1", "\xFF\x80", u"a\u4e00", 0, -1},
      {"ISO8859-1", "?", u"?", 0, 0},
      {"N/A", "\xE9", u"\u0141", 0, -1},
  };
  for (auto const& c : cases) {
    ZYNSysCodePage converter(c.codePage);
    EXPECT_EQ(converter.CanConvertMBCSToUCS2(c.bytes.data(), c.bytes.size()), c.bytesResult) << c.codePage << c.bytes;
    EXPECT_EQ(converter.CanConvertUCS2ToMBCS(reinterpret_cast<unsigned short const*>(c.units.data()),
                                             static_cast<int>(c.units.size())),
              c.unitsResult)
        << c.codePage << c.bytes;
  }
}

}  // namespace

namespace {

// The Latin-1 converter works without iconv; every byte and every unit must come out as
// the iconv road gives them (this is the table's Latin-1 row): bytes as units of the same value, escapes back to their
// byte, any other unit above 0xFF as '?'.
TEST(ZYNSysCodePage, Latin1GivesWhatIconvGivesForEveryByteAndUnit) {
  ZYNSysCodePage latin1("ISO8859-1");
  ASSERT_TRUE(latin1.IsValid());
  std::string bytes;
  for (int b = 1; b < 256; ++b) bytes += static_cast<char>(b);
  std::vector<unsigned short> units(bytes.size() + 1, 0);
  int count = 0;
  latin1.ConvertMBCSToUCS2(bytes.data(), static_cast<int>(bytes.size()), units.data(), &count);
  ASSERT_EQ(count, 255);
  for (int b = 1; b < 256; ++b) EXPECT_EQ(units[static_cast<size_t>(b - 1)], b);

  std::vector<unsigned short> all(65535);
  for (int u = 1; u < 65536; ++u) all[static_cast<size_t>(u - 1)] = static_cast<unsigned short>(u);
  std::vector<char> out(all.size() * 4 + 1);
  latin1.ConvertUCS2ToMBCS(all.data(), static_cast<int>(all.size()), out.data(), &count);
  ASSERT_EQ(count, 65535);
  int wrong = 0;
  for (int u = 1; u < 65536; ++u) {
    unsigned char expected = u <= 0xFF ? static_cast<unsigned char>(u)
                                       : (u >= 0xDC80 && u <= 0xDCFF ? static_cast<unsigned char>(u & 0xFF) : '?');
    if (static_cast<unsigned char>(out[static_cast<size_t>(u - 1)]) != expected) ++wrong;
  }
  EXPECT_EQ(wrong, 0);
}

}  // namespace
