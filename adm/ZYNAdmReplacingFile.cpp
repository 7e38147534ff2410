// ZYNAdmReplacingFile.cpp - a file written whole beside its final name, then renamed over it.
#include "ZYNAdmReplacingFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ZYNAdmFolderEntry.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNAdmSetJournal.h"

static const size_t S_WriteBuffer = 256 * 1024;
static const size_t S_WriteAhead = 4 << 20;

static FILE* sFile(long handle) { return reinterpret_cast<FILE*>(handle); }

// ---------------------------------------------------------------------------------------
// Hidden names that exist for a moment: a run stopped by SIGINT, SIGTERM or SIGHUP takes
// them along, so that nothing it leaves beside a reference changes a later check. The
// handler only reads slots that are whole (`used` is set after the name is written).

namespace {
struct SHiddenSlot {
  std::atomic<bool> used;
  char name[4096];
};
SHiddenSlot S_hidden[32];
std::atomic<bool> S_taken[32];
}  // namespace

// While names are made and swapped, a signal waits for the end (on whichever thread it
// came): the set is then whole, old or new, and the names are known.
std::atomic<int> S_holding(0);
std::atomic<int> S_pending(0);

extern "C" void ZYNAdmRemoveHiddenOnSignal(int number) {
  if (S_holding.load() > 0) {
    S_pending.store(number);
    return;
  }
  for (SHiddenSlot& slot : S_hidden) {
    if (slot.used.load()) unlink(slot.name);
  }
  signal(number, SIG_DFL);
  raise(number);
}

namespace {
struct SSignalsHeld {
  SSignalsHeld() { S_holding.fetch_add(1); }
  ~SSignalsHeld() {
    if (S_holding.fetch_sub(1) != 1) return;
    int number = S_pending.exchange(0);
    if (number != 0) ZYNAdmRemoveHiddenOnSignal(number);
  }
};
}  // namespace

static void sInstallHandlers() {
  static std::atomic<bool> S_installed(false);
  if (S_installed.exchange(true)) return;
  for (int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction old;
    if (sigaction(number, nullptr, &old) != 0 || old.sa_handler != SIG_DFL) continue;  // ignored or handled
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = ZYNAdmRemoveHiddenOnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
  }
}

// The slot of `name`, or -1 when all are taken (the name is then only not cleaned up).
static int sRemember(std::string const& name) {
  if (name.size() >= sizeof S_hidden[0].name) return -1;
  sInstallHandlers();
  for (int i = 0; i < 32; ++i) {
    if (S_taken[i].exchange(true)) continue;
    std::memcpy(S_hidden[i].name, name.c_str(), name.size() + 1);
    S_hidden[i].used.store(true);
    return i;
  }
  return -1;
}

static void sForget(int& slot) {
  if (slot < 0) return;
  S_hidden[slot].used.store(false);
  S_taken[slot].store(false);
  slot = -1;
}

// ---------------------------------------------------------------------------------------

// A hidden name beside `path` that no other run or call makes: `.<name>.<pid>.<counter>.<ns>~`.
static std::string sHiddenCandidate(std::string const& path) {
  static std::atomic<unsigned> S_counter(0);
  size_t slash = path.rfind('/');
  std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  char suffix[64];
  std::snprintf(suffix, sizeof suffix, ".%d.%u.%lx~", static_cast<int>(getpid()), S_counter.fetch_add(1),
                static_cast<unsigned long>(now.tv_nsec));
  return folder + "." + name + suffix;
}

// A hidden name for `path` nobody else uses, in the folder `aside` or else beside it;
// `make` creates it (O_EXCL or link), so a file or a link planted there makes us try
// another name rather than use it.
template <typename Make>
static int sBeside(std::string const& path, std::string const& aside, std::string& hidden, Make make) {
  if (!aside.empty()) {
    size_t slash = path.rfind('/');
    int result = sBeside(aside + "/" + (slash == std::string::npos ? path : path.substr(slash + 1)), std::string(),
                         hidden, make);
    if (result >= 0 || (errno != EXDEV && errno != EACCES && errno != EPERM && errno != EROFS)) return result;
  }
  for (int attempt = 0; attempt < 100; ++attempt) {
    hidden = sHiddenCandidate(path);
    int result = make(hidden);
    if (result >= 0 || errno != EEXIST) return result;
  }
  return -1;
}

