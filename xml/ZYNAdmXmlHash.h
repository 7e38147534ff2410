#ifndef ZYN_XML_ZYNADMXMLHASH_H
#define ZYN_XML_ZYNADMXMLHASH_H

#include "DString.h"

class ZYNAdmXmlElement;

// Results of ZYNAdmXmlHash::Check.
enum ZYNAdmSealCheck {
  ZYNAdmSealNotComputable = -1,
  ZYNAdmSealMissing = 0,
  ZYNAdmSealRight = 1,
  ZYNAdmSealWrong = 2,
};

// The seal of a tree: the root attribute "ZYNHachageSomme" holds "SHA256_v1_" and the
// SHA-256 of the tree's compact form, taken while the attribute holds the bare prefix.
// It covers the tree and not a file's bytes, so line ends and indentation added on
// writing, or comments added later, don't break it.
class ZYNAdmXmlHash {
 public:
  // Seals `element` in place; sealing again gives the same value. 1 success, 0 failure
  // (the attribute then keeps the bare prefix).
  static int Hash(ZYNAdmXmlElement& element);
  // "ZYNHachageSomme=" and the seal, for comparing the seals of two trees; empty where
  // there is none.
  static DString GetHash(ZYNAdmXmlElement& element);
  // A ZYNAdmSealCheck. `element` isn't changed.
  static int Check(ZYNAdmXmlElement& element);
  // Where `element`, its seal aside, is the same tree as `sealed`, whose seal the caller
  // has proved right with Check, gives `element` that seal as Hash would, without hashing
  // it, and returns true; false, `element` unchanged, where they differ. Long lists of
  // children are compared on every core.
  static bool TakeSealOfSame(ZYNAdmXmlElement& element, ZYNAdmXmlElement& sealed);
};

#endif
