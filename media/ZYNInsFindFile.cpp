#include "ZYNInsFindFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmError.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNInsMsg.h"

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

ZYNInsFindFile::ZYNInsFindFile(DString path, int typeMask)
    : _type(0),
      _creationTime(0),
      _lastAccessTime(0),
      _lastWriteTime(0),
      _typeMask(typeMask),
      _path(path),
      _handle(nullptr),
      _prefixLength(0) {}

ZYNInsFindFile::~ZYNInsFindFile() {
  if (_handle != nullptr) closedir(_handle);
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

int ZYNInsFindFile::_Open() {
  ZYNAdmNarrowText narrow(_path);
  if (narrow.IsNull()) {
    ZYNAdmError::Push(DString(L"Null pointer assignment\n"));
    return -1;
  }
  _handle = opendir(narrow.Get());
  if (_handle == nullptr) {
    sPushSystemError(_path, errno);
    return -1;
  }
  _entryPath.assign(narrow.Get());
  _entryPath += '/';
  _prefixLength = _entryPath.size();
  return 1;
}

// After a failed entry the walk is given up; a further step starts from the top.
void ZYNInsFindFile::_Abandon() {
  closedir(_handle);
  _handle = nullptr;
}

int ZYNInsFindFile::GetNext() {
  if (_handle == nullptr && _Open() != 1) return -1;
  struct dirent* entry = readdir(_handle);
  if (entry == nullptr) {
    closedir(_handle);
    _handle = nullptr;
    return 0;
  }
  _name = ZYNAdmCodePage::ConvertStrToUcs(entry->d_name);

  ZYNAdmNarrowText narrowName(_name);
  if (narrowName.IsNull()) {
    _Abandon();
    ZYNAdmError::Push(DString(L"Null pointer assignment\n"));
    return -1;
  }
  _entryPath.resize(_prefixLength);
  _entryPath += narrowName.Get();

  // stat, not lstat: a link stands for what it leads to.
  struct stat buffer;
  if (stat(_entryPath.c_str(), &buffer) != 0) {
    int error = errno;
    _Abandon();
    DString fullPath(_path);
    fullPath.Append(DString(L"/"), _name);
    sPushSystemError(fullPath, error);
    return -1;
  }
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
  return 1;
}