// A nameless file can be given a name through /proc (or by a privileged process without).
static bool sCanLinkNameless() { return access("/proc/self/fd", X_OK) == 0 || geteuid() == 0; }

// ---------------------------------------------------------------------------------------

ZYNAdmReplacingFile::~ZYNAdmReplacingFile() { Discard(); }

void ZYNAdmReplacingFile::Discard() {
  if (_handle != 0) std::fclose(sFile(_handle));
  _handle = 0;
  if (!_temporary.empty()) unlink(_temporary.c_str());
  _temporary.clear();
  sForget(_slot);
  _flushed = false;
}

int ZYNAdmReplacingFile::Open() {
  Discard();
  sInstallHandlers();  // now, not between the first and the last rename of a set
  _failed = false;
  _put = 0;
  _syncStarted = 0;
  _nameless = false;
  _inPlace = false;
  ZYNAdmNarrowText narrow(_path);
  if (narrow.IsNull()) return 0;
  _final = narrow.Get();
  struct stat existing;
  bool exists = lstat(_final.c_str(), &existing) == 0;
  if (exists && S_ISCHR(existing.st_mode)) {
    FILE* file = std::fopen(_final.c_str(), "wb");
    _handle = reinterpret_cast<long>(file);
    _inPlace = true;
    return file != nullptr ? 1 : 0;
  }
  // A file replaced keeps its permissions, as one rewritten in place would; not one that
  // another user planted (with a mode of their choosing, to edit what we write).
  bool keepMode = exists && S_ISREG(existing.st_mode) && existing.st_uid == geteuid();
  mode_t mode = keepMode ? (existing.st_mode & 0777) : 0666;
  int fd = -1;
  if (sCanLinkNameless()) {
    fd = open(ZYNAdmFolderOf(_final).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, mode);
    _nameless = fd >= 0;
  }
  SSignalsHeld held;
  if (fd < 0) {
    fd = sBeside(_final, _aside, _temporary, [mode](std::string const& name) {
      return open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    });
    if (fd < 0) {
      _temporary.clear();
      return 0;
    }
    _slot = sRemember(_temporary);
  }
  if (keepMode) fchmod(fd, mode);  // the umask may have narrowed it
  FILE* file = fdopen(fd, "wb");
  if (file == nullptr) {
    close(fd);
    Discard();
    return 0;
  }
  // A reference of a million files is 140 MB: written in large pieces, not 4 KiB ones.
  if (!_buffer) _buffer.reset(new char[S_WriteBuffer]);
  setvbuf(file, _buffer.get(), _IOFBF, S_WriteBuffer);
  _handle = reinterpret_cast<long>(file);
  return 1;
}

int ZYNAdmReplacingFile::Write(unsigned char* buffer, int count) {
  if (_handle == 0 || _flushed || count < 0) return -1;
  FILE* file = sFile(_handle);
  size_t put = std::fwrite(buffer, 1, static_cast<size_t>(count), file);
  if (put != static_cast<size_t>(count)) _failed = true;
  _put += put;
  // The device starts on what has left the stream's buffer while the rest is made, so
  // that the flush at the close waits for the last pieces only.
  if (!_inPlace && _put >= _syncStarted + S_WriteBuffer + S_WriteAhead) {
    off_t end = static_cast<off_t>(_put - S_WriteBuffer);
    sync_file_range(fileno(file), static_cast<off_t>(_syncStarted), end - static_cast<off_t>(_syncStarted),
                    SYNC_FILE_RANGE_WRITE);
    _syncStarted = static_cast<size_t>(end);
  }
  return static_cast<int>(put);
}

int ZYNAdmReplacingFile::Close() {
  if (_handle == 0 || _flushed) return 0;
  FILE* file = sFile(_handle);
  if (_inPlace) {
    _handle = 0;
    return std::fclose(file) == 0 && !_failed ? 1 : 0;
  }
  if (_failed || std::fflush(file) != 0 || fsync(fileno(file)) != 0) {
    Discard();
    return 0;
  }
  _flushed = true;
  return _deferred ? 1 : Commit();
}

