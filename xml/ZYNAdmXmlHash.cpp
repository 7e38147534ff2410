// ZYNAdmXmlHash.cpp - the seal of a tree.
#include "ZYNAdmXmlHash.h"

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
