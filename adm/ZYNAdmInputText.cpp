// ZYNAdmInputText.cpp - a text file read line by line.
#include "ZYNAdmInputText.h"

#include "ZYNAdmInputStream.h"

// The chunk only decides how often the work array is appended to the line, which gives
// the same line for any size; a small one spares a large allocation per line.
static const int S_ChunkUnits = 1024;

int ZYNAdmInputText::Open() { return _stream == nullptr ? 0 : _stream->Open(); }

int ZYNAdmInputText::Close() { return _stream == nullptr ? 0 : _stream->Close(); }

int ZYNAdmInputText::ReadLine(DString& line, int maximum) {
  line.Empty();
  if (_stream == nullptr || maximum < 1) return -1;
  int chunk = maximum < S_ChunkUnits ? maximum : S_ChunkUnits;
  unsigned short units[S_ChunkUnits];
  int used = 0;
  for (;;) {
    unsigned char byte = 0;
    int got = _stream->Read(&byte, 1);
    if (got < 0) return -1;
    if (got == 0 || byte == 10) {
      if (used > 0) line.Append(DString(units, used));
      return got == 0 ? 0 : 1;
    }
    if (byte == 13) continue;
    units[used++] = byte;
    if (used == chunk) {
      line.Append(DString(units, used));
      used = 0;
    }
  }
}
