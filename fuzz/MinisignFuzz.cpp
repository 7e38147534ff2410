// Feeds arbitrary bytes to the minisign parsers: as a signature file, a public key (file
// or bare base64) and a secret key file. What parses is then used as the run would use
// it: a signature verified over the input, an unencrypted key made to sign. Encrypted
// keys are not unlocked: their scrypt cost is the file's to choose.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ZYNAdmMinisign.h"

namespace {
const char kKey[] = "RWQf6LRCGA9i53mlYecO4IzT51TGPpvWucNSCh1CBM0QTaLn73Y7GFO3";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool ready = ZYNAdmMinisign::Init();
  if (!ready) std::abort();
  const std::string text(reinterpret_cast<char const*>(data), size);

  ZYNAdmMinisign::PublicKey testKey;
  if (!ZYNAdmMinisign::ParsePublicKey(kKey, testKey)) std::abort();
  ZYNAdmMinisign::Signature signature;
  if (ZYNAdmMinisign::ParseSignature(text, signature)) {
    if (signature.trustedComment.size() > 1024) std::abort();
    if (ZYNAdmMinisign::Verify(testKey, signature, data, size) == ZYNAdmMinisignVerified &&
        ZYNAdmMinisign::Verify(testKey, signature, data, size - (size > 0 ? 1 : 0)) == ZYNAdmMinisignVerified) {
      std::abort();  // the same signature can't hold for two messages
    }
  }
  ZYNAdmMinisign::PublicKey publicKey;
  if (ZYNAdmMinisign::ParsePublicKey(text, publicKey)) ZYNAdmMinisign::KeyIdText(publicKey.keyId);

  ZYNAdmMinisign::SecretKey secretKey;
  if (ZYNAdmMinisign::ParseSecretKey(text, secretKey) && !secretKey.encrypted) {
    std::string signed_ = ZYNAdmMinisign::Sign(secretKey, data, size, "fuzz");
    ZYNAdmMinisign::Signature again;
    if (signed_.empty() || !ZYNAdmMinisign::ParseSignature(signed_, again)) std::abort();
    ZYNAdmMinisign::PublicKey own;
    if (!ZYNAdmMinisign::ParsePublicKey(ZYNAdmMinisign::PublicKeyFile(secretKey), own)) std::abort();
    ZYNAdmMinisign::Verify(own, again, data, size);
  }
  return 0;
}
