// ZYNAdmInputFile.cpp - a file read as a byte stream.
#include "ZYNAdmInputFile.h"

#include "ZYNAdmFileIO.h"

ZYNAdmInputFile::~ZYNAdmInputFile() { ZYNAdmFClose(_handle); }

int ZYNAdmInputFile::Open() {
  if (ZYNAdmFOpenRegular(_path, _handle) != ZYN_S_OK) return 0;
  return ZYNAdmFSeek(_handle, 0, 0) == ZYN_S_OK ? 1 : 0;
}

int ZYNAdmInputFile::Read(unsigned char* buffer, int count) {
  if (buffer == nullptr || count < 1) return -1;
  unsigned int got = 0;
  if (ZYNAdmFRead(_handle, reinterpret_cast<char*>(buffer), static_cast<unsigned int>(count), &got) != ZYN_S_OK) {
    return -1;
  }
  return static_cast<int>(got);
}

int ZYNAdmInputFile::Close() { return ZYNAdmFClose(_handle) == ZYN_S_OK ? 1 : 0; }
