// ZYNAdmFile.cpp - the file object: a parsed absolute path, folders made, access and deletion.
#include "ZYNAdmFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ZYNAdmCodePage.h"
#include "ZYNAdmError.h"
#include "ZYNAdmIFile.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNAdmOFile.h"

static void sPushKey(wchar_t const* key, DStrings const* parameters) {
  ZYNAdmError::Push(DString(L"ZYNInsControler"), DString(key), parameters, ZYNAdmErrorTypeFile, ZYN_E_FAIL, 0);
}

static void sPushKey(wchar_t const* key, DString const& parameter) {
  DStrings parameters(parameter);
  sPushKey(key, &parameters);
}

static void sPushKey(wchar_t const* key, DString const& first, DString const& second) {
  DStrings parameters(first, second);
  sPushKey(key, &parameters);
}

static DString sErrnoText(int error) { return ZYNAdmCodePage::ConvertStrToUcs(std::strerror(error)); }

static bool sEndsWith(DString const& text, wchar_t const* tail) {
  DString suffix(tail);
  int at = text.Length() - suffix.Length();
  return at >= 0 && text.IsSubStringAt(at, suffix);
}

static bool sEquals(DString const& text, wchar_t const* literal) {
  unsigned short const* units = text.ConvertToUCChar();
  int length = text.Length();
  int i = 0;
  for (; i < length && literal[i] != 0; ++i) {
    if (units[i] != static_cast<unsigned short>(literal[i])) return false;
  }
  return i == length && literal[i] == 0;
}

// ---------------------------------------------------------------------------------------
// The object

ZYNAdmFile::ZYNAdmFile(DString path, Type type, unsigned char check) : _path(path), _type(type), _valid(0) {
  _valid = _Parse(path, check);
}

ZYNAdmFile::ZYNAdmFile(ZYNAdmFile const& other)
    : _path(other._path),
      _root(other._root),
      _directories(other._directories),
      _fileName(other._fileName),
      _fullPath(other._fullPath),
      _plainPath(other._plainPath),
      _parentPath(other._parentPath),
      _type(other._type),
      _valid(other._valid) {}

ZYNAdmFile& ZYNAdmFile::operator=(ZYNAdmFile const& other) {
  if (this == &other) return *this;
  _path = other._path;
  _root = other._root;
  _directories = other._directories;
  _fileName = other._fileName;
  _fullPath = other._fullPath;
  _plainPath = other._plainPath;
  _parentPath = other._parentPath;
  _type = other._type;
  _valid = other._valid;
  return *this;
}

ZYNAdmFile::~ZYNAdmFile() {}

unsigned char ZYNAdmFile::_Parse(DString const& given, unsigned char check) {
  if (_path.IsEmpty()) {
    sPushKey(L"EmptyPath", nullptr);
    return 0;
  }
  _path.ReplaceAll(DString(L"\\"), DString(L"/"));
  if (_path[0] != L'/') {
    sPushKey(L"InvalidPathFormat", given);
    return 0;
  }
  _root = L"/";
  DStrings parts;
  _path.SubStringD(1, _path.Length()).Split(DString(L"/"), parts);

  if (_type == TypeUnknown) {
    int count = parts.GetLength();
    if (count == 0 || parts.GetAsPtr(count - 1)->IsEmpty()) _type = TypeDirectory;
    // Root and parts joined again, unnormalised, is the stored path itself. A type
    // that stays unknown passes whatever the disk holds, so it needs no look.
    if (_type == TypeDirectory && !ValidateType(_type, ReadTypeOnFileSystem(_path), given, _path)) return 0;
    check = 0;
  }

  if (_type == TypeFile) {
    if (parts.IsEmpty()) {
      sPushKey(L"RootIsNotAFile", given);
      return 0;
    }
    parts.PopBack(_fileName);
    if (_fileName.IsEmpty()) {
      sPushKey(L"NotAFileName", given);
      return 0;
    }
  }

  for (int i = 0, count = parts.GetLength(); i < count; ++i) {
    DString const& part = *parts.GetAsPtr(i);
    if (part.IsEmpty() || sEquals(part, L".")) continue;
    if (!sEquals(part, L"..")) {
      _directories.PutBack(part);
      continue;
    }
    if (_directories.IsEmpty()) {
      sPushKey(L"InvalidParentPath", given);
      return 0;
    }
    DString dropped;
    _directories.PopBack(dropped);
  }

  _BuildPaths();
  if (check == 0) return 1;
  return ValidateType(_type, ReadTypeOnFileSystem(_plainPath), given, _plainPath);
}

