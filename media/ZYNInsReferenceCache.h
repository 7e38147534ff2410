#ifndef ZYN_MEDIA_ZYNINSREFERENCECACHE_H
#define ZYN_MEDIA_ZYNINSREFERENCECACHE_H

// ZYNInsReferenceCache.h - the reference of volume 1, read and its seal tested once per
// run, though the check asks for it three times.

#include "DString.h"

class ZYNAdmXmlElement;

// Remembers the last reference read whole, with the identity of its file (device, inode,
// size, times) and the verdict on its seal. The same file, unchanged, gives the same tree
// again, shared: callers only read it, and say Forget before they change it.
class ZYNInsReferenceCache {
 public:
  // What ZYNAdmXmlParser::Parse of the file gives; a tree read before, where the file
  // hasn't changed since.
  static int Parse(DString const& path, ZYNAdmXmlElement& tree);
  // What ZYNAdmXmlHash::Check gives; for the tree held, the verdict found before.
  static int Check(ZYNAdmXmlElement& tree);
  // The tree held is about to change, or is no longer wanted.
  static void Forget();
};

#endif
