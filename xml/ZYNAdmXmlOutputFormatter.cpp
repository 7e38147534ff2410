// ZYNAdmXmlOutputFormatter.cpp - line ends and tabs put into the compact XML form.
#include "ZYNAdmXmlOutputFormatter.h"

#include <algorithm>
#include <cstring>

namespace {

const int kBufferSize = 8192;

// Collects output on the stack and hands it to the target in full buffers. After one
// short write nothing more is produced: the rest of the input is dropped, and so are the
// bytes of the failed write, which are not offered twice.
struct SFormatterOutput {
  unsigned char buffer[kBufferSize];
  int count;
  bool failed;
  ZYNAdmOutputStream& target;

  explicit SFormatterOutput(ZYNAdmOutputStream& stream) : count(0), failed(false), target(stream) {}

  bool Flush() {
    int wanted = count;
    count = 0;
    if (target.Write(buffer, wanted) == wanted) return true;
    failed = true;
    return false;
  }

  // A full buffer goes out only when a further byte is due.
  bool Put(unsigned char byte) {
    if (count >= kBufferSize && !Flush()) return false;
    buffer[count++] = byte;
    return true;
  }

  // Same flush points as byte by byte.
  bool PutRun(const unsigned char* bytes, int length) {
    while (length > 0) {
      if (count >= kBufferSize && !Flush()) return false;
      int step = std::min(length, kBufferSize - count);
      std::memcpy(buffer + count, bytes, static_cast<size_t>(step));
      count += step;
      bytes += step;
      length -= step;
    }
    return true;
  }
};

}  // namespace

int ZYNAdmXmlOutputFormatter::Open() {
  _lastByte = 0;
  _byteBefore = 0;
  _depth = 0;
  return _target.Open();
}

// A `<` is held back until the byte after it tells what begins: only a start or end tag
// right behind a `>` starts a new line, so text stays on the line of its element and the
// declaration and comments keep their place.
int ZYNAdmXmlOutputFormatter::Write(unsigned char* buffer, int count) {
  SFormatterOutput out(_target);
  int i = 0;
  while (i < count) {
    // Outside a pending `<`, bytes other than `<` and `>` pass unchanged: copy them as a run.
    if (_lastByte != '<') {
      int end = i;
      while (end < count && buffer[end] != '<' && buffer[end] != '>') ++end;
      if (end > i) {
        if (!out.PutRun(buffer + i, end - i)) break;
        _byteBefore = end - i >= 2 ? static_cast<char>(buffer[end - 2]) : _lastByte;
        _lastByte = static_cast<char>(buffer[end - 1]);
        i = end;
        continue;
      }
    }
    char c = static_cast<char>(buffer[i++]);
    bool ok = true;
    if (_lastByte != '<') {
      if (c == '>') {
        if (_lastByte == '/') --_depth;
        ok = out.Put('>');
      }
    } else {
      if (c != '!' && c != '?') {
        if (c == '/') --_depth;
        if (_byteBefore == '>') {
          ok = out.Put(10);
          for (int level = 0; ok && level < _depth; ++level) ok = out.Put(9);
        }
        if (c != '/') ++_depth;
      }
      ok = ok && out.Put('<') && out.Put(static_cast<unsigned char>(c));
    }
    if (!ok) break;
    _byteBefore = _lastByte;
    _lastByte = c;
  }
  // The rest goes out in any case; a short write anywhere fails the whole call, so that
  // a writer never takes a truncated file for a good one.
  int rest = out.count;
  bool lastOk = _target.Write(out.buffer, rest) == rest;
  return lastOk && !out.failed ? count : -1;
}
