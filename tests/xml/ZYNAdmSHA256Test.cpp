#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "XmlTestSupport.h"
#include "ZYNAdmError.h"
#include "ZYNAdmInputFile.h"
#include "ZYNAdmInputStream.h"
#include "ZYNAdmSHA256.h"
#include "ZYNAdmSHA256Engine.h"
#include "support/ZYNTestTempTree.h"

using xmltest::MemoryInput;
using xmltest::Narrow;

namespace {

const int kReadSize = 262144;

std::string sDigestByWrites(const std::string& message, const std::vector<size_t>& cuts = {}) {
  ZYNAdmSHA256 stream;
  EXPECT_EQ(1, stream.Open());
  size_t from = 0;
  std::vector<size_t> ends(cuts);
  ends.push_back(message.size());
  for (size_t to : ends) {
    const int count = static_cast<int>(to - from);
    EXPECT_EQ(count, stream.Write(reinterpret_cast<unsigned char*>(const_cast<char*>(message.data() + from)), count));
    from = to;
  }
  EXPECT_EQ(1, stream.Close());
  return Narrow(stream.GetHash());
}

// Runs `body` on the portable compression and, where the processor has them, on the
// SHA instructions; restores the process-wide setting afterwards.
template <typename Body>
void sForEachCompressor(Body body) {
  const bool previous = ZYNAdmSHA256Engine::ForcePortable(true);
  {
    SCOPED_TRACE("portable");
    body();
  }
  ZYNAdmSHA256Engine::ForcePortable(false);
  if (ZYNAdmSHA256Engine::UsesHardware()) {
    SCOPED_TRACE("sha instructions");
    body();
  }
  ZYNAdmSHA256Engine::ForcePortable(previous);
}

const std::string kMillionA(1000000, 'a');

struct KnownDigest {
  std::string message;
  const char* digest;
};

// The standard's examples, and the lengths around the padding boundaries: 56 is the
// first that needs a second padding block. The 448-bit message and the million 'a'
// also have words with leading zeros (0c3e6039, 046d39cc).
const KnownDigest kKnownDigests[] = {
    {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
     "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
    {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
     "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"},
    {kMillionA, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    {std::string(55, 'a'), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
    {std::string(56, 'a'), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
    {std::string(63, 'a'), "7d3e74a05d7db15bce4ad9ec0658ea98e3f06eeecf16b4c6fff2da457ddc2f34"},
    {std::string(64, 'a'), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
    {std::string(65, 'a'), "635361c48bb9eab14198e76ea8ab7f1a41685d6ad62aa9146d301d4f17eb0ae0"},
    {std::string(119, 'a'), "31eba51c313a5c08226adf18d4a359cfdfd8d2e816b13f4af952f7ea6584dcfb"},
    {std::string(120, 'a'), "2f3d335432c70b580af0e8e1b3674a7c020d683aa5f73aaaedfdc55af904c21c"},
};

}  // namespace

TEST(ZYNAdmSHA256Test, StandardMessagesGiveStandardDigests) {
  sForEachCompressor([] {
    for (const KnownDigest& known : kKnownDigests) {
      SCOPED_TRACE(known.message.size());
      EXPECT_EQ(known.digest, sDigestByWrites(known.message));
      MemoryInput stream(known.message);
      EXPECT_EQ(known.digest, Narrow(ZYNAdmSHA256::GetHash(stream)));
    }
  });
}

TEST(ZYNAdmSHA256Test, PiecewiseWritesAndBothCompressorsGiveTheValueOfOneWrite) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 300; ++round) {
    std::string message(random() % 8193, '\0');
    for (char& c : message) c = static_cast<char>(random());
    std::vector<size_t> cuts;
    for (size_t at = random() % 130; at < message.size(); at += random() % 200) cuts.push_back(at);

    const bool previous = ZYNAdmSHA256Engine::ForcePortable(true);
    const std::string expected = sDigestByWrites(message);
    ZYNAdmSHA256Engine::ForcePortable(false);
    const std::string hardwareWhole = sDigestByWrites(message);
    const std::string hardwarePieces = sDigestByWrites(message, cuts);
    ZYNAdmSHA256Engine::ForcePortable(true);
    const std::string portablePieces = sDigestByWrites(message, cuts);
    ZYNAdmSHA256Engine::ForcePortable(previous);

    ASSERT_EQ(expected, hardwareWhole) << "length " << message.size();
    ASSERT_EQ(expected, hardwarePieces) << "length " << message.size();
    ASSERT_EQ(expected, portablePieces) << "length " << message.size();
  }
}

TEST(ZYNAdmSHA256Test, StreamRefusesCallsOutOfOrderAndStaysUsable) {
  enum Op { kOpen, kWriteAbc, kWriteNull, kWriteNegative, kWriteZero, kClose };
  struct Step {
    Op op;
    int expected;
  };
  struct Case {
    const char* name;
    std::vector<Step> steps;
    const char* digest;  // GetHash() at the end, asked twice
  };
  const char* abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
  const char* empty = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
  const Case cases[] = {
      {"open and close alone digest the empty input", {{kOpen, 1}, {kClose, 1}}, empty},
      {"no digest before close", {{kOpen, 1}, {kWriteAbc, 3}}, ""},
      {"write before open", {{kWriteAbc, -1}, {kOpen, 1}, {kClose, 1}}, empty},
      {"close before open", {{kClose, 0}, {kOpen, 1}, {kWriteAbc, 3}, {kClose, 1}}, abc},
      {"second open", {{kOpen, 1}, {kOpen, 0}, {kWriteAbc, 3}, {kClose, 1}}, abc},
      {"bad writes change nothing",
       {{kOpen, 1}, {kWriteNull, -1}, {kWriteNegative, -1}, {kWriteZero, 0}, {kWriteAbc, 3}, {kClose, 1}},
       abc},
      {"good for one use only",
       {{kOpen, 1}, {kWriteAbc, 3}, {kClose, 1}, {kOpen, 0}, {kWriteAbc, -1}, {kClose, 0}},
       abc},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ZYNAdmSHA256 stream;
    unsigned char text[] = "abc";
    for (const Step& step : c.steps) {
      switch (step.op) {
        case kOpen:
          EXPECT_EQ(step.expected, stream.Open());
          break;
        case kWriteAbc:
          EXPECT_EQ(step.expected, stream.Write(text, 3));
          break;
        case kWriteNull:
          EXPECT_EQ(step.expected, stream.Write(nullptr, 3));
          break;
        case kWriteNegative:
          EXPECT_EQ(step.expected, stream.Write(text, -1));
          break;
        case kWriteZero:
          EXPECT_EQ(step.expected, stream.Write(text, 0));
          break;
        case kClose:
          EXPECT_EQ(step.expected, stream.Close());
          break;
      }
    }
    EXPECT_EQ(c.digest, Narrow(stream.GetHash()));
    EXPECT_EQ(c.digest, Narrow(stream.GetHash()));
  }
}

TEST(ZYNAdmSHA256Test, ReadingAStreamDigestsAcrossReadBoundaries) {
  // A length that is a multiple of the read size ends with one more read that gives 0;
  // longer inputs cross the boundary in the million-'a' and file cases.
  const size_t sizes[] = {0, kReadSize - 1, kReadSize, 2 * kReadSize + 100};
  ZYNAdmError::FlushStack();
  for (size_t size : sizes) {
    SCOPED_TRACE(size);
    std::string data(size, '\0');
    for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 7 + i / 251);
    MemoryInput stream(data);
    EXPECT_EQ(sDigestByWrites(data), Narrow(ZYNAdmSHA256::GetHash(stream)));
    EXPECT_EQ(static_cast<int>(size / kReadSize) + 1, stream.reads);
    EXPECT_EQ(1, stream.closes);
  }
  EXPECT_EQ(0, ZYNAdmError::GetStackSize());
}

TEST(ZYNAdmSHA256Test, StreamFailureGivesEmptyDigestAndOneAccessError) {
  struct Case {
    const char* name;
    bool failOpen, failRead, failClose;
    int closes;  // a stream that failed to read is not closed
  };
  const Case cases[] = {
      {"open fails", true, false, false, 0},
      {"read fails", false, true, false, 0},
      {"close fails", false, false, true, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ZYNAdmError::FlushStack();
    MemoryInput stream("some bytes");
    stream.openResult = c.failOpen ? 0 : 1;
    stream.failRead = c.failRead;
    stream.closeResult = c.failClose ? 0 : 1;
    EXPECT_TRUE(ZYNAdmSHA256::GetHash(stream).IsEmpty());
    EXPECT_EQ(c.closes, stream.closes);
    EXPECT_EQ(1, ZYNAdmError::GetStackSize());
    EXPECT_EQ("Access error", Narrow(ZYNAdmError::Pop()));
  }
}

TEST(ZYNAdmSHA256Test, FileDigestIsTheDigestOfItsBytesAndAMissingFileFails) {
  ZYNTestTempTree tree;
  std::string data(kReadSize + 1000, 'z');
  ZYNAdmInputFile file(ZYNTestD(tree.File("f", data)));
  EXPECT_EQ(sDigestByWrites(data), Narrow(ZYNAdmSHA256::GetHash(file)));
  ZYNAdmInputFile missing(tree.DPath("missing"));
  EXPECT_TRUE(ZYNAdmSHA256::GetHash(missing).IsEmpty());
  EXPECT_EQ(1, ZYNAdmError::GetStackSize());
  ZYNAdmError::FlushStack();
}