// No special case for the root: a file at the top gets "//x", the root directory the
// full path "//". Callers expect these forms.
void ZYNAdmFile::_BuildPaths() {
  DString joined(_root);
  DString parent(_root);
  int count = _directories.GetLength();
  for (int i = 0; i < count; ++i) {
    DString const& directory = *_directories.GetAsPtr(i);
    if (i > 0) joined.Append(L'/');
    joined.Append(directory);
    if (i < count - 1) parent.Append(directory, DString(L"/"));
  }
  switch (_type) {
    case TypeFile:
      _fullPath = joined;
      _fullPath.Append(DString(L"/"), _fileName);
      _plainPath = _fullPath;
      _parentPath = joined;
      break;
    case TypeDirectory:
      _fullPath = joined + L'/';
      _plainPath = joined;
      _parentPath = parent;
      break;
    case TypeUnknown:
      _fullPath = joined;
      _plainPath = joined;
      _parentPath = parent;
      break;
  }
}

unsigned char ZYNAdmFile::IsRootPath() const {
  if (!_valid) {
    sPushKey(L"InvalidZYNAdmFileRoot", _path);
    return 1;
  }
  return _type == TypeDirectory && _directories.IsEmpty() ? 1 : 0;
}

DString ZYNAdmFile::RootPath() const { return _valid ? _root : DString(); }

ZYNAdmFile ZYNAdmFile::Parent() const {
  if (IsRootPath()) return *this;
  return ZYNAdmFile(_parentPath, TypeDirectory, 1);
}

DString ZYNAdmFile::GetLastDirectory() const {
  if (!_valid || _directories.IsEmpty()) return DString();
  return *_directories.GetAsPtr(_directories.GetLength() - 1);
}

int ZYNAdmFile::Access(int mode) {
  if (!_valid) return ZYN_E_FAIL;
  if (mode != F_OK && mode != W_OK && mode != R_OK) return ZYN_E_FAIL;
  ZYNAdmNarrowText narrow(_plainPath);
  if (narrow.IsNull()) return ZYN_E_FAIL;
  return access(narrow.Get(), mode) == 0 ? ZYN_S_OK : ZYN_E_FAIL;
}

int ZYNAdmFile::MkDirs(unsigned char trial) {
  if (!_valid || _type == TypeUnknown) return ZYN_E_FAIL;
  ZYNAdmFile current = _type == TypeFile ? Parent() : *this;
  DStrings missing;
  while (current.Access(F_OK) != ZYN_S_OK) {
    if (current.IsRootPath()) {
      sPushKey(L"InvalidRootPath", current._path);
      return ZYN_E_FAIL;
    }
    missing.PutFront(current._plainPath);
    current = current.Parent();
  }

  for (int i = 0, count = missing.GetLength(); i < count; ++i) {
    DString const& directory = *missing.GetAsPtr(i);
    ZYNAdmNarrowText narrow(directory);
    errno = 0;
    if (narrow.IsNull() || mkdir(narrow.Get(), 0755) != 0) {
      sPushKey(L"UnableToCreateDir", directory, sErrnoText(errno));
      return ZYN_E_FAIL;
    }
  }

  DString created;
  if (_type == TypeFile && Access(F_OK) != ZYN_S_OK) {
    created = _fullPath;
    FILE* file = FOpen(created, "w");
    if (file == nullptr) {
      sPushKey(L"UnableToCreateFile", created, sErrnoText(errno));
      return ZYN_E_FAIL;
    }
    std::fclose(file);
  }
  if (trial == 0) return ZYN_S_OK;

  if (!created.IsEmpty() && ZYNAdmFile(created, TypeFile, 1).Delete() != ZYN_S_OK) {
    sPushKey(L"UnableToRemoveFile", created, DString());
    return ZYN_E_FAIL;
  }
  for (int i = missing.GetLength() - 1; i >= 0; --i) {
    DString const& directory = *missing.GetAsPtr(i);
    if (ZYNAdmFile(directory, TypeDirectory, 1).Delete() != ZYN_S_OK) {
      sPushKey(L"UnableToRemoveDir", directory, DString());
      return ZYN_E_FAIL;
    }
  }
  return ZYN_S_OK;
}

