// minisign's formats: the published vectors, every byte that must break a signature, the
// files that must be refused, and keys made, locked and unlocked here.
#include <gtest/gtest.h>
#include <sodium.h>

#include <cstring>

#include "ZYNAdmMinisign.h"

namespace {

typedef ZYNAdmMinisign M;

const char kKey[] = "RWQf6LRCGA9i53mlYecO4IzT51TGPpvWucNSCh1CBM0QTaLn73Y7GFO3";
const std::string kPrehashed =
    "untrusted comment: signature from minisign secret key\n"
    "RUQf6LRCGA9i559r3g7V1qNyJDApGip8MfqcadIgT9CuhV3EMhHoN1mGTkUidF/z7SrlQgXdy8ofjb7bNJJylDOocrCo8KLzZwo=\n"
    "trusted comment: timestamp:1556193335\tfile:test\n"
    "y/rUw2y8/hOUYjZU71eHp/Wo1KZ40fGy2VJEDl34XMJM+TX48Ss/17u3IvIfbVR1FkZZSNCisQbuQY+bHwhEBg==\n";
const std::string kLegacy =
    "untrusted comment: signature from minisign secret key\n"
    "RWQf6LRCGA9i59SLOFxz6NxvASXDJeRtuZykwQepbDEGt87ig1BNpWaVWuNrm73YiIiJbq71Wi+dP9eKL8OC351vwIasSSbXxwA=\n"
    "trusted comment: timestamp:1555779966\tfile:test\n"
    "QtKMXWyYcwdpZAlPF7tE2ENJkRd1ujvKjlj1m9RtHTBnZPa5WKU5uWRs5GoP5M/VqE81QFuMKI5k/SfNQUaOAA==\n";

int VerifyText(std::string const& key, std::string const& signature, std::string const& data) {
  M::PublicKey publicKey;
  M::Signature parsed;
  if (!M::ParsePublicKey(key, publicKey) || !M::ParseSignature(signature, parsed)) return -1;
  return M::Verify(publicKey, parsed, reinterpret_cast<unsigned char const*>(data.data()), data.size());
}

// One character of line `line` (0-based) replaced, staying base64 or text.
std::string Flip(std::string text, int line, size_t column) {
  size_t at = 0;
  for (int i = 0; i < line; ++i) at = text.find('\n', at) + 1;
  char& c = text[at + column];
  c = c == 'A' ? 'B' : 'A';
  return text;
}

// A key from a fixed seed, unlocked, as minisign -G would hold it.
M::SecretKey MadeKey() {
  M::SecretKey key;
  std::memset(&key, 0, sizeof key);
  unsigned char seed[32] = {7};
  unsigned char publicBytes[32];
  EXPECT_EQ(0, crypto_sign_seed_keypair(publicBytes, key.secret, seed));
  std::memcpy(key.keyId, "\x1f\xe8\xb4\x42\x18\x0f\x62\xe7", 8);
  return key;
}

}  // namespace

TEST(MinisignVectors, VerifyAndEveryChangeBreaksThem) {
  ASSERT_TRUE(M::Init());
  struct Case {
    char const* name;
    std::string signature;
    std::string data;
    int expected;
  } cases[] = {
      {"prehashed", kPrehashed, "test", ZYNAdmMinisignVerified},
      {"legacy", kLegacy, "test", ZYNAdmMinisignVerified},
      {"prehashed, other message", kPrehashed, "tesT", ZYNAdmMinisignBadData},
      {"legacy, other message", kLegacy, "test\n", ZYNAdmMinisignBadData},
      {"signature byte", Flip(kPrehashed, 1, 40), "test", ZYNAdmMinisignBadData},
      {"key id byte", Flip(kPrehashed, 1, 5), "test", ZYNAdmMinisignOtherKey},
      {"trusted comment byte", Flip(kPrehashed, 2, 20), "test", ZYNAdmMinisignBadComment},
      {"global signature byte", Flip(kLegacy, 3, 10), "test", ZYNAdmMinisignBadComment},
      {"CRLF line ends", "untrusted comment: x\r\n" + kPrehashed.substr(kPrehashed.find('\n') + 1), "test",
       ZYNAdmMinisignVerified},
  };
  for (auto const& c : cases) EXPECT_EQ(c.expected, VerifyText(kKey, c.signature, c.data)) << c.name;
  M::PublicKey key;
  ASSERT_TRUE(M::ParsePublicKey(std::string("untrusted comment: minisign public key\n") + kKey + "\n", key));
  EXPECT_EQ("E7620F1842B4E81F", M::KeyIdText(key.keyId));
}

