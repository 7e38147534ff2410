#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "DString.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmEnv.h"
#include "support/TestText.h"

namespace {

TEST(ZYNAdmCodePageUtf8, DecoderStatuses) {
  struct Case {
    std::string bytes;
    int status;
    std::u16string units;
  } cases[] = {
      {"plain", 0, u"plain"},         {"caf\xC3\xA9", 0, u"caf\u00e9"},
      {"\xE4\xB8\x80", 0, u"\u4e00"}, {"a\xF0\x9F\x98\x80z", 4, u"a?z"},  // above 0xFFFF: one '?'
      {"ab\xC3", 3, u"ab"},                                               // ends inside a sequence
      {"a\xE4\xB8", 3, u"a"},         {std::string("a\0b", 3), 5, u"a"},  // a zero character stops the walk
      {"\xC0\x80", 5, u""},                                               // overlong zero is still zero
      {"\x80", 0, u"\u0080"},                                             // a stray trailing byte decodes as itself
      {"\xC1\x81", 0, u"A"},                                              // overlong forms are accepted
  };
  for (auto const& c : cases) {
    DString target(L"previous");
    EXPECT_EQ(ZYNAdmCodePage::ConvertUTF8ToUcs(c.bytes.data(), c.bytes.size(), target), c.status) << c.bytes;
    EXPECT_EQ(U16(target), c.units) << c.bytes;
  }
  DString target(L"x");
  EXPECT_EQ(ZYNAdmCodePage::ConvertUTF8ToUcs(nullptr, target), 0);
  EXPECT_TRUE(target.IsEmpty());
}

TEST(ZYNAdmCodePageUtf8, EncoderNeedsRoomForTheTerminator) {
  DString text(L"caf\u00e9\u4e00");  // 3 + 2 + 3 bytes
  struct Case {
    unsigned long room;
    int status;
    std::string bytes;
  } cases[] = {{9, 0, "caf\xC3\xA9\xE4\xB8\x80"}, {8, 6, ""}, {3, 6, ""}};
  for (auto const& c : cases) {
    char out[16] = "garbage";
    unsigned long size = c.room;
    EXPECT_EQ(ZYNAdmCodePage::ConvertUcsToUTF8(text, out, size), c.status) << c.room;
    EXPECT_EQ(std::string(out), c.bytes) << c.room;
    EXPECT_EQ(size, c.bytes.size()) << c.room;
  }
  char out[4];
  unsigned long size = 0;
  EXPECT_EQ(ZYNAdmCodePage::ConvertUcsToUTF8(text, out, size), 6);
  size = 4;
  EXPECT_EQ(ZYNAdmCodePage::ConvertUcsToUTF8(DString(), out, size), 0);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(out[0], 0);
}

TEST(ZYNAdmCodePageNarrow, ByteIdentityRoundTripsEveryByte) {
  std::string all;
  for (int b = 1; b < 256; ++b) all += static_cast<char>(b);
  DString wide = ZYNAdmCodePage::ConvertStrToUcs(all.c_str());
  ASSERT_EQ(wide.Length(), 255);
  EXPECT_EQ(wide[0xE9 - 1], 0xE9);
  char* back = ZYNAdmCodePage::ConvertUcsToStr(wide);
  EXPECT_EQ(std::string(back), all);
  ZYNAdmCodePage::FreeAndNull(back);
  EXPECT_EQ(back, nullptr);
  ZYNAdmCodePage::FreeAndNull(back);  // a null pointer is left alone

  EXPECT_TRUE(ZYNAdmCodePage::ConvertStrToUcs(nullptr).IsEmpty());
  EXPECT_TRUE(ZYNAdmCodePage::ConvertStrToUcs("").IsEmpty());
}

TEST(ZYNAdmEnvTest, GetAndPutEnvironment) {
  EXPECT_TRUE(ZYNAdmEnv::GetEnv(DString(L"ZYN_TEST_SURELY_UNSET")).IsEmpty());
  EXPECT_EQ(ZYNAdmEnv::PutEnv(DString(), DString(L"x")), 0);
  EXPECT_EQ(ZYNAdmEnv::PutEnv(DString(L"ZYN_TEST_VAR"), DString(L"v\u00e9")), 0);
  EXPECT_EQ(U16(ZYNAdmEnv::GetEnv(DString(L"ZYN_TEST_VAR"))), u"v\u00e9");
  EXPECT_STREQ(std::getenv("ZYN_TEST_VAR"), "v\xE9");
}

}  // namespace
