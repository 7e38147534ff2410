#include "DString.h"
#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmError.h"
#include "ZYNInsMediaCheckerServices.h"

int main(int argc, char** argv) {
  DStrings args;
  for (int i = 0; i < argc; ++i) {
    if (argv[i] != nullptr) args.PutBack(ZYNAdmCodePage::ConvertStrToUcs(argv[i]));
  }
  ZYNAdmError::Push(DString(L"The command line is not processed yet."));
  ZYNInsMediaCheckerServices::DisplayError(ZYNAdmError::Pop());
  return 2;
}
