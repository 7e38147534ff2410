#ifndef ZYN_MEDIA_ZYNINSSIGNATURE_H
#define ZYN_MEDIA_ZYNINSSIGNATURE_H

// ZYNInsSignature.h - the reference signed with the publisher's minisign key (-sign) and
// its signature verified with the key given on the command line (-pubkey).

#include <string>

#include "DString.h"

// What became of the signature of the reference in this run.
enum ZYNInsSignatureKind {
  ZYNInsSignatureNotAsked = 0,  // no -pubkey
  ZYNInsSignatureVerified = 1,
  ZYNInsSignatureMissing = 2,     // no signature file beside the reference
  ZYNInsSignatureMalformed = 3,   // not a minisign signature file
  ZYNInsSignatureOtherKey = 4,    // signed, but by another key
  ZYNInsSignatureBadData = 5,     // the reference is not the one signed
  ZYNInsSignatureBadComment = 6,  // the trusted comment is not the one signed
  ZYNInsSignatureReplaced = 7,    // the reference identified is not the one verified
};

// The kind and the line shown for it (empty for ZYNInsSignatureNotAsked). Reports read it.
struct ZYNInsSignatureOutcome {
  int kind;
  DString sentence;
};

// Static members only: a run signs or verifies one reference.
class ZYNAdmReplacingFile;

class ZYNInsSignature {
 public:
  // "MediaContent.xml.minisig", left out of every walk as the reference is.
  static DString FileName();
  // The signature beside a reference file.
  static DString PathFor(DString const& referencePath);

  // -pubkey: 0 when `key` is minisign's base64 of a public key or a file holding one;
  // else 1 with the reason pushed.
  static int CheckPublicKey(DString const& key);

  // -sign, before the scan: reads the secret key file and unlocks it, asking for the
  // passphrase (on the terminal without echo, else one line of standard input). 0 done,
  // 1 with the reason pushed.
  static int LoadSecretKey(DString const& path);
  // Writes the signature of `bytes`, the reference as written, to `file`, the member of
  // the reference's set at PathFor(referencePath); the comment is the default one unless
  // `commentGiven`. 0 done, 1 with the reason pushed.
  static int WriteSignature(DString const& referencePath, std::string const& bytes, DString const& comment,
                            bool commentGiven, ZYNAdmReplacingFile& file);
  // A signature left beside a reference written without -sign could no longer match.
  // 0 removed or none there, 1 with the reason pushed.
  static int RemoveSignature(DString const& referencePath);

  // -pubkey: the signature beside `referencePath` verified over `bytes`, the reference
  // as read. True when verified; the outcome is kept in any case.
  static bool Verify(DString const& key, DString const& referencePath, std::string const& bytes);
  // The verified reference was not the one identified: the outcome becomes a failure.
  static void SetReplaced(DString const& referencePath);
  static ZYNInsSignatureOutcome Outcome();
  static void Reset();
};

#endif