// Before a commit's journal: the hidden name Name will give a nameless file (where
// sBeside would put it, free now), and the new file's identity.
int ZYNAdmReplacingFile::Plan(struct stat& identity) {
  if (_inPlace || !_flushed || fstat(fileno(sFile(_handle)), &identity) != 0) return 0;
  _planned.clear();
  if (!_nameless) return 1;
  std::string path = _final;
  struct stat aside;
  if (!_aside.empty() && stat(_aside.c_str(), &aside) == 0 && aside.st_dev == identity.st_dev &&
      access(_aside.c_str(), W_OK) == 0) {
    size_t slash = _final.rfind('/');
    path = _aside + "/" + (slash == std::string::npos ? _final : _final.substr(slash + 1));
  }
  for (int attempt = 0; attempt < 100 && _planned.empty(); ++attempt) {
    std::string candidate = sHiddenCandidate(path);
    struct stat taken;
    if (lstat(candidate.c_str(), &taken) != 0 && errno == ENOENT) _planned = candidate;
  }
  return _planned.empty() ? 0 : 1;
}

// Step 1 of a commit: the file under a hidden name beside its path (the planned one, if
// free still).
int ZYNAdmReplacingFile::Name() {
  if (_inPlace || !_flushed) return 0;
  if (_nameless) {
    int fd = fileno(sFile(_handle));
    if (!_planned.empty() && ZYNAdmLinkNameless(fd, _planned) == 0) {
      _temporary = _planned;
    } else if (sBeside(_final, _aside, _temporary,
                       [fd](std::string const& name) { return ZYNAdmLinkNameless(fd, name); }) != 0) {
      _temporary.clear();
      Discard();
      return 0;
    }
    _slot = sRemember(_temporary);
  }
  return 1;
}

// Step 2: the hidden name swapped with the path, where the file system can (the old file
// then stays under the hidden name until Done, for a set that must go back), else
// renamed over it. 1 swapped, 2 renamed over an old file, 3 put where none was, 0 failed.
int ZYNAdmReplacingFile::Rename(bool keepOld) {
  bool none = false;
  if (keepOld) {
    if (renameat2(AT_FDCWD, _temporary.c_str(), AT_FDCWD, _final.c_str(), RENAME_EXCHANGE) == 0) return 1;
    none = errno == ENOENT;
    // Only where there is nothing to swap with, or no swap here, does a rename do instead.
    if (!none && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) {
      Discard();
      return 0;
    }
  }
  if (rename(_temporary.c_str(), _final.c_str()) != 0) {
    Discard();
    return 0;
  }
  _temporary.clear();
  sForget(_slot);
  return none ? 3 : 2;
}

// Step 3: the old file, if kept under the hidden name, goes.
void ZYNAdmReplacingFile::Done() {
  if (!_temporary.empty()) unlink(_temporary.c_str());
  _temporary.clear();
  sForget(_slot);
}

int ZYNAdmReplacingFile::Commit() {
  if (_inPlace) return _handle == 0 ? 1 : 0;
  SSignalsHeld held;
  if (Name() == 0 || Rename(false) == 0) return 0;
  Discard();
  ZYNAdmSyncFolder(_final);
  return 1;
}

// ---------------------------------------------------------------------------------------

ZYNAdmReplacingFile& ZYNAdmReplacingFileSet::Add(DString const& path, DString const& aside) {
  _files.emplace_back(new ZYNAdmReplacingFile(path, true));
  ZYNAdmNarrowText narrow(aside);
  if (!aside.IsEmpty() && !narrow.IsNull()) _files.back()->_aside = narrow.Get();
  return *_files.back();
}

void ZYNAdmReplacingFileSet::SetJournal(DString const& path) {
  ZYNAdmNarrowText narrow(path);
  _journal = path.IsEmpty() || narrow.IsNull() ? std::string() : ZYNAdmSetJournal::Canonical(narrow.Get());
}

