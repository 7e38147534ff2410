// Fields read in place must give what the element's own strings give, whatever form the
// element keeps each value in.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZYNAdmXmlElement.h"
#include "ZYNInsFileFields.h"

namespace {

DString Units(std::u16string const& text) {
  return DString(reinterpret_cast<unsigned short const*>(text.data()), static_cast<int>(text.size()));
}

ZYNAdmXmlElement File(DString const& path, DString const& timestamp,
                      DString const& hash = DString(L"0123456789abcdef")) {
  ZYNAdmXmlElement file(DString(L"File"));
  if (!hash.IsEmpty()) file.SetAttributeValue(DString(L"hash"), hash);
  if (!path.IsEmpty()) file.SetAttributeValue(DString(L"path"), path);
  file.SetAttributeValue(DString(L"timestamp"), timestamp);
  return file;
}

int Sign(int value) { return value < 0 ? -1 : (value > 0 ? 1 : 0); }

TEST(FileFields, PathsCompareAndTimesReadAsTheStringsDo) {
  std::u16string const longPath = u"/" + std::u16string(1100, u'a');
  std::vector<DString> const paths = {
      DString(),           DString(L"/a"),       DString(L"/a/b"), DString(L"/ab"),        DString(L"/b"),
      Units(u"/\u00e9"),   Units(u"/\u0100"),    Units(longPath),  Units(longPath + u"b"), DString(L"/0123"),
      DString(L"/abcdef"), DString(L"/abcdefg"),
  };
  std::vector<DString> const times = {DString(L"1700000000"),
                                      DString(L"-5"),
                                      DString(L" +12"),
                                      DString(L"0x10"),
                                      DString(L"99999999999999999999"),
                                      DString(L"-"),
                                      DString(L""),
                                      DString(L"000000000000000000001"),
                                      DString(L"9999999999999999999"),
                                      DString(L"-9999999999999999999"),
                                      DString(L"12:3"),
                                      DString(L"12/3")};
  ZYNInsFileFields left;
  ZYNInsFileFields right;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    ZYNAdmXmlElement a = File(paths[i], times[i % times.size()]);
    left.Read(&a);
    long long expected = 0;
    times[i % times.size()].ConvertToNum(expected, "%lld");
    EXPECT_EQ(left.Seconds(), expected) << i;
    for (std::size_t j = 0; j < paths.size(); ++j) {
      ZYNAdmXmlElement b = File(paths[j], DString(L"0"));
      left.Read(&a);
      right.Read(&b);
      EXPECT_EQ(ZYNInsFileFields::ComparePaths(left, right), Sign(DString::Compare(&paths[i], &paths[j])))
          << i << " " << j;
      EXPECT_EQ(ZYNInsFileFields::SameUnits(left.path, right.path), i == j) << i << " " << j;
    }
  }
  left.Read(nullptr);
  EXPECT_EQ(left.path.length + left.timestamp.length, 0);
  EXPECT_EQ(left.Seconds(), 0);
}

// Nibbles, Latin-1 bytes, strings (upper case, long, beyond Latin-1) and no hash at all.
TEST(FileFields, HashesCompareAsTheStringsDo) {
  std::u16string const digits = u"0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
  std::vector<DString> const hashes = {
      Units(digits),
      Units(digits.substr(1) + u"0"),
      Units(u"0123456789ABCDEF"),
      Units(u"abc"),
      Units(u"abd"),
      Units(u"\u0100x"),
      Units(u"\u0100"),
      Units(std::u16string(1100, u'a')),
      DString(),
      Units(u"0123456789abcdeg"),
      Units(u"0123456789abcde"),
  };
  ZYNInsFileFields left;
  ZYNInsFileFields right;
  for (std::size_t i = 0; i < hashes.size(); ++i) {
    for (std::size_t j = 0; j < hashes.size(); ++j) {
      ZYNAdmXmlElement a = File(DString(L"/a"), DString(L"1"), hashes[i]);
      ZYNAdmXmlElement b = File(DString(L"/a"), DString(L"1"), hashes[j]);
      left.Read(&a);
      right.Read(&b, ZYNInsFileFields::kHash);
      EXPECT_EQ(ZYNInsFileFields::SameHash(left, right), hashes[i] == hashes[j]) << i << " " << j;
    }
  }
}

}  // namespace
