#ifndef ZYN_APP_ZYNINSMEDIACHECKEROPTIONS_H
#define ZYN_APP_ZYNINSMEDIACHECKEROPTIONS_H

#include "DString.h"
#include "DStrings.h"

// The run's parameters, parsed once from the command line and kept to the exit.
class ZYNInsMediaCheckerOptions {
 public:
  static bool IsQuiet() { return _quiet; }
  static void SetQuiet(bool quiet) { _quiet = quiet; }

  static bool _quiet;
};

#endif
