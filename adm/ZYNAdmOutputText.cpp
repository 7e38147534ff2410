// ZYNAdmOutputText.cpp - a text file written line by line.
#include "ZYNAdmOutputText.h"

#include <cstring>

#include "ZYNAdmNarrowText.h"
#include "ZYNAdmOutputStream.h"

int ZYNAdmOutputText::Open() { return _stream == nullptr ? 0 : _stream->Open(); }

int ZYNAdmOutputText::Close() { return _stream == nullptr ? 0 : _stream->Close(); }

int ZYNAdmOutputText::WriteLine(DString line) {
  if (_stream == nullptr) return ZYN_E_FAIL;
  int length = line.Length();
  if (length == 0 || line[length - 1] != L'\n') line.Append(L'\n');
  ZYNAdmNarrowText narrow(line);
  if (narrow.IsNull()) return ZYN_E_FAIL;
  int count = static_cast<int>(std::strlen(narrow.Get()));
  unsigned char* bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(narrow.Get()));
  return _stream->Write(bytes, count) == count ? ZYN_S_OK : ZYN_E_FAIL;
}
