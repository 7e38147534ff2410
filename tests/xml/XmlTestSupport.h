#ifndef ZYN_TESTS_XML_XMLTESTSUPPORT_H
#define ZYN_TESTS_XML_XMLTESTSUPPORT_H

#include <algorithm>
#include <string>
#include <vector>

#include "ZYNAdmCodePage.h"
#include "ZYNAdmInputStream.h"
#include "ZYNAdmOutputStream.h"

namespace xmltest {

// Output over memory that records each Write and can be told to come up short once.
struct RecordingStream : ZYNAdmOutputStream {
  int Open() override { return ++opens, openResult; }
  int Write(unsigned char* buffer, int count) override {
    writes.push_back(count);
    if (static_cast<int>(writes.size()) == shortAtWrite) return count - 1;
    bytes.append(reinterpret_cast<char*>(buffer), static_cast<size_t>(count));
    return count;
  }
  int Close() override { return ++closes, 1; }

  std::string bytes;
  std::vector<int> writes;
  int opens = 0, closes = 0, openResult = 1;
  int shortAtWrite = 0;  // 1-based; 0 never
};

// Input over memory, at most `chunk` bytes per Read (0: no limit), that can be told to
// fail at each step. Like the file stream, a request for 0 bytes gives -1.
struct MemoryInput : ZYNAdmInputStream {
  explicit MemoryInput(std::string text, int chunk = 0) : data(std::move(text)), chunk(chunk) {}
  int Open() override { return at = 0, openResult; }
  int Read(unsigned char* buffer, int count) override {
    ++reads;
    if (count < 1 || failRead || (failFrom > 0 && reads >= failFrom)) return -1;
    size_t n = std::min(static_cast<size_t>(count), data.size() - at);
    if (chunk > 0) n = std::min(n, static_cast<size_t>(chunk));
    at += data.copy(reinterpret_cast<char*>(buffer), n, at);
    return static_cast<int>(n);
  }
  int Close() override { return ++closes, closeResult; }
  std::string data;
  int chunk;
  size_t at = 0;
  int openResult = 1, closeResult = 1, reads = 0, closes = 0;
  bool failRead = false;
  int failFrom = 0;  // the 1-based Read from which on all fail; 0 never
};

inline DString Utf8(const std::string& text) {
  DString result;
  ZYNAdmCodePage::ConvertUTF8ToUcs(text.data(), text.size(), result);
  return result;
}

inline std::string Narrow(const DString& text) {
  std::string result;
  for (int i = 0; i < text.Length(); ++i) result += static_cast<char>(text[i]);
  return result;
}

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>";

}  // namespace xmltest

#endif
