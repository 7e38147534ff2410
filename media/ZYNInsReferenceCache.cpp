// ZYNInsReferenceCache.cpp - one reading of an unchanged reference file per run.
#include "ZYNInsReferenceCache.h"

#include <sys/stat.h>

#include "ZYNAdmMemoryInput.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNAdmWholeFile.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNAdmXmlParser.h"
#include "ZYNInsRunFault.h"

namespace {

struct SFileIdentity {
  bool known = false;
  struct stat status;

  bool operator==(SFileIdentity const& other) const {
    if (!known || !other.known) return false;
    struct stat const& a = status;
    struct stat const& b = other.status;
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
           a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
  }
};

struct SCached {
  SFileIdentity identity;
  SFileIdentity lastRead;  // the file of the last Read, until its bytes are parsed
  ZYNAdmXmlElement tree;
  ZYNAdmXmlElement accepted;
  int seal = 0;  // the Check verdict once known; 0 before
  bool sealKnown = false;
};

}  // namespace

static SCached& sCached() {
  static SCached* cached = new SCached();  // left to the end of the process, as statics are
  return *cached;
}

static SFileIdentity sIdentity(DString const& path) {
  SFileIdentity identity;
  ZYNAdmNarrowText narrow(path);
  if (narrow.IsNull() || stat(narrow.Get(), &identity.status) != 0) return identity;
  identity.known = S_ISREG(identity.status.st_mode);
  return identity;
}

int ZYNInsReferenceCache::Read(DString const& path, std::string& bytes) {
  SCached& cached = sCached();
  cached.lastRead = SFileIdentity();
  struct stat status;
  int error = ZYNAdmReadWholeFile(path, static_cast<std::size_t>(-1), bytes, status);
  // No descriptor left is the run's fault, not a reference missing.
  ZYNInsThrowIfRunFault(error);
  if (error != 0) return 0;
  cached.lastRead.status = status;
  cached.lastRead.known = true;
  return 1;
}

int ZYNInsReferenceCache::Parse(std::string const& bytes, ZYNAdmXmlElement& tree) {
  SCached& cached = sCached();
  ZYNAdmMemoryInput input(bytes.data(), bytes.size());
  int result = ZYNAdmXmlParser::Parse(input, tree);
  if (result != 1 || !cached.lastRead.known) return result;
  cached.identity = cached.lastRead;
  cached.lastRead = SFileIdentity();
  cached.tree = tree;
  cached.sealKnown = false;
  return result;
}

int ZYNInsReferenceCache::Parse(DString const& path, ZYNAdmXmlElement& tree) {
  SCached& cached = sCached();
  if (!cached.tree.IsEmpty() && sIdentity(path) == cached.identity) {
    tree = cached.tree;
    return 1;
  }
  std::string bytes;
  if (Read(path, bytes) == 0) return 0;
  return Parse(bytes, tree);
}

// Whether `tree` is the one the cache holds, not only a tree read from the same file.
static bool sIsHeld(SCached const& cached, ZYNAdmXmlElement const& tree) {
  return !cached.tree.IsEmpty() && ZYNAdmXmlElement::_BodyOf(tree) == ZYNAdmXmlElement::_BodyOf(cached.tree);
}

int ZYNInsReferenceCache::Check(ZYNAdmXmlElement& tree) {
  SCached& cached = sCached();
  bool held = sIsHeld(cached, tree);
  if (held && cached.sealKnown) return cached.seal;
  int seal = ZYNAdmXmlHash::Check(tree);
  if (!held) return seal;
  cached.seal = seal;
  cached.sealKnown = true;
  return seal;
}

bool ZYNInsReferenceCache::IsSealProved(ZYNAdmXmlElement const& tree) {
  SCached const& cached = sCached();
  return sIsHeld(cached, tree) && cached.sealKnown && cached.seal == ZYNAdmSealRight;
}

void ZYNInsReferenceCache::Forget() {
  SCached& cached = sCached();
  cached.tree.Reset();
  cached.identity = SFileIdentity();
  cached.lastRead = SFileIdentity();
  cached.sealKnown = false;
}

void ZYNInsReferenceCache::Accept(ZYNAdmXmlElement const& tree) { sCached().accepted = tree; }

bool ZYNInsReferenceCache::IsAccepted(ZYNAdmXmlElement const& tree) {
  ZYNAdmXmlElement const& accepted = sCached().accepted;
  return !accepted.IsEmpty() && ZYNAdmXmlElement::_BodyOf(accepted) == ZYNAdmXmlElement::_BodyOf(tree);
}

ZYNAdmXmlElement ZYNInsReferenceCache::Accepted() { return sCached().accepted; }
