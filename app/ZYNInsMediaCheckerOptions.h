#ifndef ZYN_APP_ZYNINSMEDIACHECKEROPTIONS_H
#define ZYN_APP_ZYNINSMEDIACHECKEROPTIONS_H

#include "DString.h"
#include "DStrings.h"

// Results of ProcessOptions.
enum ZYNInsOptionsResult {
  ZYNInsOptionsGoOn = 0,
  ZYNInsOptionsRefused = 1,    // reason on the error stack
  ZYNInsOptionsHelpShown = 2,  // the help or the version was printed
};

// The run's parameters, parsed once from the command line and kept to the exit. Also
// the map from volume number to path, which the volume prompts update during the run.
class ZYNInsMediaCheckerOptions {
 public:
  // A ZYNInsOptionsResult. Entry 0 of `args` is the program path.
  static int ProcessOptions(DStrings args);
  static void ResetValues();
  static void PrintHelp(bool extended);

  static bool SetCDPath(int cdIndex, DString& path);
  static bool SetCDPath(DString cdKey, DString& path);
  static DString GetCDPath(DString cdKey);
  static DString GetCDPath(int cdIndex);

  static bool IsGUI() { return _gui; }
  static bool IsQuiet() { return _quiet; }
  static void SetQuiet(bool quiet) { _quiet = quiet; }
  static bool IsPhysicalCD() { return _physicalCD; }
  static bool IsGenerateMode() { return _generate; }
  static bool IsAM() { return _AssemblyMedia; }
  static bool HasBeenDuplicated() { return _HasBeenDuplicated; }

  static DString GetReportFile() { return _reportFile; }
  static DString GetRelInfoFile() { return _relInfoFile; }
  static DString GetExternalFolder() { return _extDir; }
  static DString GetCD1Path() { return _CD1Path; }
  static DString GetCDsPath() { return _CDsPath; }
  static DString GetAMrelativePath() { return _AM_RelativePath; }
  static DStrings GetCDsToCheck() { return _CDsToCheck; }
  // -sign KEYFILE and -signcomment TEXT (generate), -pubkey KEY (check); empty when absent.
  static DString GetSignKeyFile() { return _signKeyFile; }
  static DString GetSignComment() { return _signComment; }
  static bool HasSignComment() { return _hasSignComment; }
  static DString GetPublicKey() { return _publicKey; }
  // The -xml target is a character device (/dev/null): the report goes into it in
  // place, never through a new file renamed over it.
  static bool IsReportFileDevice() { return _reportIsDevice; }
  // The findings for a CI system: -json (JSON Lines) and -junit (JUnit XML); empty when
  // not asked for.
  static DString GetJsonFile() { return _jsonFile; }
  static DString GetJUnitFile() { return _junitFile; }
  // The volume paths known so far, keys as typed, parallel.
  static void GetCDPaths(DStrings& keys, DStrings& paths) {
    keys = _CDsPathListIndex;
    paths = _CDsPathList;
  }

  // Once the reference tells how many volumes the media has: 0 when -cds names only
  // those, else 1 with the first other number refused as an invalid -cds value.
  static int CheckCDsToCheck(int volumeCount);

  // The volume of the larger media that holds volume `cdIndex` of an Assembly Media.
  static int GetRelativeAmCdIndex(int cdIndex);

 private:
  // Tests set what a command line would have (tests/support/OptionsForTests.h).
  friend struct ZYNInsMediaCheckerOptionsForTests;

  static bool _gui;
  static bool _quiet;
  static bool _physicalCD;
  static bool _generate;
  static bool _AssemblyMedia;
  static bool _HasBeenDuplicated;
  static DString _AM_RelativePath;
  static DString _reportFile;
  static bool _reportIsDevice;
  static DString _relInfoFile;
  static DString _extDir;
  static DString _CD1Path;
  static DString _CDsPath;
  static DStrings _CDsToCheck;
  static DStrings _CDsPathList;       // parallel to _CDsPathListIndex
  static DStrings _CDsPathListIndex;  // keys compared as text: "02" is not "2"
  static int _AM_CDindex;
  static DString _signKeyFile;
  static DString _signComment;
  static bool _hasSignComment;
  static DString _publicKey;
  static DString _jsonFile;
  static DString _junitFile;

  static int _TakeValues(DStrings& args, DString const& programPath);
  static int _ProbeReportFile();
  static int _TakeFindingsFiles(DStrings& args);
  static int _TakeCDsToCheck(DStrings& args);
  static int _TakeSignatureOptions(DStrings& args);
  static void _TakeCustomCDPaths(DStrings& args);
  static int _CheckCombinations();
  static int _DetectAssemblyMedia();
  static int _PrintBannerAndSettlePaths();
};

#endif
