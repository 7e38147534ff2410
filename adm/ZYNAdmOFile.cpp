// ZYNAdmOFile.cpp - the file object's output side.
#include "ZYNAdmOFile.h"

#include "ZYNAdmFile.h"

ZYNAdmOFile::ZYNAdmOFile(DString fileName)
    : _fileName(ZYNAdmFile::OsSlashNormalize(fileName)), _file(_fileName), _text(&_file) {}

int ZYNAdmOFile::Open() { return _text.Open() == 1 ? ZYN_S_OK : ZYN_E_FAIL; }

int ZYNAdmOFile::Close() { return _text.Close() == 1 ? ZYN_S_OK : ZYN_E_FAIL; }
