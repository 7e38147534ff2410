// ZYNAdmString.cpp - string helpers of the administration layer.
#include "ZYNAdmString.h"

#include <cstdio>

static const int S_NumberBufferSize = 64;

std::string ZYNAdmString::ToString(int value) {
  char buffer[S_NumberBufferSize];
  std::snprintf(buffer, sizeof buffer, "%d", value);
  return buffer;
}

std::string ZYNAdmString::ToString(unsigned int value) {
  char buffer[S_NumberBufferSize];
  std::snprintf(buffer, sizeof buffer, "%u", value);
  return buffer;
}

std::string ZYNAdmString::ToString(float value) {
  char buffer[S_NumberBufferSize];
  std::snprintf(buffer, sizeof buffer, "%f", static_cast<double>(value));
  return buffer;
}

int ZYNAdmString::ReplaceAll(std::string& text, std::string const& from, std::string const& to, unsigned long start) {
  if (from.empty()) return 0;
  int count = 0;
  for (size_t at = text.find(from, start); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
    ++count;
  }
  return count;
}

wchar_t* ZYNAdmString::Widen(char const*) { return nullptr; }

char* ZYNAdmString::Narrow(wchar_t const*) { return nullptr; }

void ZYNAdmString::Delete(char*&) {}

void ZYNAdmString::Delete(wchar_t*&) {}
