// A physical media is checked from a copy of the executable in the temporary folder: the
// volume that holds the running program is one of those the user must change.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmError.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNInsDir.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMsg.h"

// Runnable by all, whatever the media's bits were, but writable by its owner alone:
// anybody else who could write it between the copy and the start would run their code
// as the user who checks.
static const mode_t S_CopyMode = 0755;
static const mode_t S_OwnerOnly = 0700;
static const size_t S_CopyChunk = 16384;

static int sFail(DString const& message) {
  ZYNAdmError::Push(message, ZYNAdmErrorTypeApplication, 0x80004005, 1);
  return 1;
}

static int sFailWithSystemError(DString const& path, int error) {
  return sFail(path + L"\n" + ZYNAdmCodePage::ConvertStrToUcs(std::strerror(error)));
}

static int sFailOnFile(DString const& path, int error) {
  ZYNInsDir::PushSystemError(path, error);
  return 1;
}

static int sCopyBytes(int from, DString const& source, int to, DString const& target) {
  char buffer[S_CopyChunk];
  for (;;) {
    ssize_t got = read(from, buffer, sizeof buffer);
    if (got == 0) return 0;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return sFailOnFile(source, errno);
    for (ssize_t put = 0; put < got;) {
      ssize_t written = write(to, buffer + put, static_cast<size_t>(got - put));
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return sFailOnFile(target, errno);
      put += written;
    }
  }
}

// Whatever stands at the target goes first (a link itself, never what it points to);
// the copy is then created by this run alone. A name taken again in between fails the
// exclusive create instead of being used.
static int sWriteCopy(int from, DString const& source, char const* narrowTarget, DString const& target,
                      struct stat& written) {
  if (unlink(narrowTarget) != 0 && errno != ENOENT) return sFailOnFile(target, errno);
  int to = open(narrowTarget, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_OwnerOnly);
  if (to < 0) return sFailOnFile(target, errno);
  if (sCopyBytes(from, source, to, target) != 0) {
    close(to);
    return 1;
  }
  if (fchmod(to, S_CopyMode) != 0 || fstat(to, &written) != 0) {
    int error = errno;
    close(to);
    return sFailWithSystemError(target, error);
  }
  if (close(to) != 0) return sFailWithSystemError(target, errno);
  return 0;
}

// Leaves in `copy` a descriptor on the very file this run wrote, to be started as it
// is. A file still open for writing can't be started, hence the second open; the device
// and inode prove that nothing took the name in between.
static int sCopyForStart(DString const& source, DString const& target, int& copy) {
  ZYNAdmNarrowText narrowSource(source);
  ZYNAdmNarrowText narrowTarget(target);
  if (narrowSource.IsNull() || narrowTarget.IsNull()) return sFail(DString(L"Internal error"));
  int from = open(narrowSource.Get(), O_RDONLY | O_CLOEXEC);
  if (from < 0) return sFailOnFile(source, errno);
  struct stat written;
  int copied = sWriteCopy(from, source, narrowTarget.Get(), target, written);
  close(from);
  if (copied != 0) return 1;
  copy = open(narrowTarget.Get(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (copy < 0) return sFailOnFile(target, errno);
  struct stat opened;
  if (fstat(copy, &opened) != 0 || opened.st_dev != written.st_dev || opened.st_ino != written.st_ino) {
    close(copy);
    return sFail(DString(L"Internal error"));
  }
  return 0;
}

// Freed only where the process could not be replaced.
static void sFreeArguments(char** argv) {
  for (char** arg = argv; *arg != nullptr; ++arg) ZYNAdmCodePage::FreeAndNull(*arg);
  std::free(argv);
}

static char** sNarrowArguments(DStrings const& args) {
  int count = args.GetLength();
  char** argv = static_cast<char**>(std::calloc(static_cast<size_t>(count) + 1, sizeof(char*)));
  if (argv == nullptr) return nullptr;
  for (int i = 0; i < count; ++i) {
    argv[i] = ZYNAdmCodePage::ConvertUcsToStr(*args.GetAsPtr(i));
    if (argv[i] == nullptr) {
      sFreeArguments(argv);
      return nullptr;
    }
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
  int copy = -1;
  if (sCopyForStart(source, target, copy) != 0) return 1;

  args.Remove(0);
  args.PutFront(target);
  char** argv = sNarrowArguments(args);
  if (argv == nullptr) {
    close(copy);
    return sFail(DString(L"Internal error"));
  }
  ZYNInsMsg::Debug(DString(L"{ZYNInsMediaCheckerServices::RestartFromTempExecutable} into forked process !"));
  // What is still buffered would be lost with the process image.
  std::fflush(stdout);
  fexecve(copy, argv, environ);
  int error = errno;
  sFreeArguments(argv);
  // A copy that can't be started (a temporary folder mounted noexec) is of no use to
  // anybody: removed, if the name still holds it.
  struct stat ours, named;
  ZYNAdmNarrowText narrowTarget(target);
  if (!narrowTarget.IsNull() && fstat(copy, &ours) == 0 && lstat(narrowTarget.Get(), &named) == 0 &&
      ours.st_dev == named.st_dev && ours.st_ino == named.st_ino) {
    unlink(narrowTarget.Get());
  }
  close(copy);
  return sFailWithSystemError(target, error);
}

// Two checks of one media share the copy's name: the one that starts second replaces the
// other's copy (which runs on, from its descriptor). Each removes the name only while it
// still holds the program this run executes, and a copy already gone is no failure.
bool ZYNInsMediaCheckerServices::RemoveTempExecutable(DString path) {
  ZYNAdmNarrowText narrow(path);
  if (narrow.IsNull()) return !ZYNInsDir::RemoveFile(path);
  struct stat named, running;
  if (lstat(narrow.Get(), &named) != 0 && errno == ENOENT) return false;
  if (stat("/proc/self/exe", &running) == 0 && (named.st_dev != running.st_dev || named.st_ino != running.st_ino)) {
    return false;
  }
  return !ZYNInsDir::RemoveFile(path);
}
