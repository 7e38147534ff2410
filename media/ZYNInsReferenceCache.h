#ifndef ZYN_MEDIA_ZYNINSREFERENCECACHE_H
#define ZYN_MEDIA_ZYNINSREFERENCECACHE_H

// ZYNInsReferenceCache.h - the reference of volume 1, read and its seal tested once per
// run, though the check asks for it three times.

#include <string>

#include "DString.h"

class ZYNAdmXmlElement;

// Remembers the last reference read whole, with the identity of its file (device, inode,
// size, times) taken from the descriptor its bytes came through, and the verdict on its
// seal. The same file, unchanged, gives the same tree again, shared: callers only read
// it, and say Forget before they change it.
class ZYNInsReferenceCache {
 public:
  // What ZYNAdmXmlParser::Parse of the file gives; a tree read before, where the file
  // hasn't changed since.
  static int Parse(DString const& path, ZYNAdmXmlElement& tree);
  // The file read whole through one descriptor: 1 done, 0 missing or unreadable. The
  // bytes can be checked, then parsed by the call below, with no second read between.
  static int Read(DString const& path, std::string& bytes);
  // Parses what the last Read gave, and holds the tree as that file's.
  static int Parse(std::string const& bytes, ZYNAdmXmlElement& tree);
  // What ZYNAdmXmlHash::Check gives; for the tree held, the verdict found before.
  static int Check(ZYNAdmXmlElement& tree);
  // Whether Check found the seal of `tree`, the one held, right.
  static bool IsSealProved(ZYNAdmXmlElement const& tree);
  // The tree held is about to change, or is no longer wanted.
  static void Forget();

  // The reference of volume 1 that identification accepted, its seal tested: the check
  // compares this tree and no other.
  static void Accept(ZYNAdmXmlElement const& tree);
  static bool IsAccepted(ZYNAdmXmlElement const& tree);
  static ZYNAdmXmlElement Accepted();
};

#endif