int ZYNAdmFile::Delete() {
  if (!_valid || _type == TypeUnknown) return ZYN_E_FAIL;
  bool directory = _type == TypeDirectory;
  DString const& target = directory ? _plainPath : _fullPath;
  ZYNAdmNarrowText narrow(target);
  if (!narrow.IsNull() && (directory ? rmdir(narrow.Get()) : unlink(narrow.Get())) == 0) return ZYN_S_OK;
  int error = errno;
  DString message(directory ? L"Unable to delete directory " : L"Unable to delete file ");
  message.Append(target, DString(L" "), sErrnoText(error));
  ZYNAdmError::Push(message, ZYNAdmErrorTypeFile, ZYN_E_FAIL, 0);
  return ZYN_E_FAIL;
}

FILE* ZYNAdmFile::FOpen(DString path, char const* mode) {
  FILE* stream = nullptr;
  int error = 0;
  {
    ZYNAdmFile file(path, TypeFile, 0);
    if (!file.IsValid()) return nullptr;
    ZYNAdmNarrowText narrow(file._fullPath);
    if (narrow.IsNull()) return nullptr;
    stream = std::fopen(narrow.Get(), mode);
    error = errno;
  }
  // Callers report the fopen failure: its errno must outlive the clean-up above.
  errno = error;
  return stream;
}

int ZYNAdmFile::FClose(void* file) {
  if (file == nullptr) return EOF;
  return std::fclose(static_cast<FILE*>(file));
}

// Bit 14 alone, not the whole format field: a block device or a socket reads as a
// directory here.
ZYNAdmFile::Type ZYNAdmFile::ReadTypeOnFileSystem(DString path) {
  struct stat buffer;
  if (GetStatFile(path, buffer) != 0) return TypeUnknown;
  return (buffer.st_mode & 0x4000) != 0 ? TypeDirectory : TypeFile;
}

unsigned char ZYNAdmFile::ValidateType(Type requested, Type found, DString given, DString tested) {
  if (requested == TypeFile && found == TypeDirectory) {
    sPushKey(L"InvalidFileDirExist", given, tested);
    return 0;
  }
  if (requested == TypeDirectory && found == TypeFile) {
    sPushKey(L"InvalidDirFileExist", given, tested);
    return 0;
  }
  return 1;
}

int GetStatFile(DString path, struct stat& buffer) {
  ZYNAdmNarrowText narrow(path);
  if (narrow.IsNull()) return -1;
  return stat(narrow.Get(), &buffer);
}

// ---------------------------------------------------------------------------------------
// Whole files

int ZYNAdmFile::DeleteFile(DString path) { return ZYNAdmFile(path, TypeFile, 1).Delete(); }

int ZYNAdmFile::Access(DString path, int mode, Type type) { return ZYNAdmFile(path, type, 1).Access(mode); }

int ZYNAdmFile::GetSize(DString path) {
  struct stat buffer;
  if (GetStatFile(ZYNAdmFile(path, TypeFile, 0)._plainPath, buffer) != 0) return -1;
  return static_cast<int>(buffer.st_size);
}

long ZYNAdmFile::GetLastModificationDate(DString path) {
  struct stat buffer;
  if (GetStatFile(path, buffer) != 0) return -1;
  return static_cast<long>(buffer.st_mtime);
}

