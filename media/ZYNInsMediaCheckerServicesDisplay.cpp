// ZYNInsMediaCheckerServicesDisplay.cpp - the error stack shown on the console as one block.
#include "DStrings.h"
#include "ZYNAdmError.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMsg.h"

void ZYNInsMediaCheckerServices::DisplayError(DString message) {
  DString text(message);
  while (!ZYNAdmError::IsStackEmpty()) {
    if (text.IsEmpty()) {
      text = ZYNAdmError::Pop();
      continue;
    }
    DString older = ZYNAdmError::Pop();
    older.Append(L'\n');
    text.Insert(0, older);
  }
  DString block = ZYNInsMsg::BuildMsg(DString(L"\n\nError\n/P1\n\n"), DStrings(text));
  ZYNInsMsg::TracePrint(block);
  ZYNInsMsg::Debug(DString(L"{ZYNInsMediaCheckerServices::DisplayError}") + block);
}
