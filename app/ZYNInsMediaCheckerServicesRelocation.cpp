// A physical media is checked from a copy of the executable in the temporary folder: the
// volume that holds the running program is one of those the user must change.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmError.h"
#include "ZYNInsDir.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMsg.h"

static const mode_t S_EveryoneMayUse = 0777;

static int sFail(DString const& message) {
  ZYNAdmError::Push(message, ZYNAdmErrorTypeApplication, 0x80004005, 1);
  return 1;
}

static int sFailWithSystemError(DString const& path, int error) {
  return sFail(path + L"\n" + ZYNAdmCodePage::ConvertStrToUcs(std::strerror(error)));
}

// The copy must run whatever permissions the media gave the original.
static int sMakeUsableByAll(DString const& target) {
  FILE* stream = ZYNInsDir::FOpen(target, DString(L"r"));
  if (stream == nullptr) return 1;
  struct stat status;
  if (fstat(fileno(stream), &status) != 0) {
    std::fclose(stream);
    return sFail(DString(L"Internal error"));
  }
  if (fchmod(fileno(stream), status.st_mode | S_EveryoneMayUse) != 0) {
    int error = errno;
    std::fclose(stream);
    return sFailWithSystemError(target, error);
  }
  std::fclose(stream);
  return 0;
}

// Neither the array nor its strings are freed: the process is replaced or ends.
static char** sNarrowArguments(DStrings const& args) {
  int count = args.GetLength();
  char** argv = static_cast<char**>(std::calloc(static_cast<size_t>(count) + 1, sizeof(char*)));
  if (argv == nullptr) return nullptr;
  for (int i = 0; i < count; ++i) {
    argv[i] = ZYNAdmCodePage::ConvertUcsToStr(*args.GetAsPtr(i));
    if (argv[i] == nullptr) return nullptr;
  }
  argv[count] = nullptr;
  return argv;
}

int ZYNInsMediaCheckerServices::RestartFromTempExecutable(DStrings args, DString tempDir) {
  DString folder = tempDir.IsEmpty() ? ZYNInsDir::GetTemporaryPath() : tempDir;
  if (folder.IsEmpty()) return sFail(DString(L"Cannot get the temp directory\n"));
  while (!folder.IsEmpty() && folder[folder.Length() - 1] == L'/') folder = folder.SubStringD(0, folder.Length() - 1);

  DString program;
  args.Get(0, program);
  DString resolved = ZYNInsDir::GetExecutableFullPath(program);
  // Already the copy: there is nothing to move away from.
  if (ZYNInsDir::GetParentDir(resolved) == folder) return 0;

  // The file part keeps its slash, so the target has two ahead of the name; that text is
  // the copy's argv[0] and what it removes at the end, and both work with it.
  DString filePart;
  int slash = resolved.SearchSubStringBackward(DString(L"/"), 0);
  if (slash >= 0) filePart = resolved.SubStringD(slash, resolved.Length());
  DString target = folder + L"/" + filePart;

  DString source = ZYNInsDir::GetExecutableFullPath(resolved);
  if (source.IsEmpty()) return sFail(DString(L"Internal error"));
  if (!ZYNInsDir::FileCopy(source, target)) return 1;
  if (sMakeUsableByAll(target) != 0) return 1;

  args.Remove(0);
  args.PutFront(target);
  char** argv = sNarrowArguments(args);
  if (argv == nullptr) return sFail(DString(L"Internal error"));
  ZYNInsMsg::Debug(DString(L"{ZYNInsMediaCheckerServices::RestartFromTempExecutable} into forked process !"));
  // What is still buffered would be lost with the process image.
  std::fflush(stdout);
  execv(argv[0], argv);
  return sFailWithSystemError(target, errno);
}

bool ZYNInsMediaCheckerServices::RemoveTempExecutable(DString path) { return !ZYNInsDir::RemoveFile(path); }
