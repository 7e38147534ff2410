// ZYNAdmEnv.cpp - environment variables as string values.
#include "ZYNAdmEnv.h"

#include <cstdlib>

#include "ZYNAdmCodePage.h"

DString ZYNAdmEnv::GetEnv(DString name) {
  char* narrow = ZYNAdmCodePage::ConvertUcsToStr(name);
  if (narrow == nullptr) return DString();
  DString value = ZYNAdmCodePage::ConvertStrToUcs(std::getenv(narrow));
  ZYNAdmCodePage::FreeAndNull(narrow);
  return value;
}

int ZYNAdmEnv::PutEnv(DString name, DString value) {
  if (name.IsEmpty()) return 0;
  DString assignment(name);
  assignment.Append(DString(L"="), value);
  // putenv keeps the text itself, so it stays allocated.
  char* narrow = ZYNAdmCodePage::ConvertUcsToStr(assignment);
  if (narrow == nullptr) return -1;
  return putenv(narrow);
}
