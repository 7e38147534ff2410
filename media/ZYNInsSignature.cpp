// ZYNInsSignature.cpp - signing the reference at generation, verifying it at the check.
#include "ZYNInsSignature.h"

#include <sodium.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <vector>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmError.h"
#include "ZYNAdmMinisign.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNAdmReplacingFile.h"
#include "ZYNAdmStdLib.h"
#include "ZYNAdmWholeFile.h"
#include "ZYNInsMediaGeometry.h"
#include "ZYNInsMsg.h"

typedef ZYNAdmMinisign Minisign;

// Key and signature files are a few lines; anything far larger is not one.
static const std::size_t S_SmallFileLimit = 65536;
static const int S_PassphraseMax = 1024;

namespace {
struct SState {
  bool hasKey = false;
  Minisign::SecretKey key;
  ZYNInsSignatureOutcome outcome{ZYNInsSignatureNotAsked, DString()};
};
}  // namespace

static SState& sState() {
  static SState* state = new SState();  // left to the end of the process, as statics are
  return *state;
}

static void sPush(wchar_t const* text, DString const& parameter) {
  ZYNAdmError::Push(ZYNInsMsg::BuildMsg(DString(text), DStrings(parameter)));
}

static std::string sUtf8(DString const& text) {
  std::vector<char> buffer(static_cast<std::size_t>(text.Length()) * 3 + 1);
  unsigned long size = static_cast<unsigned long>(buffer.size());
  if (text.IsEmpty() || ZYNAdmCodePage::ConvertUcsToUTF8(text, buffer.data(), size) != 0) return std::string();
  return std::string(buffer.data(), size);
}

static DString sFromUtf8(std::string const& text) {
  DString converted;
  if (ZYNAdmCodePage::ConvertUTF8ToUcs(text.data(), static_cast<unsigned long>(text.size()), converted) != 0) {
    return ZYNAdmCodePage::ConvertStrToUcs(text.c_str());
  }
  return converted;
}

static DString sText(std::string const& ascii) { return ZYNAdmCodePage::ConvertStrToUcs(ascii.c_str()); }

DString ZYNInsSignature::FileName() { return ZYNInsMediaGeometry::ReferenceName() + L".minisig"; }

DString ZYNInsSignature::PathFor(DString const& referencePath) { return referencePath + L".minisig"; }

// minisign -P takes the base64 text itself; anything else is a file to read.
static bool sReadPublicKey(DString const& given, Minisign::PublicKey& key) {
  if (!Minisign::Init()) return false;
  ZYNAdmNarrowText narrow(given);
  if (narrow.IsNull()) return false;
  if (Minisign::ParsePublicKey(std::string(narrow.Get()), key)) return true;
  std::string text;
  struct stat status;
  return ZYNAdmReadWholeFile(given, S_SmallFileLimit, text, status) == 0 && Minisign::ParsePublicKey(text, key);
}

int ZYNInsSignature::CheckPublicKey(DString const& key) {
  Minisign::PublicKey parsed;
  if (sReadPublicKey(key, parsed)) return 0;
  sPush(L"-pubkey: \"/P1\" is neither a minisign public key nor a file holding one", key);
  return 1;
}

// On a terminal the passphrase is not echoed; from a pipe it is the first line.
static std::string sReadPassphrase(DString const& keyPath) {
  int fd = fileno(stdin);
  bool terminal = isatty(fd) != 0;
  struct termios saved;
  if (terminal && tcgetattr(fd, &saved) == 0) {
    struct termios quiet = saved;
    quiet.c_lflag &= static_cast<tcflag_t>(~ECHO);
    char* narrow = ZYNAdmCodePage::ConvertUcsToStr(keyPath);
    std::fprintf(stderr, "Passphrase for %s: ", narrow != nullptr ? narrow : "");
    std::fflush(stderr);
    ZYNAdmCodePage::FreeAndNull(narrow);
    tcsetattr(fd, TCSAFLUSH, &quiet);
  } else {
    terminal = false;
  }
  std::string passphrase;
  for (int c = std::getchar(); c != EOF && c != '\n' && passphrase.size() < S_PassphraseMax; c = std::getchar()) {
    passphrase += static_cast<char>(c);
  }
  if (!passphrase.empty() && passphrase.back() == '\r') passphrase.pop_back();
  if (terminal) {
    tcsetattr(fd, TCSAFLUSH, &saved);
    std::fputc('\n', stderr);
  }
  return passphrase;
}

int ZYNInsSignature::LoadSecretKey(DString const& path) {
  SState& state = sState();
  state.hasKey = false;
  if (!Minisign::Init()) {
    ZYNAdmError::Push(DString(L"Internal error"));
    return 1;
  }
  std::string text;
  struct stat status;
  int read = ZYNAdmReadWholeFile(path, S_SmallFileLimit, text, status);
  if (read != 0) {
    sPush(L"-sign: unable to read \"/P1\"", path);
    return 1;
  }
  Minisign::SecretKey key;
  if (!Minisign::ParseSecretKey(text, key)) {
    sPush(L"-sign: \"/P1\" is not a minisign secret key", path);
    return 1;
  }
  if (key.encrypted) {
    std::string passphrase = sReadPassphrase(path);
    int unlocked = Minisign::Unlock(key, passphrase);
    if (!passphrase.empty()) sodium_memzero(&passphrase[0], passphrase.size());
    if (unlocked == ZYNAdmMinisignWrongPassphrase) {
      sPush(L"-sign: wrong passphrase for \"/P1\"", path);
      return 1;
    }
    if (unlocked != ZYNAdmMinisignUnlocked) {
      sPush(L"-sign: not enough memory to unlock \"/P1\"", path);
      return 1;
    }
  }
  state.key = key;
  state.hasKey = true;
  return 0;
}

