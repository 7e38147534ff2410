// ZYNInsMsg.cpp - console output: built messages, traces and debug lines.
#include "ZYNInsMsg.h"

#include <cstdio>
#include <cstring>

#include "ZYNAdmCodePage.h"
#include "ZYNAdmEnv.h"
#include "ZYNInsMediaCheckerOptions.h"

bool ZYNInsMsg::_IsDebug = !ZYNAdmEnv::GetEnv(DString(L"ZYN_DEBUG_DISPLAY")).IsEmpty();

// Console text leaves the process through the same code-page conversion as every other
// text, so a name prints as the bytes it has on disk. A unit 0 ends the text, as it
// would end a wide format argument.
static void sWriteConsole(DString const& prefix, DString const& text, FILE* stream = stdout) {
  DString line(prefix);
  line.Append(text);
  char* narrow = ZYNAdmCodePage::ConvertUcsToStr(line);
  if (narrow == nullptr) return;
  std::fwrite(narrow, 1, std::strlen(narrow), stream);
  ZYNAdmCodePage::FreeAndNull(narrow);
}

static bool sIsMark(unsigned short const* units, int i) {
  return units[i] == '/' && units[i + 1] == 'P' && units[i + 2] >= '1' && units[i + 2] <= '9';
}

DString ZYNInsMsg::BuildMsg(DString message, DStrings parameters) {
  DString result;
  unsigned short const* units = message.ConvertToUCChar();
  if (units == nullptr) return result;
  int length = message.Length();
  int start = 0;
  int i = 0;
  if (length >= 3) {
    while (i + 2 < length) {
      if (!sIsMark(units, i)) {
        ++i;
        continue;
      }
      if (i == 0 || units[i - 1] != '/') {
        result.Append(message, start, i);
        DString const* parameter = parameters.GetAsPtr(units[i + 2] - '1');
        result.Append(parameter != nullptr ? *parameter : DString(L"??"));
        i += 3;
        start = i;
        continue;
      }
      // "//P1" is the escape: drop the first slash, copy the mark as plain text.
      result.Append(message, start, i - 1);
      start = i;
      ++i;
    }
  }
  result.Append(message, start, length);
  return result;
}

void ZYNInsMsg::Debug(DString message) {
  if (!_IsDebug) return;
  if (message.IsEmpty() || message[message.Length() - 1] != L'\n') message.Append(L'\n');
  sWriteConsole(DString(L"[DEBUG]"), message);
}

bool ZYNInsMsg::IsTraceShown() { return _IsDebug || !ZYNInsMediaCheckerOptions::IsQuiet(); }

void ZYNInsMsg::TracePrint(DString message) {
  if (message.IsEmpty()) {
    Debug(DString(L"{ZYNInsMsg::TracePrint} ZYNInsMsg::TracePrint called without message."));
    return;
  }
  if (ZYNInsMediaCheckerOptions::IsQuiet()) {
    Debug(DString(L"{ZYNInsMsg::TracePrint} ") + message);
    return;
  }
  sWriteConsole(DString(), message);
}

void ZYNInsMsg::ErrorPrint(DString message) {
  std::fflush(stdout);
  sWriteConsole(DString(), message, stderr);
}

DString fill(DString text, int width, wchar_t character) {
  DString result(text);
  while (result.Length() < width) {
    int before = result.Length();
    result.Append(character);
    if (result.Length() == before) break;  // a character 0 or a failed allocation adds nothing
  }
  return result;
}
