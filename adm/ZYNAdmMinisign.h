#ifndef ZYN_ADM_ZYNADMMINISIGN_H
#define ZYN_ADM_ZYNADMMINISIGN_H

// ZYNAdmMinisign.h - the key and signature files of minisign: read, checked, written.
// Bytes in, bytes out: no file is opened here, so that every parser can be fed anything.

#include <cstddef>
#include <cstdint>
#include <string>

// Results of Verify, in the order the checks are made.
enum ZYNAdmMinisignCheck {
  ZYNAdmMinisignVerified = 0,
  ZYNAdmMinisignOtherKey = 1,    // signed by a key with another id
  ZYNAdmMinisignBadData = 2,     // the signature of the data does not verify
  ZYNAdmMinisignBadComment = 3,  // the signature of the trusted comment does not verify
};

// Results of Unlock.
enum ZYNAdmMinisignUnlock {
  ZYNAdmMinisignUnlocked = 0,
  ZYNAdmMinisignWrongPassphrase = 1,
  ZYNAdmMinisignUnlockFailed = 2,  // scrypt could not run (memory)
};

class ZYNAdmMinisign {
 public:
  struct PublicKey {
    unsigned char keyId[8];
    unsigned char key[32];
  };
  struct SecretKey {
    bool encrypted;
    unsigned char salt[32];
    std::uint64_t opslimit;
    std::uint64_t memlimit;
    // The key block: id, Ed25519 secret key (seed then public key), checksum; encrypted
    // until Unlock.
    unsigned char keyId[8];
    unsigned char secret[64];
    unsigned char checksum[32];
  };
  struct Signature {
    bool prehashed;  // "ED": the data's BLAKE2b-512 is signed, not the data
    unsigned char keyId[8];
    unsigned char signature[64];
    std::string trustedComment;
    unsigned char globalSignature[64];
  };

  // False when the library can't start; every other call needs it first.
  static bool Init();

  // The id as minisign shows it: 16 upper-case hex digits of the little-endian number.
  static std::string KeyIdText(unsigned char const keyId[8]);

  // A public key file, or the base64 line alone as minisign -P takes it.
  static bool ParsePublicKey(std::string const& text, PublicKey& key);
  // A secret key file, still encrypted where it is.
  static bool ParseSecretKey(std::string const& text, SecretKey& key);
  // Decrypts an encrypted key (a ZYNAdmMinisignUnlock); an unencrypted one is left as it is.
  static int Unlock(SecretKey& key, std::string const& passphrase);
  // The file of `key` (unlocked), encrypted with `passphrase` at the given scrypt cost,
  // or unencrypted when the passphrase is empty. Empty on failure.
  static std::string SecretKeyFile(SecretKey const& key, std::string const& passphrase, std::uint64_t opslimit,
                                   std::uint64_t memlimit);
  static std::string PublicKeyFile(SecretKey const& key);

  static bool ParseSignature(std::string const& text, Signature& signature);
  // A ZYNAdmMinisignCheck; the trusted comment is to be believed only when verified.
  static int Verify(PublicKey const& key, Signature const& signature, unsigned char const* data, std::size_t size);
  // The signature file of `data`, prehashed, by an unlocked key. Empty on failure.
  static std::string Sign(SecretKey const& key, unsigned char const* data, std::size_t size,
                          std::string const& trustedComment);
};

#endif