int ZYNInsSignature::WriteSignature(DString const& referencePath, std::string const& bytes, DString const& comment,
                                    bool commentGiven, ZYNAdmReplacingFile& file) {
  SState& state = sState();
  DString path = PathFor(referencePath);
  std::string trusted = sUtf8(comment);
  if (!commentGiven) {
    char text[96];
    std::snprintf(text, sizeof text, "timestamp:%lld\tfile:", static_cast<long long>(std::time(nullptr)));
    trusted = std::string(text) + sUtf8(ZYNInsMediaGeometry::ReferenceName()) + "\thashed";
  }
  std::string signature;
  if (state.hasKey) {
    signature = Minisign::Sign(state.key, reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size(), trusted);
  }
  if (signature.empty()) {
    sPush(L"-sign: unable to sign \"/P1\" (a trusted comment is one line of at most 1024 bytes)", referencePath);
    return 1;
  }
  bool written = file.Open() != 0 &&
                 file.Write(reinterpret_cast<unsigned char*>(&signature[0]), static_cast<int>(signature.size())) ==
                     static_cast<int>(signature.size());
  if (file.Close() == 0 || !written) {
    sPush(L"Unable to write to \"/P1\"", path);
    return 1;
  }
  return 0;
}

int ZYNInsSignature::RemoveSignature(DString const& referencePath) {
  DString path = PathFor(referencePath);
  int removed = ZYNAdmStdLib::Delete(path);
  if (removed == 0 || removed == ENOENT) return 0;
  sPush(L"Unable to remove \"/P1\"", path);
  return 1;
}

static bool sSettle(int kind, DString const& sentence) {
  sState().outcome = ZYNInsSignatureOutcome{kind, sentence};
  return kind == ZYNInsSignatureVerified;
}

bool ZYNInsSignature::Verify(DString const& key, DString const& referencePath, std::string const& bytes) {
  DString path = PathFor(referencePath);
  Minisign::PublicKey publicKey;
  if (!sReadPublicKey(key, publicKey)) {
    return sSettle(ZYNInsSignatureMalformed, DString(L"Signature check failed: the public key can't be read"));
  }
  std::string text;
  struct stat status;
  int read = ZYNAdmReadWholeFile(path, S_SmallFileLimit, text, status);
  if (read == ENOENT) {
    return sSettle(ZYNInsSignatureMissing, ZYNInsMsg::BuildMsg(DString(L"Signature check failed: no signature file "
                                                                       L"\"/P1\""),
                                                               DStrings(path)));
  }
  Minisign::Signature signature;
  if (read != 0 || !Minisign::ParseSignature(text, signature)) {
    return sSettle(ZYNInsSignatureMalformed,
                   ZYNInsMsg::BuildMsg(DString(L"Signature check failed: \"/P1\" is not a minisign signature file"),
                                       DStrings(path)));
  }
  DString expected = sText(Minisign::KeyIdText(publicKey.keyId));
  DString found = sText(Minisign::KeyIdText(signature.keyId));
  switch (Minisign::Verify(publicKey, signature, reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size())) {
    case ZYNAdmMinisignOtherKey:
      return sSettle(ZYNInsSignatureOtherKey,
                     ZYNInsMsg::BuildMsg(DString(L"Signature check failed: signed by key /P1, not by key /P2"),
                                         DStrings(found, expected)));
    case ZYNAdmMinisignBadData:
      return sSettle(
          ZYNInsSignatureBadData,
          ZYNInsMsg::BuildMsg(DString(L"Signature check failed: \"/P1\" is not the file that key /P2 signed"),
                              DStrings(referencePath, expected)));
    case ZYNAdmMinisignBadComment:
      return sSettle(ZYNInsSignatureBadComment,
                     ZYNInsMsg::BuildMsg(DString(L"Signature check failed: the trusted comment of \"/P1\" is not the "
                                                 L"one key /P2 signed"),
                                         DStrings(path, expected)));
    default:
      break;
  }
  DString comment = sFromUtf8(signature.trustedComment);
  return sSettle(
      ZYNInsSignatureVerified,
      ZYNInsMsg::BuildMsg(DString(L"Signature verified: key /P1, trusted comment: /P2"), DStrings(expected, comment)));
}

void ZYNInsSignature::SetReplaced(DString const& referencePath) {
  sSettle(ZYNInsSignatureReplaced,
          ZYNInsMsg::BuildMsg(DString(L"Signature check failed: \"/P1\" changed after its signature was verified"),
                              DStrings(referencePath)));
}

ZYNInsSignatureOutcome ZYNInsSignature::Outcome() { return sState().outcome; }

void ZYNInsSignature::Reset() {
  SState& state = sState();
  state.hasKey = false;
  state.outcome = ZYNInsSignatureOutcome{ZYNInsSignatureNotAsked, DString()};
}
