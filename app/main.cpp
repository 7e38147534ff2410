// main.cpp - the run sequence: options, then generate, check or the relaunch.
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <new>
#include <system_error>

#include "DString.h"
#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmEnv.h"
#include "ZYNAdmError.h"
#include "ZYNInsExitKeep.h"
#include "ZYNInsFindings.h"
#include "ZYNInsFindingsFiles.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMsg.h"
#include "ZYNInsSerialShare.h"

typedef ZYNInsMediaCheckerOptions Options;
typedef ZYNInsMediaCheckerServices Services;

// Memory can run out before main (the library's own texts are made then) or on a thread
// whose entry lets it through: the run still ends with the usual block and status 2,
// never an abort. Installed ahead of every static initialiser.
[[noreturn]] static void sTerminate() {
  static char const S_Block[] = "\n\nError\nInternal error\n\n";
  std::fflush(stdout);
  if (write(STDOUT_FILENO, S_Block, sizeof S_Block - 1) < 0) _exit(2);
  _exit(2);
}
__attribute__((constructor(101))) static void sInstallTerminate() { std::set_terminate(sTerminate); }

// Leaves time to attach a debugger before anything else happens.
static void sDebugWait() {
  if (ZYNAdmEnv::GetEnv(DString(L"ZYN_DEBUG_WAIT")).IsEmpty()) return;
  ZYNInsMsg::Debug(DString(L"[DEBUG]waiting 20000ms ..."));
  sleep(20);
}

static DStrings sArguments(int argc, char** argv) {
  DStrings args;
  for (int i = 0; i < argc; ++i) {
    if (argv[i] != nullptr) args.PutBack(ZYNAdmCodePage::ConvertStrToUcs(argv[i]));
  }
  return args;
}

static int sDisplayFailure() {
  DString reason = ZYNAdmError::Pop();
  ZYNInsFindings::Add(ZYNInsFindingError, 0, DString(), reason);
  Services::DisplayError(reason);
  return 2;
}

// Started from a physical media, the window would close with the run: keep the message
// readable until the user has seen it.
static int sRefuseOptions() {
  sDisplayFailure();
  if (!Options::IsQuiet() && Options::IsPhysicalCD()) {
    ZYNInsMsg::TracePrint(DString(L"\nPress Enter to finish\n"));
    // A program reading through a pipe must see the line before the wait.
    std::fflush(stdout);
    std::getchar();
  }
  return 2;
}

// The volume holding the executable has to be changed during the check, so the check
// runs from a copy; -CD1Path and -dup tell the copy where the media is and who it is.
static int sRelaunchFromTemporaryCopy(DStrings args) {
  if (args.Find(DString(L"-CD1Path"), 0) < 0) {
    args.PutBack(DString(L"-CD1Path"));
    args.PutBack(Options::GetCD1Path());
  }
  if (args.Find(DString(L"-dup"), 0) < 0) args.PutBack(DString(L"-dup"));
  if (Services::RestartFromTempExecutable(args, DString()) != 0) return sDisplayFailure();
  // Reached only where the executable already stands in the temporary folder: check in
  // place, as the copy would, parsing the same line; the file is not ours to remove.
  int parsed = Options::ProcessOptions(args);
  if (parsed != 0) return sRefuseOptions();
  return Services::CheckMode();
}

static int sCheck(DStrings const& args) {
  int status = Services::CheckMode();
  if (!Options::IsPhysicalCD() || !Options::HasBeenDuplicated()) return status;
  DString copy;
  args.Get(0, copy);
  if (Services::RemoveTempExecutable(copy)) return sDisplayFailure();
  return status;
}

static int sRun(int argc, char** argv) {
  ZYNInsExitKeep::Enable();  // the process ends right after the run: no tree taken apart
  DStrings args = sArguments(argc, argv);
  int parsed = Options::ProcessOptions(args);
  if (parsed == ZYNInsOptionsHelpShown) return 0;
  if (parsed != ZYNInsOptionsGoOn) return sRefuseOptions();
  ZYNInsFindingsFiles::Begin();
  if (Options::IsGenerateMode()) return ZYNInsFindingsFiles::Finish(Services::GenerateMode());
  if (Options::IsPhysicalCD() && !Options::HasBeenDuplicated()) {
    return ZYNInsFindingsFiles::Finish(sRelaunchFromTemporaryCopy(args));
  }
  return ZYNInsFindingsFiles::Finish(sCheck(args));
}

// Memory runs out only on input far beyond any media (a huge or endless file): the run
// ends as any other internal failure, not on an uncaught exception.
int main(int argc, char** argv) {
  sDebugWait();
  ZYNInsSerialShare::EnableFromEnvironment();
  try {
    return sRun(argc, argv);
  } catch (std::bad_alloc const&) {
    Services::DisplayError(DString(L"Internal error"));
    return 2;
  } catch (std::system_error const&) {
    // Descriptors ran short: the run, not the media, failed.
    Services::DisplayError(DString(L"Internal error: too many open files"));
    return 2;
  }
}
