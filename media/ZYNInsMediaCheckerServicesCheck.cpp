// Check mode: the reference of volume 1, identified and of this tool's version, against a
// fresh scan of the media; file by file only where the two seals differ.
#include <string>

#include "DStrings.h"
#include "ZYNAdmError.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNInsExitKeep.h"
#include "ZYNInsFindings.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMediaGeometry.h"
#include "ZYNInsMsg.h"
#include "ZYNInsReferenceCache.h"
#include "ZYNInsSignature.h"

typedef ZYNInsMediaCheckerOptions Options;
typedef ZYNInsMediaCheckerServices Services;

static const wchar_t S_ToolVersion[] = L"1.1";

// Volume 1 is read ahead while its reference is read and proved; whatever way the check
// ends, the reading stops.
class SReadAheadScope {
 public:
  SReadAheadScope() { Services::StartReadAhead(); }
  ~SReadAheadScope() { Services::StopReadAhead(); }
  SReadAheadScope(SReadAheadScope const&) = delete;
  SReadAheadScope& operator=(SReadAheadScope const&) = delete;
};

// A run that stops before its verdict still leaves its reason in a report.
static int sStop(DString const& reason, DString const& relData) {
  Services::DisplayError(reason);
  Services::Finalize(reason, relData);
  return 2;
}

// The same, the reason also a finding of the run.
static int sStop(ZYNInsFindingKind kind, DString const& path, DString const& reason, DString const& relData) {
  ZYNInsFindings::Add(kind, 1, path, reason);
  return sStop(reason, relData);
}

static int sCancelled() {
  ZYNInsFindings::Add(ZYNInsFindingCancelled, 0, DString(), DString(L"The check was cancelled at a volume prompt\n"));
  return 2;
}

// A reference whose signature fails is a finding of the run: status 1, no volume scanned.
static int sSignatureFailed(DString const& refPath) {
  DString sentence = ZYNInsSignature::Outcome().sentence;
  ZYNInsMsg::TracePrint(sentence + L"\n");
  ZYNInsFindings::Add(ZYNInsFindingSignature, 1, ZYNInsSignature::PathFor(refPath), sentence);
  return Services::Finalize(sentence, DString());
}

