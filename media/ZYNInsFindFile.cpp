// ZYNInsFindFile.cpp - one folder's entries, each looked at relative to the open folder.
#include "ZYNInsFindFile.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmError.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNInsMsg.h"
#include "ZYNInsRunFault.h"

static void sPushSystemError(DString const& path, int error) {
  DStrings parameters(path, ZYNAdmCodePage::ConvertStrToUcs(std::strerror(error)));
  ZYNAdmError::Push(ZYNInsMsg::BuildMsg(DString(L"\"/P1\" /P2\n"), parameters));
}

static bool sIsDotOrDotDot(DString const& name) {
  unsigned short const* units = name.ConvertToUCChar();
  int length = name.Length();
  if (length == 0 || length > 2 || units[0] != '.') return false;
  return length == 1 || units[1] == '.';
}

// opendir's own flags; O_NONBLOCK keeps a FIFO swapped in for the folder from blocking.
static int const S_folderFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;

ZYNInsFindFile::ZYNInsFindFile(DString path, int typeMask)
    : _type(0),
      _creationTime(0),
      _lastAccessTime(0),
      _lastWriteTime(0),
      _typeMask(typeMask),
      _path(path),
      _handle(nullptr),
      _hasId(false),
      _pathLength(0),
      _failedOpen(false),
      _typesFromListing(false),
      _hasTimes(false),
      _device(0),
      _inode(0) {}

ZYNInsFindFile::~ZYNInsFindFile() { _Close(); }

void ZYNInsFindFile::_Close() {
  _Abandon();
  _hasId = false;
}

int ZYNInsFindFile::GetNextFile() {
  if (_path.IsEmpty()) {
    ZYNAdmError::Push(DString(L"Input path is empty\n"));
    return -1;
  }
  for (;;) {
    int result = GetNext();
    if (result != 1) return result;
    if (sIsDotOrDotDot(_name)) continue;
    if ((_typeMask & _type) != 0) return 1;
  }
}

int ZYNInsFindFile::Open() {
  if (_handle != nullptr) return 1;
  if (_Open() == 1) return 1;
  _failedOpen = true;
  return -1;
}

int ZYNInsFindFile::_Open() {
  ZYNAdmNarrowText narrow(_path);
  if (narrow.IsNull()) {
    ZYNAdmError::Push(DString(L"Null pointer assignment\n"));
    return -1;
  }
  _hasId = false;
  _pathLength = std::strlen(narrow.Get());
  int fd = -1;
  if (_pathLength >= PATH_MAX) {
    errno = ENAMETOOLONG;
  } else {
    fd = open(narrow.Get(), S_folderFlags);
  }
  struct stat folder;
  if (fd < 0 || fstat(fd, &folder) != 0) {
    int error = errno;
    if (fd >= 0) close(fd);
    ZYNInsThrowIfRunFault(error);
    sPushSystemError(_path, error);
    return -1;
  }
  _handle = fdopendir(fd);
  if (_handle == nullptr) {
    int error = errno;
    close(fd);
    ZYNInsThrowIfRunFault(error);
    sPushSystemError(_path, error);
    return -1;
  }
  _hasId = true;
  _device = folder.st_dev;
  _inode = folder.st_ino;
  return 1;
}

bool ZYNInsFindFile::GetFolderId(dev_t& device, ino_t& inode) const {
  if (!_hasId) return false;
  device = _device;
  inode = _inode;
  return true;
}

void ZYNInsFindFile::FailAsLoop() {
  _Close();
  _failedOpen = true;
  sPushSystemError(_path, ELOOP);
}

// After the last or a failed entry the listing ends; a further step starts from the top.
void ZYNInsFindFile::_Abandon() {
  if (_handle != nullptr) closedir(_handle);
  _handle = nullptr;
}

int ZYNInsFindFile::GetNext() {
  if (_failedOpen) {
    _failedOpen = false;
    return -1;
  }
  if (_handle == nullptr && _Open() != 1) return -1;
  // The end of the list and a failed read both give no entry: only errno tells them
  // apart, and a folder that failed half way must not pass for a shorter one.
  errno = 0;
  struct dirent* entry = readdir(_handle);
  if (entry == nullptr) {
    int error = errno;
    _Abandon();
    if (error == 0) return 0;
    sPushSystemError(_path, error);
    return -1;
  }
  _name = ZYNAdmCodePage::ConvertStrToUcs(entry->d_name);

  ZYNAdmNarrowText narrowName(_name);
  if (narrowName.IsNull()) {
    _Abandon();
    ZYNAdmError::Push(DString(L"Null pointer assignment\n"));
    return -1;
  }
  _narrowName.assign(narrowName.Get());

  // A name this long would have been refused as part of a whole path.
  if (_pathLength + 1 + _narrowName.size() >= PATH_MAX) return _FailEntry(ENAMETOOLONG);
  _hasTimes = false;
  bool sameName = _narrowName == entry->d_name;  // else the lookup decides, as it always did
  if (_typesFromListing && sameName && (entry->d_type == DT_REG || entry->d_type == DT_DIR)) {
    _type = entry->d_type == DT_DIR ? 1 : 2;
    return 1;
  }

  // stat, not lstat: a link stands for what it leads to. The name is looked up in the
  // open folder.
  struct stat buffer;
  if (fstatat(dirfd(_handle), _narrowName.c_str(), &buffer, 0) != 0) return _FailEntry(errno);
  switch (buffer.st_mode & S_IFMT) {
    case S_IFDIR:
      _type = 1;
      break;
    case S_IFREG:
      _type = 2;
      break;
    default:
      _type = 0;
      break;
  }
  _lastWriteTime = static_cast<int64_t>(buffer.st_mtime);
  _lastAccessTime = static_cast<int64_t>(buffer.st_atime);
  _creationTime = static_cast<int64_t>(buffer.st_ctime);
  _hasTimes = true;
  return 1;
}

int ZYNInsFindFile::_FailEntry(int error) {
  _Abandon();
  DString fullPath(_path);
  fullPath.Append(DString(L"/"), _name);
  sPushSystemError(fullPath, error);
  return -1;
}
