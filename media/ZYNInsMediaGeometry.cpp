// ZYNInsMediaGeometry.cpp - the path shapes of volumes and reference files.
#include "ZYNInsMediaGeometry.h"

#include "ZYNAdmStdLib.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"

typedef ZYNInsMediaCheckerOptions Options;

DString ZYNInsMediaGeometry::ReferenceName() { return DString(L"MediaContent.xml"); }

DString ZYNInsMediaGeometry::ReferenceTail() { return DString(L"/0data/") + ReferenceName(); }

int ZYNInsMediaGeometry::VolumeCount(ZYNAdmXmlElement const& reference) {
  ZYNAdmXmlElement cds;
  if (ZYNInsMediaCheckerServices::GetFirstElement(reference, DString(L"CDs"), cds) == 0) return -1;
  DString const wanted(L"CD");
  int count = 0;
  for (ZYNAdmXmlElement const& cd : cds.Children()) {
    if (cd.HasName(wanted)) ++count;
  }
  return count;
}

DString ZYNInsMediaGeometry::OuterVolumeText(int cdIndex) {
  return DString::FromNum(Options::GetRelativeAmCdIndex(cdIndex), "%d");
}

DString ZYNInsMediaGeometry::FileTreeVolumePath(int cdIndex) {
  DString path = Options::GetCDsPath() + L"/" + OuterVolumeText(cdIndex);
  if (Options::IsAM())
    path.Append(DString(L"/") + Options::GetAMrelativePath() + L"/", DString::FromNum(cdIndex, "%d"));
  return path;
}

int ZYNInsMediaGeometry::SettleAssemblyMediaPath(DString const& key, DString const& path, DString& candidate) {
  DString sub = Options::GetAMrelativePath() + L"/" + key;
  candidate = path + L"/" + sub;
  // Computed as the comparison of lengths it is, -1 for "no match" included.
  if (path.SearchSubStringBackward(sub, 0) + sub.Length() == path.Length()) return ZYNInsAssemblyPathAsGiven;
  return ZYNAdmStdLib::Exists(candidate) ? ZYNInsAssemblyPathBelow : ZYNInsAssemblyPathMissing;
}
