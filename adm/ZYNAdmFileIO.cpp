// ZYNAdmFileIO.cpp - buffered files under a DString path.
#include "ZYNAdmFileIO.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "ZYNAdmCodePage.h"

static FILE* sFile(long handle) { return reinterpret_cast<FILE*>(handle); }

int ZYNAdmFOpen(DString path, DString mode, long& handle) {
  char* narrowPath = ZYNAdmCodePage::ConvertUcsToStr(path);
  char* narrowMode = ZYNAdmCodePage::ConvertUcsToStr(mode);
  FILE* file = nullptr;
  if (narrowPath != nullptr && narrowMode != nullptr) file = std::fopen(narrowPath, narrowMode);
  ZYNAdmCodePage::FreeAndNull(narrowPath);
  ZYNAdmCodePage::FreeAndNull(narrowMode);
  handle = reinterpret_cast<long>(file);
  return file == nullptr ? ZYN_E_FAIL : ZYN_S_OK;
}

int ZYNAdmFOpenRegular(DString path, long& handle) {
  handle = 0;
  char* narrowPath = ZYNAdmCodePage::ConvertUcsToStr(path);
  if (narrowPath == nullptr) return ZYN_E_FAIL;
  int fd = open(narrowPath, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  ZYNAdmCodePage::FreeAndNull(narrowPath);
  if (fd < 0) return ZYN_E_FAIL;
  struct stat info;
  FILE* file = nullptr;
  if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && fcntl(fd, F_SETFL, 0) == 0) file = fdopen(fd, "rb");
  if (file == nullptr) {
    close(fd);
    return ZYN_E_FAIL;
  }
  handle = reinterpret_cast<long>(file);
  return ZYN_S_OK;
}

int ZYNAdmFSeek(long handle, int offset, int origin) {
  if (handle == 0) return ZYN_E_FAIL;
  int whence = origin == 1 ? SEEK_CUR : (origin == 2 ? SEEK_END : SEEK_SET);
  return std::fseek(sFile(handle), offset, whence) == 0 ? ZYN_S_OK : ZYN_E_FAIL;
}

int ZYNAdmFClose(long& handle) {
  if (handle == 0) return ZYN_E_FAIL;
  int result = std::fclose(sFile(handle));
  handle = 0;
  return result == 0 ? ZYN_S_OK : ZYN_E_FAIL;
}

int ZYNAdmFRead(long handle, char* buffer, unsigned int count, unsigned int* read) {
  if (handle == 0) return ZYN_E_FAIL;
  size_t got = std::fread(buffer, 1, count, sFile(handle));
  if (read != nullptr) *read = static_cast<unsigned int>(got);
  return got < count && std::ferror(sFile(handle)) ? ZYN_E_FAIL : ZYN_S_OK;
}

int ZYNAdmFWrite(long handle, const char* buffer, unsigned int count, unsigned int* written) {
  if (handle == 0) return ZYN_E_FAIL;
  size_t put = std::fwrite(buffer, 1, count, sFile(handle));
  if (written != nullptr) *written = static_cast<unsigned int>(put);
  return ZYN_S_OK;
}