// Each file's path, its hidden name and the new file's identity, before any is named:
// a run killed after it leaves no name the journal doesn't list.
int ZYNAdmReplacingFileSet::WriteJournal() {
  if (_journal.empty()) return -1;
  std::vector<ZYNAdmSetJournal::Member> members;
  for (auto& file : _files) {
    ZYNAdmSetJournal::Member member;
    struct stat identity;
    if (file->Plan(identity) == 0) return -1;
    member.final = ZYNAdmSetJournal::Canonical(file->_final);
    member.hidden = ZYNAdmSetJournal::Canonical(file->_nameless ? file->_planned : file->_temporary);
    if (member.final.empty() || member.hidden.empty()) return -1;
    member.device = identity.st_dev;
    member.inode = identity.st_ino;
    members.push_back(member);
  }
  return ZYNAdmSetJournal::Write(_journal, members);
}

int ZYNAdmReplacingFileSet::Recover(DString const& journal, std::vector<DString> const& finals) {
  ZYNAdmNarrowText narrow(journal);
  if (journal.IsEmpty() || narrow.IsNull()) return ZYNAdmSetJournal::None;
  std::vector<std::string> paths;
  for (DString const& final : finals) {
    ZYNAdmNarrowText path(final);
    if (!final.IsEmpty() && !path.IsNull()) paths.push_back(path.Get());
  }
  return ZYNAdmSetJournal::Recover(narrow.Get(), paths);
}

// Every new file is named before the first takes its place, and the old files are swapped
// out rather than dropped until every one is in, so that a swap that fails puts back the
// files already replaced: the old set stays, or the new one is whole. Where the file
// system can't swap, a rename that fails half way leaves a mixed set. Nothing slow lies
// between the first name and the last swap; a run killed there leaves the journal, for
// the next run to finish or undo the swaps.
int ZYNAdmReplacingFileSet::Commit() {
  // Open, the old files are only unnamed at the end, their room freed after it.
  std::vector<int> old;
  for (auto& file : _files) {
    struct stat standing;
    if (lstat(file->_final.c_str(), &standing) == 0 && S_ISDIR(standing.st_mode)) {  // a swap would move it
      _failed = file->_path;
      return 0;
    }
    old.push_back(open(file->_final.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  }
  struct SCloser {
    std::vector<int>& fds;
    ~SCloser() {
      for (int fd : fds) {
        if (fd >= 0) close(fd);
      }
    }
  } closer{old};
  SSignalsHeld held;
  int journal = WriteJournal();
  for (auto& file : _files) {
    if (file->_inPlace || file->Name() == 0) {
      _failed = file->_path;
      for (auto& made : _files) made->Discard();  // before the journal: it would undo them
      if (journal >= 0) ZYNAdmSetJournal::Remove(_journal, journal);
      return 0;
    }
    // A name other than the planned one: the journal would miss it.
    if (journal >= 0 && file->_nameless && file->_temporary != file->_planned) {
      ZYNAdmSetJournal::Remove(_journal, journal);
      journal = -1;
    }
  }
  std::vector<int> done(_files.size(), 0);
  for (size_t i = 0; i < _files.size(); ++i) {
    // A swap that fails drops its new file: a journal left from here on is replayed back.
    done[i] = _files[i]->Rename(true);
    if (done[i] != 0) continue;
    for (size_t j = 0; j < i; ++j) {
      ZYNAdmReplacingFile& file = *_files[j];
      if (done[j] == 1) renameat2(AT_FDCWD, file._temporary.c_str(), AT_FDCWD, file._final.c_str(), RENAME_EXCHANGE);
      if (done[j] == 3) unlink(file._final.c_str());
    }
    _failed = _files[i]->_path;
    for (auto& file : _files) file->Discard();  // the hidden names, holding the new files again
    if (journal >= 0) ZYNAdmSetJournal::Remove(_journal, journal);
    return 0;
  }
  for (auto& file : _files) file->Done();
  for (auto& file : _files) file->Discard();
  for (auto& file : _files) ZYNAdmSyncFolder(file->_final);
  if (journal >= 0) ZYNAdmSetJournal::Remove(_journal, journal);
  return 1;
}
