#ifndef ZYN_APP_ZYNINSMSG_H
#define ZYN_APP_ZYNINSMSG_H

#include "DString.h"
#include "DStrings.h"

// Every console line of the application goes through here: TracePrint for the user,
// Debug for the developer, BuildMsg to fill /P1../P9 into a template.
class ZYNInsMsg {
 public:
  static DString BuildMsg(DString message, DStrings parameters);
  static void Debug(DString message);
  static void TracePrint(DString message);
  // To standard error, after whatever standard output holds; -quiet is the caller's
  // to honour.
  static void ErrorPrint(DString message);
  static bool IsDebug() { return _IsDebug; }
  // Whether TracePrint shows anything, to the user or the developer: a line per file
  // costs more to build than to print, and -quiet shows none.
  static bool IsTraceShown();

  static bool _IsDebug;
};

// Pads `text` on the right with `character` up to `width` units; never cuts.
DString fill(DString text, int width, wchar_t character);

#endif