int ZYNAdmFile::MoveFile(DString from, DString to, unsigned char keepMode) {
  ZYNAdmFile source(from, TypeFile, 1);
  if (!source.IsValid()) return ZYN_E_FAIL;
  ZYNAdmFile target(to, TypeFile, 1);
  if (!target.IsValid()) return ZYN_E_FAIL;
  struct stat previous;
  bool existed = GetStatFile(target._plainPath, previous) == 0;
  if (existed && DeleteFile(to) != ZYN_S_OK) return ZYN_E_FAIL;
  ZYNAdmNarrowText narrowFrom(source._plainPath);
  ZYNAdmNarrowText narrowTo(target._plainPath);
  if (narrowFrom.IsNull() || narrowTo.IsNull()) return ZYN_E_FAIL;
  int renamed = std::rename(narrowFrom.Get(), narrowTo.Get());
  // The old mode goes back whatever rename gave: the file now there, if any, gets it.
  if (keepMode != 0 && existed) chmod(narrowTo.Get(), previous.st_mode);
  return renamed == 0 ? ZYN_S_OK : ZYN_E_FAIL;
}

int ZYNAdmFile::CopyFile(DString from, DString to) {
  if (from == to) return ZYN_E_FAIL;
  ZYNAdmIFile input(from);
  if (input.Open() != ZYN_S_OK) return ZYN_E_FAIL;
  ZYNAdmOFile output(to);
  if (output.Open() != ZYN_S_OK) {
    input.Close();
    return ZYN_E_FAIL;
  }
  int result = ZYN_S_OK;
  DString line;
  for (;;) {
    if (input.GetLine(line) != ZYN_S_OK) {
      result = ZYN_E_FAIL;
      break;
    }
    bool last = input.ReachedEOF() != 0;
    if (last && line.IsEmpty()) break;
    if (output.WriteLine(line) != ZYN_S_OK) {
      result = ZYN_E_FAIL;
      break;
    }
    if (last) break;
  }
  if (input.Close() != ZYN_S_OK) result = ZYN_E_FAIL;
  if (output.Close() != ZYN_S_OK) result = ZYN_E_FAIL;
  return result;
}

// All lines of a text file, the empty one at its very end left out. 0 or failure.
static int sReadLines(DString const& path, DStrings& lines, DString const& from, DString const& to, int& replaced) {
  ZYNAdmIFile input(path);
  if (input.Open() != ZYN_S_OK) return ZYN_E_FAIL;
  bool failed = false;
  DString line;
  for (;;) {
    if (input.GetLine(line) != ZYN_S_OK) {
      failed = true;
      break;
    }
    bool last = input.ReachedEOF() != 0;
    if (last && line.IsEmpty()) break;
    replaced += line.ReplaceAll(from, to);
    lines.PutBack(line);
    if (last) break;
  }
  if (input.Close() != ZYN_S_OK || failed) return ZYN_E_FAIL;
  return ZYN_S_OK;
}

int ZYNAdmFile::ReplaceInLines(DString path, DString from, DString to) {
  if (from.IsEmpty()) return ZYN_S_OK;
  DStrings lines;
  int replaced = 0;
  if (sReadLines(path, lines, from, to, replaced) != ZYN_S_OK) return ZYN_E_FAIL;
  // No hit leaves the file alone, its date included.
  if (replaced == 0) return ZYN_S_OK;

  DString temporary = path + L".TempoFile_ReplaceInLines";
  {
    ZYNAdmOFile output(temporary);
    if (output.Open() != ZYN_S_OK) return ZYN_E_FAIL;
    for (int i = 0, count = lines.GetLength(); i < count; ++i) {
      if (output.WriteLine(*lines.GetAsPtr(i)) == ZYN_S_OK) continue;
      output.Close();
      DeleteFile(temporary);
      return ZYN_E_FAIL;
    }
    if (output.Close() != ZYN_S_OK) return ZYN_E_FAIL;
  }
  return MoveFile(temporary, path, 1);
}

int ZYNAdmFile::CreateFileFromLines(DString path, DStrings lines) {
  DString target = OsSlashNormalize(path);
  // An existing file is written beside and moved over at the end, so that a failed
  // write never leaves it cut short.
  bool replacing = Access(path, F_OK, TypeFile) == ZYN_S_OK;
  if (replacing) {
    if (Access(path, W_OK, TypeFile) != ZYN_S_OK) return ZYN_E_FAIL;
    target.Append(DString(L".TempoFile_CreateFileFromLines"));
  }
  {
    ZYNAdmOFile output(target);
    if (output.Open() != ZYN_S_OK) return ZYN_E_FAIL;
    for (int i = 0, count = lines.GetLength(); i < count; ++i) {
      if (output.WriteLine(*lines.GetAsPtr(i)) == ZYN_S_OK) continue;
      output.Close();
      return ZYN_E_FAIL;
    }
    if (output.Close() != ZYN_S_OK) return ZYN_E_FAIL;
  }
  if (!replacing) return ZYN_S_OK;
  return MoveFile(target, path, 1);
}

