// ZYNAdmMsgCatalog.cpp - the message catalogue: keys and their parameters.
#include "ZYNAdmMsgCatalog.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"

static void sWriteLine(char const* text) {
  std::fwrite(text, 1, std::strlen(text), stdout);
  std::fputc('\n', stdout);
}

// The diagnostic switch is read once per process; -10 means not consulted yet.
static int ZYNDumpBuildMessageActivated() {
  static int activated = -10;
  if (activated != -10) return activated;
  activated = std::getenv("ZYNDumpBuildMessage") != nullptr ? 1 : 0;
  if (activated == 1) sWriteLine("ZYNDumpBuildMessage activated");
  return activated;
}

DString ZYNAdmMsgCatalog::BuildMessage(DString catalog, DString key, DStrings const* parameters,
                                       unsigned char* defaultUsed) {
  if (defaultUsed != nullptr) *defaultUsed = 1;
  DString result(catalog);
  result.Append(DString(L"."), key, DString(L"("));
  int count = parameters == nullptr ? 0 : parameters->GetLength();
  for (int i = 0; i < count; ++i) {
    if (i > 0) result.Append(DString(L", "));
    result.Append(*parameters->GetAsPtr(i));
  }
  result.Append(L')');
  if (ZYNDumpBuildMessageActivated() != 1) return result;

  DString line(L"ZYNDumpBuildMessage_default=`");
  line.Append(result, DString(L"`msg=`"), result);
  if (defaultUsed == nullptr) {
    line.Append(DString(L"`bool_not_asked"));
  } else if (*defaultUsed == 1) {
    line.Append(DString(L"`bool_asked_and_default_msg_IS_used"));
  } else {
    line.Append(DString(L"`bool_asked_and_default_msg_is_NOT_used"));
  }
  char* narrow = ZYNAdmCodePage::ConvertUcsToStr(line);
  if (narrow != nullptr) sWriteLine(narrow);
  ZYNAdmCodePage::FreeAndNull(narrow);
  return result;
}