int ZYNInsMediaCheckerServices::CheckMode() {
  ZYNInsMsg::Debug(DString(L"{ZYNInsMediaCheckerServices::CheckMode}start checking process ..."));
  // A regeneration killed while it swapped the set in left its journal beside the volume
  // folders: the set is made whole first, so that the verdict is the media's own.
  if (!Options::IsPhysicalCD()) {
    RecoverReferenceSet(Options::GetExternalFolder().IsEmpty() ? Options::GetCDsPath() : Options::GetExternalFolder());
  }
  SReadAheadScope readAhead;
  DString base = Options::GetExternalFolder().IsEmpty() ? Options::GetCD1Path() : Options::GetExternalFolder() + L"/1";
  DString refPath = base + L"/" + ZYNInsMediaGeometry::ReferenceTail();
  ZYNInsMsg::Debug(DString(L"{ZYNInsMediaCheckerServices::CheckMode} computed reffile path : ") + refPath);

  ZYNAdmXmlElement reference;
  ZYNInsExitKeep keepReference(reference);
  ZYNInsReferenceCache::Accept(ZYNAdmXmlElement());
  // Read once: the bytes whose signature holds are the bytes parsed.
  std::string bytes;
  bool read = ZYNInsReferenceCache::Read(refPath, bytes) != 0;
  DString publicKey = Options::GetPublicKey();
  if (read && !publicKey.IsEmpty()) {
    if (!ZYNInsSignature::Verify(publicKey, refPath, bytes)) return sSignatureFailed(refPath);
    ZYNInsMsg::TracePrint(ZYNInsSignature::Outcome().sentence + L"\n");
  }
  if (!read || ZYNInsReferenceCache::Parse(bytes, reference) == 0) {
    DString missing(L"\n\"/P1\" input file is missing or cannot be accessed");
    return sStop(ZYNInsFindingReference, refPath, ZYNInsMsg::BuildMsg(missing, DStrings(refPath)), DString());
  }
  std::string().swap(bytes);
  // The file is trusted only once volume 1 has proved to be the media's first.
  int identified = CheckIfCorrectCD(1, DString(), DString());
  if (identified == ZYNInsVolumeCancelled) return sCancelled();
  if (identified != ZYNInsVolumeRight) {
    bool sealed = ZYNInsReferenceCache::Check(reference) == ZYNAdmSealRight;
    return sStop(sealed ? ZYNInsFindingUnidentified : ZYNInsFindingReference, sealed ? DString() : refPath,
                 ZYNAdmError::Pop(), DString());
  }
  // The tree compared is the one whose seal held, though the file was replaced or
  // another one typed in between; a signed one must be the one verified.
  if (!ZYNInsReferenceCache::IsAccepted(reference)) {
    if (!publicKey.IsEmpty()) {
      ZYNInsSignature::SetReplaced(refPath);
      return sSignatureFailed(refPath);
    }
    reference = ZYNInsReferenceCache::Accepted();
  }
  DString version = reference.GetAttributeValue(DString(L"checkerVersion"));
  if (version != DString(S_ToolVersion)) {
    DString invalid(L"Invalid tool version\n\nInput file: /P1\nTool: /P2\n");
    return sStop(ZYNInsFindingReference, refPath,
                 ZYNInsMsg::BuildMsg(invalid, DStrings(version, DString(S_ToolVersion))), DString());
  }
  // A volume the media lacks would be skipped without a word and the check pass on
  // nothing: refused as any invalid -cds value is, before a volume is scanned.
  // Without CDs the scan reports the reference in its own words.
  int volumes = ZYNInsMediaGeometry::VolumeCount(reference);
  if (volumes >= 0 && Options::CheckCDsToCheck(volumes) != 0) {
    DString refused = ZYNAdmError::Pop();
    ZYNInsFindings::Add(ZYNInsFindingRefused, 0, DString(), refused);
    DisplayError(refused);
    return 2;
  }
  DString relData;
  GetRelData(reference, relData);

  // The scan reads the tree it is given, then lets go of it for a tree of its own: a
  // shallow copy keeps the reference whole without copying its elements.
  ZYNAdmXmlElement view = reference.Clone(0);
  ZYNInsExitKeep keepView(view);
  DString errors;
  int scanned = GetMediaXmlView(view, errors);
  if (scanned == ZYNInsScanCancelled) return sCancelled();
  // The scan records what it finds (a volume not identified); a failure before the
  // first volume is recorded here.
  if (scanned != ZYNInsScanDone && ZYNInsFindings::Total() == 0)
    ZYNInsFindings::Add(ZYNInsFindingError, 0, DString(), errors);
  if (scanned != ZYNInsScanDone) return sStop(errors, relData);
  ZYNInsMsg::TracePrint(DString(L"{Finalizing verifications ...}\n"));
  // A scanned tree that is the reference's, element for element, has the same compact
  // form and so the seal proved right when the reference was read: it is taken without
  // hashing the tree again. A seal that can't be made fails the check as a difference
  // would, with no console message of its own.
  bool same = ZYNInsReferenceCache::IsSealProved(reference) && ZYNAdmXmlHash::TakeSealOfSame(view, reference);
  if (!same && ZYNAdmXmlHash::Hash(view) == 0) {
    ZYNInsFindings::Add(ZYNInsFindingError, 0, DString(), DString(L"Internal error"));
    return Finalize(DString(L"Internal error"), relData);
  }
  if (ZYNAdmXmlHash::GetHash(view) != ZYNAdmXmlHash::GetHash(reference)) {
    ZYNInsReferenceCache::Forget();  // the comparison takes the elements out of the reference
    GetErrors(reference, view, errors);
  }
  return Finalize(errors, relData);
}
