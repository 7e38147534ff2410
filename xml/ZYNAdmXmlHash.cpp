// ZYNAdmXmlHash.cpp - the seal of a tree.
#include "ZYNAdmXmlHash.h"

#include <atomic>
#include <cstring>
#include <vector>

#include "QRTWorkers.h"
#include "ZYNAdmSHA256.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlParallelDigest.h"
#include "ZYNAdmXmlParser.h"

static const wchar_t S_SealName[] = L"ZYNHachageSomme";
static const wchar_t S_SealPrefix[] = L"SHA256_v1_";

int ZYNAdmXmlHash::Hash(ZYNAdmXmlElement& element) {
  // The seal can't cover its own value: during hashing it holds only the version prefix.
  element.SetAttributeValue(S_SealName, S_SealPrefix);
  ZYNAdmSHA256 digest;
  if (ZYNAdmXmlParallelDigest::GetXml(element, digest) == 0) return 0;
  DString value = digest.GetHash();
  if (value.IsEmpty()) return 0;
  return element.SetAttributeValue(S_SealName, DString(S_SealPrefix) + value) != 0 ? 1 : 0;
}

DString ZYNAdmXmlHash::GetHash(ZYNAdmXmlElement& element) {
  DString seal = element.GetAttributeValue(S_SealName);
  if (seal.IsEmpty()) return seal;
  if (seal.Insert(0, DString(S_SealName) + L"=") == ZYN_E_FAIL) return DString();
  return seal;
}

int ZYNAdmXmlHash::Check(ZYNAdmXmlElement& element) {
  DString old = GetHash(element);
  if (old.IsEmpty()) return ZYNAdmSealMissing;
  // A shallow clone has its own attributes over the same children: the seal can be
  // recomputed without touching the caller's tree or copying it.
  ZYNAdmXmlElement copy = element.Clone(0);
  if (Hash(copy) == 0) return ZYNAdmSealNotComputable;
  return GetHash(copy) == old ? ZYNAdmSealRight : ZYNAdmSealWrong;
}

namespace {

// Lists of children past this count are compared in ranges on every core.
size_t const S_parallelChildren = 4096;
size_t const S_rangeChildren = 1024;

bool sSameUnits(const unsigned short* a, const unsigned short* b, int length) {
  return length == 0 || std::memcmp(a, b, static_cast<size_t>(length) * sizeof(unsigned short)) == 0;
}

bool sSameText(const DString& a, const DString& b) {
  return a.Length() == b.Length() && sSameUnits(a.ConvertToUCChar(), b.ConvertToUCChar(), a.Length());
}

// A value's units, decoded into `room` where it is held compact.
const unsigned short* sUnits(const ZYNAdmXmlElement::StoredValue& value, unsigned short* room) {
  if (value.units != nullptr || value.length == 0) return value.units;
  ZYNAdmXmlElement::DecodeStored(value, room);
  return room;
}

// What the compact form writes of the element itself: its name, its attributes in their
// order, its text. Read as the writer reads them, writing nothing to the elements.
bool sSameElement(const ZYNAdmXmlElement& a, const ZYNAdmXmlElement& b) {
  if (!sSameText(a.GetNameRef(), b.GetNameRef()) || !sSameText(a.GetValueRef(), b.GetValueRef())) return false;
  void* left = a.GetAttributes();
  void* right = b.GetAttributes();
  unsigned short leftRoom[ZYNAdmXmlElement::kStoredMaxUnits];
  unsigned short rightRoom[ZYNAdmXmlElement::kStoredMaxUnits];
  for (;;) {
    ZYNAdmXmlElement::StoredValue leftValue{}, rightValue{};
    const DString* leftName = a.NextStoredAttribute(left, leftValue);
    const DString* rightName = b.NextStoredAttribute(right, rightValue);
    if (leftName == nullptr || rightName == nullptr) return leftName == rightName;
    if (!sSameText(*leftName, *rightName) || leftValue.length != rightValue.length) return false;
    if (!sSameUnits(sUnits(leftValue, leftRoom), sUnits(rightValue, rightRoom), leftValue.length)) return false;
  }
}

std::vector<const ZYNAdmXmlElement*> sChildren(const ZYNAdmXmlElement& element) {
  std::vector<const ZYNAdmXmlElement*> children;
  for (const ZYNAdmXmlElement& child : element.Children()) children.push_back(&child);
  return children;
}

// The whole trees. A long list of children is shared out between the cores where
// `parallel`; below it each range is compared on one thread.
bool sSameTree(const ZYNAdmXmlElement& a, const ZYNAdmXmlElement& b, bool parallel) {
  if (!sSameElement(a, b)) return false;
  std::vector<const ZYNAdmXmlElement*> left = sChildren(a);
  std::vector<const ZYNAdmXmlElement*> right = sChildren(b);
  if (left.size() != right.size()) return false;
  if (!parallel || left.size() < S_parallelChildren) {
    for (size_t i = 0; i < left.size(); ++i) {
      if (!sSameTree(*left[i], *right[i], parallel)) return false;
    }
    return true;
  }
  std::atomic<bool> differ{false};
  QRTForEachRange("xml same", left.size(), S_rangeChildren, [&](size_t first, size_t last) {
    for (size_t i = first; i < last && !differ.load(std::memory_order_relaxed); ++i) {
      if (!sSameTree(*left[i], *right[i], false)) differ.store(true, std::memory_order_relaxed);
    }
  });
  return !differ.load();
}

}  // namespace

bool ZYNAdmXmlHash::TakeSealOfSame(ZYNAdmXmlElement& element, ZYNAdmXmlElement& sealed) {
  DString seal = sealed.GetAttributeValue(S_SealName);
  if (seal.IsEmpty()) return false;
  // Both as Hash reads them, the seal reduced to its prefix: shallow clones, so that
  // neither tree changes.
  ZYNAdmXmlElement mine = element.Clone(0);
  ZYNAdmXmlElement theirs = sealed.Clone(0);
  if (mine.SetAttributeValue(S_SealName, S_SealPrefix) == 0 ||
      theirs.SetAttributeValue(S_SealName, S_SealPrefix) == 0) {
    return false;
  }
  if (!sSameTree(mine, theirs, true)) return false;
  return element.SetAttributeValue(S_SealName, seal) != 0;
}
