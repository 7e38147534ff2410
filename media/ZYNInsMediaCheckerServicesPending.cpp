// Stand-ins for the media operations that this build doesn't carry yet. Each one says
// so plainly and fails, so that no run can end as if it had generated or checked.
#include "DStrings.h"
#include "ZYNAdmError.h"
#include "ZYNInsMediaCheckerServices.h"

static int sUnavailableMode(wchar_t const* message) {
  ZYNAdmError::Push(DString(message));
  ZYNInsMediaCheckerServices::DisplayError(ZYNAdmError::Pop());
  return 2;
}

int ZYNInsMediaCheckerServices::GenerateMode() {
  return sUnavailableMode(L"Generate mode is not available in this build.");
}

int ZYNInsMediaCheckerServices::CheckMode() { return sUnavailableMode(L"Check mode is not available in this build."); }

int ZYNInsMediaCheckerServices::RestartFromTempExecutable(DStrings args, DString tempDir) {
  ZYNAdmError::Push(DString(L"Running from a temporary copy is not available in this build."));
  return 1;
}

bool ZYNInsMediaCheckerServices::RemoveTempExecutable(DString path) {
  ZYNAdmError::Push(DString(L"Removing the temporary copy is not available in this build."));
  return true;
}
