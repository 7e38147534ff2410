// Where the volumes of a file tree stand and where their reference files go.
#include "DStrings.h"
#include "ZYNAdmError.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNInsFindFile.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMediaGeometry.h"
#include "ZYNInsMsg.h"

typedef ZYNInsMediaCheckerOptions Options;

static int sCompareNames(DString const* a, DString const* b) { return DString::Compare(a, b); }

DString ZYNInsMediaCheckerServices::GetRefFilePath() { return ZYNInsMediaGeometry::ReferenceTail(); }

DString ZYNInsMediaCheckerServices::GetRefFilePath(DString base, int cdIndex) {
  int relative = Options::GetRelativeAmCdIndex(cdIndex);
  DStrings names;
  if (GetCDsList(names) != 1) return DString();
  DString folder;
  names.Get(relative - 1, folder);
  DString path(base);
  path.Append(DString(L"/"), folder, ZYNInsMediaGeometry::ReferenceTail());
  return path;
}

int ZYNInsMediaCheckerServices::GetCDsList(DStrings& names) {
  names.Clear();
  DString cdsPath = Options::GetCDsPath();
  DStrings found;
  ZYNInsFindFile finder(cdsPath, 1);
  for (;;) {
    int step = finder.GetNextFile();
    if (step == -1) return -1;
    if (step == 0) break;
    found.PutBack(finder.GetName());
  }
  found.Sort(sCompareNames);

  // Only the first name is examined: in a lexical order "10" comes before "2", so the
  // others are derived from the count alone.
  DString first;
  found.Get(0, first);
  if (found.IsEmpty() || first.IsEmpty() || first[first.Length() - 1] != L'1') {
    DString text =
        ZYNInsMsg::BuildMsg(DString(L"\"/P1\": a directory is missing or has an invalid name.\n"
                                    L"Check that all the CDs are copied in directories named\n"
                                    L"\"<constant_prefix>1\", \"<constant_prefix>2\",..., \"<constant_prefix>n\"\n"
                                    L"and no other directory is present.\n"),
                            DStrings(cdsPath));
    ZYNAdmError::Push(text, ZYNAdmErrorTypeApplication, 0x80004005, 1);
    return 0;
  }
  DString prefix = first.SubStringD(0, first.Length() - 1);
  names.PutBack(first);
  int count = found.GetLength();
  for (int i = 2; i <= count; ++i) names.PutBack(prefix + DString::FromNum(i, "%d"));
  return 1;
}

int ZYNInsMediaCheckerServices::GetFirstElement(ZYNAdmXmlElement parent, DString name, ZYNAdmXmlElement& found) {
  for (const ZYNAdmXmlElement& child : parent.Children()) {
    if (name.IsEmpty() || child.HasName(name)) {
      found = child;
      return 1;
    }
  }
  found = parent;
  return 0;
}
