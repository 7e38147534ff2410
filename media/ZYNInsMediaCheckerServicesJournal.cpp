// The journal of the reference set: where a regeneration records its swaps, and the
// replay of one that a killed run left.
#include <sys/stat.h>

#include <vector>

#include "DStrings.h"
#include "ZYNAdmError.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNAdmReplacingFile.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMediaGeometry.h"
#include "ZYNInsSignature.h"

DString ZYNInsMediaCheckerServices::GetJournalPath(DString const& base) {
  return base + L"/." + ZYNInsMediaGeometry::ReferenceName() + L".journal";
}

void ZYNInsMediaCheckerServices::RecoverReferenceSet(DString const& base) {
  if (base.IsEmpty()) return;
  DString journal = GetJournalPath(base);
  ZYNAdmNarrowText narrow(journal);
  struct stat info;
  if (narrow.IsNull() || lstat(narrow.Get(), &info) != 0) return;  // the usual case: no folder listed
  // The files a regeneration of this media puts in its set, as it names them; the
  // listing's failure is the run's own to report later, in its own words.
  int before = ZYNAdmError::GetStackSize();
  DStrings names;
  std::vector<DString> finals;
  if (GetCDsList(names) == 1) {
    for (int i = 1; i <= names.GetLength(); ++i) finals.push_back(GetRefFilePath(base, i));
    finals.push_back(ZYNInsSignature::PathFor(finals.front()));
  }
  while (ZYNAdmError::GetStackSize() > before) ZYNAdmError::Pop();
  if (!finals.empty()) ZYNAdmReplacingFileSet::Recover(journal, finals);
}
