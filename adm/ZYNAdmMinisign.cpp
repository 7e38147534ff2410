// ZYNAdmMinisign.cpp - minisign's files over libsodium: every curve, hash and key
// derivation is the library's.
#include "ZYNAdmMinisign.h"

#include <sodium.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

typedef ZYNAdmMinisign Minisign;

const char S_Untrusted[] = "untrusted comment: ";
const char S_Trusted[] = "trusted comment: ";
const std::size_t S_PublicKeyBytes = 42;
const std::size_t S_SecretKeyBytes = 158;
const std::size_t S_SignatureBytes = 74;
const std::size_t S_KeyBlockBytes = 104;
const std::size_t S_CommentMaxBytes = 1024;

// The first `count` lines of a text at most, each without its "\n" or "\r\n"; what
// follows them is not looked at.
std::vector<std::string> sLines(std::string const& text, std::size_t count) {
  std::vector<std::string> lines;
  std::size_t at = 0;
  while (lines.size() < count && at < text.size()) {
    std::size_t end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    std::size_t stop = end;
    if (stop > at && text[stop - 1] == '\r') --stop;
    lines.push_back(text.substr(at, stop - at));
    at = end + 1;
  }
  return lines;
}

bool sStartsWith(std::string const& line, char const* prefix) {
  return line.compare(0, std::strlen(prefix), prefix) == 0;
}

// The whole line must be standard base64 of exactly `size` bytes.
bool sDecode(std::string const& line, unsigned char* out, std::size_t size) {
  std::vector<unsigned char> bytes(size + 3);
  std::size_t length = 0;
  if (sodium_base642bin(bytes.data(), bytes.size(), line.data(), line.size(), nullptr, &length, nullptr,
                        sodium_base64_VARIANT_ORIGINAL) != 0) {
    return false;
  }
  if (length != size) return false;
  std::memcpy(out, bytes.data(), size);
  return true;
}

std::string sEncode(unsigned char const* data, std::size_t size) {
  std::vector<char> text(sodium_base64_ENCODED_LEN(size, sodium_base64_VARIANT_ORIGINAL));
  sodium_bin2base64(text.data(), text.size(), data, size, sodium_base64_VARIANT_ORIGINAL);
  return std::string(text.data());
}

void sPutLE64(unsigned char* out, std::uint64_t value) {
  for (int i = 0; i < 8; ++i) out[i] = static_cast<unsigned char>(value >> (8 * i));
}

std::uint64_t sGetLE64(unsigned char const* in) {
  std::uint64_t value = 0;
  for (int i = 7; i >= 0; --i) value = (value << 8) | in[i];
  return value;
}

// BLAKE2b-256 of "Ed", the id and the secret key: how a wrong passphrase shows.
void sChecksum(Minisign::SecretKey const& key, unsigned char out[32]) {
  unsigned char input[2 + 8 + 64];
  input[0] = 'E';
  input[1] = 'd';
  std::memcpy(input + 2, key.keyId, 8);
  std::memcpy(input + 10, key.secret, 64);
  crypto_generichash(out, 32, input, sizeof input, nullptr, 0);
  sodium_memzero(input, sizeof input);
}

// XORs the key block with the scrypt stream of the passphrase; the same call encrypts
// and decrypts. False when scrypt can't run.
bool sApplyPassphrase(Minisign::SecretKey& key, std::string const& passphrase) {
  unsigned char stream[S_KeyBlockBytes];
  if (crypto_pwhash_scryptsalsa208sha256(stream, sizeof stream, passphrase.data(), passphrase.size(), key.salt,
                                         key.opslimit, static_cast<size_t>(key.memlimit)) != 0) {
    return false;
  }
  unsigned char* parts[] = {key.keyId, key.secret, key.checksum};
  std::size_t sizes[] = {8, 64, 32};
  std::size_t at = 0;
  for (int part = 0; part < 3; ++part) {
    for (std::size_t i = 0; i < sizes[part]; ++i) parts[part][i] ^= stream[at++];
  }
  sodium_memzero(stream, sizeof stream);
  return true;
}

}  // namespace