TEST(MinisignParse, MalformedFilesAreRefused) {
  ASSERT_TRUE(M::Init());
  std::string body = kPrehashed.substr(kPrehashed.find('\n') + 1);
  std::string unknownAlgorithm = kPrehashed;
  unknownAlgorithm[kPrehashed.find("RUQ") + 1] = 'V';  // "ET": neither Ed nor ED
  std::string const signatures[] = {
      "",
      "untrusted comment: x\n",
      body,                                                      // no untrusted comment line
      kPrehashed.substr(0, kPrehashed.rfind("y/rU")),            // no global signature
      kPrehashed.substr(0, kPrehashed.find("RUQ") + 20) + "\n",  // short signature line
      Flip(kPrehashed, 2, 0),                                    // "trusted" misspelt
      unknownAlgorithm,
      "untrusted comment: x\n!!!\ntrusted comment: \nAA==\n",
      "untrusted comment: x\n" + body.substr(0, body.find('\n')) + "\ntrusted comment: " + std::string(1025, 'c') +
          "\n" + body.substr(body.rfind("y/rU")),
  };
  M::Signature signature;
  for (auto const& text : signatures) EXPECT_FALSE(M::ParseSignature(text, signature)) << text;
  std::string const keys[] = {"", "RWQ", std::string(kKey) + "=", "untrusted comment: x\n", "a\nb\n", "RWQf6LRCGA9i"};
  M::PublicKey publicKey;
  for (auto const& text : keys) EXPECT_FALSE(M::ParsePublicKey(text, publicKey)) << text;
  M::SecretKey secretKey;
  EXPECT_FALSE(M::ParseSecretKey(std::string("untrusted comment: x\n") + kKey + "\n", secretKey));
}

TEST(MinisignKeys, SignedHereVerifiesAndLockedKeysNeedTheirPassphrase) {
  ASSERT_TRUE(M::Init());
  M::SecretKey made = MadeKey();
  std::string data = "<reference/>";
  std::string signature =
      M::Sign(made, reinterpret_cast<unsigned char const*>(data.data()), data.size(), "release 2\tname");
  ASSERT_FALSE(signature.empty());
  EXPECT_EQ(ZYNAdmMinisignVerified, VerifyText(M::PublicKeyFile(made), signature, data));
  EXPECT_EQ(ZYNAdmMinisignBadData, VerifyText(M::PublicKeyFile(made), signature, data + " "));
  EXPECT_TRUE(M::Sign(made, nullptr, 0, "two\nlines").empty());

  // Cheap scrypt so that a test can afford it; the parameter rule is the library's.
  std::string locked = M::SecretKeyFile(made, "pw", 32768, 1 << 20);
  struct Case {
    std::string passphrase;
    int expected;
  } cases[] = {{"wrong", ZYNAdmMinisignWrongPassphrase}, {"", ZYNAdmMinisignWrongPassphrase}, {"pw", 0}};
  for (auto const& c : cases) {
    M::SecretKey read;
    ASSERT_TRUE(M::ParseSecretKey(locked, read));
    EXPECT_TRUE(read.encrypted);
    EXPECT_EQ(c.expected, M::Unlock(read, c.passphrase)) << c.passphrase;
    if (c.expected == 0) {
      EXPECT_EQ(0, std::memcmp(read.secret, made.secret, 64));
    }
  }
  M::SecretKey plain;
  ASSERT_TRUE(M::ParseSecretKey(M::SecretKeyFile(made, "", 0, 0), plain));
  EXPECT_FALSE(plain.encrypted);
  EXPECT_EQ(0, M::Unlock(plain, "anything"));
  EXPECT_EQ(signature, M::Sign(plain, reinterpret_cast<unsigned char const*>(data.data()), data.size(),
                               "release 2\tname"));  // Ed25519 is deterministic
}
