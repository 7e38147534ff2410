// ZYNAdmIFile.cpp - the file object's interface.
#include "ZYNAdmIFile.h"

#include "ZYNAdmFile.h"

static const int S_LineChunk = 524288;

ZYNAdmIFile::ZYNAdmIFile(DString fileName)
    : _fileName(ZYNAdmFile::OsSlashNormalize(fileName)),
      _file(_fileName),
      _text(&_file),
      _lineFailed(0),
      _endReached(0) {}

int ZYNAdmIFile::Open() { return _text.Open() == 1 ? ZYN_S_OK : ZYN_E_FAIL; }

int ZYNAdmIFile::Close() { return _text.Close() == 1 ? ZYN_S_OK : ZYN_E_FAIL; }

int ZYNAdmIFile::GetLine(DString& line) {
  int result = _text.ReadLine(line, S_LineChunk);
  if (result < 0) {
    _lineFailed = 1;
    return ZYN_E_FAIL;
  }
  if (result == 0) _endReached = 1;
  return ZYN_S_OK;
}
