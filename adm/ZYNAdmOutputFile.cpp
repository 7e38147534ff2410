// ZYNAdmOutputFile.cpp - a file written as a byte stream.
#include "ZYNAdmOutputFile.h"

#include "ZYNAdmFileIO.h"

ZYNAdmOutputFile::~ZYNAdmOutputFile() { ZYNAdmFClose(_handle); }

int ZYNAdmOutputFile::Open() {
  if (ZYNAdmFOpen(_path, DString(L"wb"), _handle) != ZYN_S_OK) return 0;
  return ZYNAdmFSeek(_handle, 0, 0) == ZYN_S_OK ? 1 : 0;
}

int ZYNAdmOutputFile::Write(unsigned char* buffer, int count) {
  if (count < 0) return -1;
  unsigned int put = 0;
  if (ZYNAdmFWrite(_handle, reinterpret_cast<const char*>(buffer), static_cast<unsigned int>(count), &put) !=
      ZYN_S_OK) {
    return -1;
  }
  return static_cast<int>(put);
}

int ZYNAdmOutputFile::Close() { return ZYNAdmFClose(_handle) == ZYN_S_OK ? 1 : 0; }