int ZYNAdmFile::AddText(DString path, DString text, unsigned char append) {
  FILE* file = FOpen(path, append != 0 ? "a+" : "w");
  bool written = false;
  if (file != nullptr) {
    ZYNAdmNarrowText narrow(text);
    written = !narrow.IsNull() && std::fprintf(file, "%s", narrow.Get()) >= 0;
    int error = errno;
    if (std::fclose(file) == 0) {
      errno = error;
    } else {
      written = false;
    }
  }
  if (written) return ZYN_S_OK;
  ZYNAdmError::Push(path + sErrnoText(errno), ZYNAdmErrorTypeFile, ZYN_E_FAIL, 0);
  return ZYN_E_FAIL;
}

// Whether the file behind `file` is not empty and doesn't end in a line end.
static int sLacksFinalLineEnd(FILE* file, bool& lacks) {
  lacks = false;
  if (std::fseek(file, 0, SEEK_END) != 0) return ZYN_E_FAIL;
  long size = std::ftell(file);
  if (size < 0) return ZYN_E_FAIL;
  if (size == 0) return ZYN_S_OK;
  if (std::fseek(file, -1, SEEK_END) != 0) return ZYN_E_FAIL;
  int last = std::fgetc(file);
  if (last == EOF) return ZYN_E_FAIL;
  lacks = last != '\n';
  return ZYN_S_OK;
}

int ZYNAdmFile::AddLine(DString path, DString line) {
  FILE* file = FOpen(path, "a+b");
  if (file == nullptr) return ZYN_E_FAIL;
  bool lacks = false;
  int result = sLacksFinalLineEnd(file, lacks);
  DString text = lacks ? L'\n' + line : line;
  int length = text.Length();
  if (length == 0 || text[length - 1] != L'\n') text.Append(L'\n');
  if (result == ZYN_S_OK) {
    ZYNAdmNarrowText narrow(text);
    size_t count = narrow.IsNull() ? 0 : std::strlen(narrow.Get());
    // Between a read and a write, an update stream wants a positioning call.
    if (narrow.IsNull() || std::fseek(file, 0, SEEK_END) != 0 || std::fwrite(narrow.Get(), 1, count, file) != count) {
      result = ZYN_E_FAIL;
    }
  }
  if (std::fclose(file) != 0) result = ZYN_E_FAIL;
  return result;
}

// ---------------------------------------------------------------------------------------
// Path texts

DString ZYNAdmFile::OsSlashNormalize(DString path) {
  path.ReplaceAll(DString(L"\\"), DString(L"/"));
  return path;
}

DString ZYNAdmFile::Slashify(DString path) { return OsSlashNormalize(path); }

DString ZYNAdmFile::OsPathSeparatorNormalize(DString list) {
  list.ReplaceAll(DString(L";"), DString(L":"));
  return list;
}

DString ZYNAdmFile::CleanPath(DString path) {
  if (path.IsEmpty()) return path;
  path = OsSlashNormalize(path);
  DString doubled(L"//");
  DString single(L"/");
  while (path.ReplaceAll(doubled, single) > 0) {
  }
  while (path.Length() >= 2 && path[path.Length() - 1] == L'/') path.Remove(path.Length() - 1, 1);
  return path;
}

DString ZYNAdmFile::OsExeExtensionNormalize(DString name) {
  int length = name.Length();
  if (sEndsWith(name, L".exe")) return name.SubStringD(0, length - 4);
  if (sEndsWith(name, L".bat")) return name.SubStringD(0, length - 4) + L".sh";
  if (sEndsWith(name, L".exesh")) return name.SubStringD(0, length - 6) + L".sh";
  return name;
}
