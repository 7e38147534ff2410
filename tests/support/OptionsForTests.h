#ifndef ZYN_TESTS_SUPPORT_OPTIONSFORTESTS_H
#define ZYN_TESTS_SUPPORT_OPTIONSFORTESTS_H

// What a command line would have set, for tests of the services below the options.
#include "ZYNInsMediaCheckerOptions.h"

struct ZYNInsMediaCheckerOptionsForTests {
  typedef ZYNInsMediaCheckerOptions O;
  static void SetQuiet(bool quiet) { O::_quiet = quiet; }
  static void SetGenerate(bool generate) { O::_generate = generate; }
  static void SetAssemblyMedia(bool assemblyMedia) { O::_AssemblyMedia = assemblyMedia; }
  static void SetAssemblyMediaIndex(int index) { O::_AM_CDindex = index; }
  static void SetCDsPath(DString const& path) { O::_CDsPath = path; }
  static void SetReportFile(DString const& path) { O::_reportFile = path; }
  static void SetCDsToCheck(DStrings const& cds) { O::_CDsToCheck = cds; }
};

#endif