bool ZYNAdmMinisign::Init() { return sodium_init() >= 0; }

std::string ZYNAdmMinisign::KeyIdText(unsigned char const keyId[8]) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(sGetLE64(keyId)));
  return std::string(text);
}

bool ZYNAdmMinisign::ParsePublicKey(std::string const& text, PublicKey& key) {
  std::vector<std::string> lines = sLines(text, 2);
  std::string line;
  if (lines.size() == 2 && sStartsWith(lines[0], S_Untrusted)) {
    line = lines[1];
  } else if (lines.size() == 1) {
    line = lines[0];
  } else {
    return false;
  }
  unsigned char bytes[S_PublicKeyBytes];
  if (!sDecode(line, bytes, sizeof bytes) || bytes[0] != 'E' || bytes[1] != 'd') return false;
  std::memcpy(key.keyId, bytes + 2, 8);
  std::memcpy(key.key, bytes + 10, 32);
  return true;
}

bool ZYNAdmMinisign::ParseSecretKey(std::string const& text, SecretKey& key) {
  std::vector<std::string> lines = sLines(text, 2);
  if (lines.size() != 2 || !sStartsWith(lines[0], S_Untrusted)) return false;
  unsigned char bytes[S_SecretKeyBytes];
  if (!sDecode(lines[1], bytes, sizeof bytes)) return false;
  bool scrypt = bytes[2] == 'S' && bytes[3] == 'c';
  bool plain = bytes[2] == 0 && bytes[3] == 0;
  if (bytes[0] != 'E' || bytes[1] != 'd' || (!scrypt && !plain) || bytes[4] != 'B' || bytes[5] != '2') {
    sodium_memzero(bytes, sizeof bytes);
    return false;
  }
  key.encrypted = scrypt;
  std::memcpy(key.salt, bytes + 6, 32);
  key.opslimit = sGetLE64(bytes + 38);
  key.memlimit = sGetLE64(bytes + 46);
  std::memcpy(key.keyId, bytes + 54, 8);
  std::memcpy(key.secret, bytes + 62, 64);
  std::memcpy(key.checksum, bytes + 126, 32);
  sodium_memzero(bytes, sizeof bytes);
  return true;
}

int ZYNAdmMinisign::Unlock(SecretKey& key, std::string const& passphrase) {
  if (!key.encrypted) return ZYNAdmMinisignUnlocked;
  SecretKey opened = key;
  if (!sApplyPassphrase(opened, passphrase)) return ZYNAdmMinisignUnlockFailed;
  unsigned char expected[32];
  sChecksum(opened, expected);
  bool right = sodium_memcmp(expected, opened.checksum, 32) == 0;
  if (right) {
    opened.encrypted = false;
    key = opened;
  }
  sodium_memzero(&opened, sizeof opened);
  return right ? ZYNAdmMinisignUnlocked : ZYNAdmMinisignWrongPassphrase;
}

std::string ZYNAdmMinisign::SecretKeyFile(SecretKey const& key, std::string const& passphrase, std::uint64_t opslimit,
                                          std::uint64_t memlimit) {
  SecretKey locked = key;
  sChecksum(locked, locked.checksum);
  locked.encrypted = !passphrase.empty();
  locked.opslimit = opslimit;
  locked.memlimit = memlimit;
  if (locked.encrypted) {
    randombytes_buf(locked.salt, sizeof locked.salt);
    if (!sApplyPassphrase(locked, passphrase)) return std::string();
  } else {
    std::memset(locked.salt, 0, sizeof locked.salt);
  }
  unsigned char bytes[S_SecretKeyBytes] = {'E', 'd', 0, 0, 'B', '2'};
  if (locked.encrypted) {
    bytes[2] = 'S';
    bytes[3] = 'c';
  }
  std::memcpy(bytes + 6, locked.salt, 32);
  sPutLE64(bytes + 38, locked.opslimit);
  sPutLE64(bytes + 46, locked.memlimit);
  std::memcpy(bytes + 54, locked.keyId, 8);
  std::memcpy(bytes + 62, locked.secret, 64);
  std::memcpy(bytes + 126, locked.checksum, 32);
  std::string text = std::string(S_Untrusted) + "minisign encrypted secret key\n" + sEncode(bytes, sizeof bytes) + "\n";
  sodium_memzero(bytes, sizeof bytes);
  sodium_memzero(&locked, sizeof locked);
  return text;
}

std::string ZYNAdmMinisign::PublicKeyFile(SecretKey const& key) {
  unsigned char bytes[S_PublicKeyBytes] = {'E', 'd'};
  std::memcpy(bytes + 2, key.keyId, 8);
  std::memcpy(bytes + 10, key.secret + 32, 32);
  return std::string(S_Untrusted) + "minisign public key " + KeyIdText(key.keyId) + "\n" +
         sEncode(bytes, sizeof bytes) + "\n";
}

bool ZYNAdmMinisign::ParseSignature(std::string const& text, Signature& signature) {
  std::vector<std::string> lines = sLines(text, 4);
  if (lines.size() != 4 || !sStartsWith(lines[0], S_Untrusted) || !sStartsWith(lines[2], S_Trusted)) return false;
  unsigned char bytes[S_SignatureBytes];
  if (!sDecode(lines[1], bytes, sizeof bytes) || bytes[0] != 'E') return false;
  if (bytes[1] != 'D' && bytes[1] != 'd') return false;
  signature.trustedComment = lines[2].substr(std::strlen(S_Trusted));
  if (signature.trustedComment.size() > S_CommentMaxBytes) return false;
  if (!sDecode(lines[3], signature.globalSignature, 64)) return false;
  signature.prehashed = bytes[1] == 'D';
  std::memcpy(signature.keyId, bytes + 2, 8);
  std::memcpy(signature.signature, bytes + 10, 64);
  return true;
}

int ZYNAdmMinisign::Verify(PublicKey const& key, Signature const& signature, unsigned char const* data,
                           std::size_t size) {
  if (std::memcmp(key.keyId, signature.keyId, 8) != 0) return ZYNAdmMinisignOtherKey;
  unsigned char digest[crypto_generichash_BYTES_MAX];
  if (signature.prehashed) {
    crypto_generichash(digest, sizeof digest, data, size, nullptr, 0);
    data = digest;
    size = sizeof digest;
  }
  if (crypto_sign_verify_detached(signature.signature, data, size, key.key) != 0) return ZYNAdmMinisignBadData;
  std::string global(reinterpret_cast<char const*>(signature.signature), 64);
  global += signature.trustedComment;
  if (crypto_sign_verify_detached(signature.globalSignature, reinterpret_cast<unsigned char const*>(global.data()),
                                  global.size(), key.key) != 0) {
    return ZYNAdmMinisignBadComment;
  }
  return ZYNAdmMinisignVerified;
}

std::string ZYNAdmMinisign::Sign(SecretKey const& key, unsigned char const* data, std::size_t size,
                                 std::string const& trustedComment) {
  if (key.encrypted || trustedComment.size() > S_CommentMaxBytes ||
      trustedComment.find_first_of("\r\n") != std::string::npos) {
    return std::string();
  }
  unsigned char digest[crypto_generichash_BYTES_MAX];
  crypto_generichash(digest, sizeof digest, data, size, nullptr, 0);
  unsigned char bytes[S_SignatureBytes] = {'E', 'D'};
  std::memcpy(bytes + 2, key.keyId, 8);
  if (crypto_sign_detached(bytes + 10, nullptr, digest, sizeof digest, key.secret) != 0) return std::string();
  std::string global(reinterpret_cast<char const*>(bytes + 10), 64);
  global += trustedComment;
  unsigned char globalSignature[64];
  if (crypto_sign_detached(globalSignature, nullptr, reinterpret_cast<unsigned char const*>(global.data()),
                           global.size(), key.secret) != 0) {
    return std::string();
  }
  return std::string(S_Untrusted) + "signature from minisign secret key\n" + sEncode(bytes, sizeof bytes) + "\n" +
         S_Trusted + trustedComment + "\n" + sEncode(globalSignature, sizeof globalSignature) + "\n";
}
