// ZYNInsMediaCheckerOptions.cpp - the command line: options, media shape, banner and help.
#include "ZYNInsMediaCheckerOptions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "ZYNAdmError.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNAdmStdLib.h"
#include "ZYNInsDir.h"
#include "ZYNInsMediaGeometry.h"
#include "ZYNInsMsg.h"
#include "ZYNInsSignature.h"

// Defined in this order so that they are constructed, and destroyed at exit, in a
// known sequence; the flags are constant-initialised and need no order.
DString ZYNInsMediaCheckerOptions::_AM_RelativePath;
DString ZYNInsMediaCheckerOptions::_reportFile;
DString ZYNInsMediaCheckerOptions::_relInfoFile;
DString ZYNInsMediaCheckerOptions::_extDir;
DString ZYNInsMediaCheckerOptions::_CD1Path;
DString ZYNInsMediaCheckerOptions::_CDsPath;
DStrings ZYNInsMediaCheckerOptions::_CDsToCheck;
DStrings ZYNInsMediaCheckerOptions::_CDsPathList;
DStrings ZYNInsMediaCheckerOptions::_CDsPathListIndex;
DString ZYNInsMediaCheckerOptions::_signKeyFile;
DString ZYNInsMediaCheckerOptions::_signComment;
DString ZYNInsMediaCheckerOptions::_publicKey;
DString ZYNInsMediaCheckerOptions::_jsonFile;
DString ZYNInsMediaCheckerOptions::_junitFile;

bool ZYNInsMediaCheckerOptions::_gui = true;
bool ZYNInsMediaCheckerOptions::_quiet = false;
bool ZYNInsMediaCheckerOptions::_physicalCD = true;
bool ZYNInsMediaCheckerOptions::_generate = false;
bool ZYNInsMediaCheckerOptions::_AssemblyMedia = false;
bool ZYNInsMediaCheckerOptions::_HasBeenDuplicated = false;
bool ZYNInsMediaCheckerOptions::_reportIsDevice = false;
int ZYNInsMediaCheckerOptions::_AM_CDindex = 0;
bool ZYNInsMediaCheckerOptions::_hasSignComment = false;

// The project's version, given by the build; "--version" prints it.
#ifndef ZYN_VERSION
#define ZYN_VERSION "0"
#endif
#define ZYN_WIDE_TEXT(text) L"" text
#define ZYN_VERSION_TEXT ZYN_WIDE_TEXT(ZYN_VERSION)

static const wchar_t S_Where[] = L"{ZYNInsMediaCheckerOptions::ProcessOptions}";

// Every refusal has the same shape: its debug line (if any), its record, result 1.
static int sFail(DString debugLine, DString message) {
  if (!debugLine.IsEmpty()) ZYNInsMsg::Debug(debugLine);
  ZYNAdmError::Push(message);
  return ZYNInsOptionsRefused;
}

static int sMissingValue(wchar_t const* option) {
  return sFail(DString(S_Where) + L" (" + option + L") no value", DString(option) + L": missing value(s)");
}

static bool sHas(DStrings const& args, wchar_t const* option) { return args.Find(DString(option), 0) >= 0; }

// Only the first occurrence is consumed: a repeated flag stays behind as a leftover.
static bool sTakeFlag(DStrings& args, wchar_t const* option) {
  int at = args.Find(DString(option), 0);
  if (at < 0) return false;
  args.Remove(at);
  return true;
}

// 0 absent, 1 taken, -1 the option had nothing behind it. The value is whatever entry
// follows, even one that looks like an option.
static int sTakeValue(DStrings& args, wchar_t const* option, DString& value) {
  int at = args.Find(DString(option), 0);
  if (at < 0) return 0;
  args.Remove(at);
  if (args.Get(at, value) != ZYN_S_OK) return -1;
  args.Remove(at);
  return 1;
}

// `error` 0: there was no system failure to record, only a kind of file refused.
static int sUnwritableReport(DString const& file, int error, wchar_t const* option = L"-xml") {
  if (error != 0) ZYNInsDir::PushSystemError(file, error);
  return sFail(DString(S_Where) + L" (" + option + L") fail to close file : " + file,
               ZYNInsMsg::BuildMsg(DString(option) + L": unable to write to /P1", DStrings(file)));
}

// Opened without following a link and without waiting, so that nothing put there after
// the look can make the probe write elsewhere or block.
static int sProbeByWriting(DString const& file, char const* narrow, int flags, wchar_t const* option = L"-xml") {
  int probe = open(narrow, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags, 0666);
  if (probe < 0) return sUnwritableReport(file, errno, option);
  if (close(probe) != 0) return sUnwritableReport(file, errno, option);
  return 0;
}

// The report and the findings files are written only after a scan that may take long:
// make sure now that the path can be written. What stands there decides how: a file or
// nothing is created and removed again; a link goes, so that the file replaces the link
// and never touches its target; a character device such as /dev/null is kept and
// written in place. A FIFO would block, and a folder, socket or block device is no
// place for a report.
static int sProbeOutputFile(DString const& file, wchar_t const* option, bool& isDevice) {
  ZYNAdmNarrowText narrow(file);
  if (narrow.IsNull()) {
    ZYNAdmError::Push(DString(L"Null pointer assignment"));
    return sUnwritableReport(file, 0, option);
  }
  struct stat status;
  bool exists = lstat(narrow.Get(), &status) == 0;
  if (exists && S_ISLNK(status.st_mode)) {
    if (unlink(narrow.Get()) != 0) return sUnwritableReport(file, errno, option);
    exists = false;
  }
  if (exists && S_ISCHR(status.st_mode)) {
    isDevice = true;
    return sProbeByWriting(file, narrow.Get(), 0, option);
  }
  if (exists && S_ISDIR(status.st_mode)) return sUnwritableReport(file, EISDIR, option);
  if (exists && !S_ISREG(status.st_mode)) return sUnwritableReport(file, 0, option);
  if (sProbeByWriting(file, narrow.Get(), O_CREAT | O_TRUNC, option) != 0) return 1;
  ZYNAdmStdLib::Delete(file);
  return 0;
}

int ZYNInsMediaCheckerOptions::_ProbeReportFile() { return sProbeOutputFile(_reportFile, L"-xml", _reportIsDevice); }

// -json FILE and -junit FILE: extensions, looked for after every option of the design.
int ZYNInsMediaCheckerOptions::_TakeFindingsFiles(DStrings& args) {
  bool device = false;
  int taken = sTakeValue(args, L"-json", _jsonFile);
  if (taken < 0) return sMissingValue(L"-json");
  if (taken > 0 && sProbeOutputFile(_jsonFile, L"-json", device) != 0) return 1;
  taken = sTakeValue(args, L"-junit", _junitFile);
  if (taken < 0) return sMissingValue(L"-junit");
  if (taken > 0 && sProbeOutputFile(_junitFile, L"-junit", device) != 0) return 1;
  return 0;
}

static DString sJoined(DStrings const& list, wchar_t const* separator) {
  DString joined;
  for (int i = 0; i < list.GetLength(); ++i) {
    if (i > 0) joined += separator;
    joined += *list.GetAsPtr(i);
  }
  return joined;
}

void ZYNInsMediaCheckerOptions::ResetValues() {
  _gui = true;
  _quiet = false;
  _physicalCD = true;
  _generate = false;
  _AssemblyMedia = false;
  _HasBeenDuplicated = false;
  _AM_RelativePath.Empty();
  _reportFile.Empty();
  _reportIsDevice = false;
  _relInfoFile.Empty();
  _extDir.Empty();
  _CD1Path.Empty();
  _CDsPath.Empty();
  _CDsToCheck.Clear();
  _CDsPathList.Clear();
  _CDsPathListIndex.Clear();
  _AM_CDindex = 0;
  _signKeyFile.Empty();
  _signComment.Empty();
  _hasSignComment = false;
  _publicKey.Empty();
  _jsonFile.Empty();
  _junitFile.Empty();
}

int ZYNInsMediaCheckerOptions::ProcessOptions(DStrings args) {
  ZYNInsMsg::Debug(DString(S_Where) + L"process Options (arg count : " + DString::FromNum(args.GetLength(), "%d") +
                   L")");
  ResetValues();
  DString programPath;
  args.PopFront(programPath);

  // Help is looked for first, so that it wins over anything else on the line.
  if (sHas(args, L"-hh") || sHas(args, L"/??")) {
    PrintHelp(true);
    return ZYNInsOptionsHelpShown;
  }
  if (sHas(args, L"-h") || sHas(args, L"/?") || sHas(args, L"--help")) {
    PrintHelp(false);
    return ZYNInsOptionsHelpShown;
  }
  if (sHas(args, L"--version")) {
    ZYNInsMsg::TracePrint(DString(L"ZYNInsMediaCheck " ZYN_VERSION_TEXT L"\n"));
    return ZYNInsOptionsHelpShown;
  }
  if (sTakeFlag(args, L"-nogui")) _gui = false;
  if (sTakeFlag(args, L"-quiet")) _quiet = true;
  if (sTakeFlag(args, L"-generate")) _generate = true;
  if (sTakeFlag(args, L"-dup")) _HasBeenDuplicated = true;
  if (_TakeValues(args, programPath) != 0) return ZYNInsOptionsRefused;
  if (_TakeCDsToCheck(args) != 0) return ZYNInsOptionsRefused;
  if (_TakeSignatureOptions(args) != 0) return ZYNInsOptionsRefused;
  _TakeCustomCDPaths(args);
  if (_TakeFindingsFiles(args) != 0) return ZYNInsOptionsRefused;
  ZYNInsMsg::Debug(DString(L"[DEBUG]") + S_Where + L" checking options ...");

  if (!args.IsEmpty()) {
    DString listed;
    for (int i = 0; i < args.GetLength(); ++i) {
      DString const& entry = *args.GetAsPtr(i);
      ZYNAdmError::Push(ZYNInsMsg::BuildMsg(DString(L"/P1: invalid argument"), DStrings(entry)));
      listed += entry;
      listed += L',';
    }
    ZYNInsMsg::Debug(DString(S_Where) + L" argument leftover : " + listed);
    return ZYNInsOptionsRefused;
  }
  if (_CheckCombinations() != 0) return ZYNInsOptionsRefused;

  // Volume 1 goes in last, so that it overrides a "-1" of the user.
  SetCDPath(1, _CD1Path);
  if (_generate) {
    _AssemblyMedia = false;
  } else if (_DetectAssemblyMedia() != 0) {
    return ZYNInsOptionsRefused;
  }
  if (!_AssemblyMedia) {
    // The volumes of a file tree stand in folders named by their number.
    _physicalCD = ZYNInsDir::GetName(_CD1Path) != DString(L"1");
    if (!_physicalCD) _CDsPath = ZYNInsDir::GetParentDir(_CD1Path);
  }
  if (_generate && _physicalCD) {
    return sFail(DString(S_Where) + L" generate and physicale media are incompatible.",
                 DString(L"Generate mode and physical CD, or no CD direcories"));
  }
  if (!_physicalCD) {
    _HasBeenDuplicated = false;
  } else if (!_HasBeenDuplicated) {
    // The first run on a physical media only relaunches; the copy prints and checks.
    return ZYNInsOptionsGoOn;
  }
  return _PrintBannerAndSettlePaths();
}

int ZYNInsMediaCheckerOptions::_TakeValues(DStrings& args, DString const& programPath) {
  int taken = sTakeValue(args, L"-relinfo", _relInfoFile);
  if (taken < 0) return sMissingValue(L"-relinfo");
  taken = sTakeValue(args, L"-refDir", _extDir);
  if (taken < 0) return sMissingValue(L"-refDir");
  taken = sTakeValue(args, L"-xml", _reportFile);
  if (taken < 0) return sMissingValue(L"-xml");
  if (taken > 0 && _ProbeReportFile() != 0) return 1;

  taken = sTakeValue(args, L"-CD1Path", _CD1Path);
  if (taken < 0) return sMissingValue(L"-CD1Path");
  if (taken > 0) return 0;
  // The executable of a media stands two folders below the root of volume 1. A path
  // typed through ".." ("../tools/bin/...") would leave ".." in the volume's path.
  DString executable = ZYNInsDir::GetExecutableFullPath(programPath);
  if (executable.IsEmpty()) {
    return sFail(DString(S_Where) + L"Fail to resolve current Exe path !", DString(L"-CD1Path: missing value(s)"));
  }
  executable = ZYNInsDir::Normalise(executable);
  _CD1Path = ZYNInsDir::GetParentDir(ZYNInsDir::GetParentDir(ZYNInsDir::GetParentDir(executable)));
  return 0;
}

int ZYNInsMediaCheckerOptions::_TakeCDsToCheck(DStrings& args) {
  DString raw;
  int taken = sTakeValue(args, L"-cds", raw);
  if (taken == 0) return 0;
  if (taken < 0) return sMissingValue(L"-cds");
  DStrings pieces;
  raw.Split(DString(L","), pieces);
  for (int i = 0; i < pieces.GetLength(); ++i) {
    DString const& piece = *pieces.GetAsPtr(i);
    if (piece.IsEmpty()) continue;
    // Formatting back and comparing lengths rejects "2x", "02" and "+2" alike.
    int number = 0;
    DString formatted;
    if (piece.ConvertToNum(number, "%d") == ZYN_S_OK) formatted = DString::FromNum(number, "%d");
    if (formatted.IsEmpty() || formatted.Length() != piece.Length()) {
      return sFail(DString(S_Where) + L" (-cds) invalid index value : " + piece,
                   ZYNInsMsg::BuildMsg(DString(L"/P1: invalid argument"), DStrings(piece)));
    }
    _CDsToCheck.PutBack(formatted);
  }
  if (_CDsToCheck.IsEmpty()) {
    return sFail(DString(S_Where) + L" (-cds) no valid index has beeen extracted from : " + raw,
                 DString(L"-cds: missing value(s)"));
  }
  return 0;
}

// The signature options: each in its own mode, the public key read at once so that a
// bad one costs no scan (and no relaunch of a physical media).
int ZYNInsMediaCheckerOptions::_TakeSignatureOptions(DStrings& args) {
  static const struct {
    wchar_t const* option;
    DString* value;
    bool generate;
  } S_Options[] = {
      {L"-sign", &_signKeyFile, true}, {L"-signcomment", &_signComment, true}, {L"-pubkey", &_publicKey, false}};
  for (auto const& entry : S_Options) {
    int taken = sTakeValue(args, entry.option, *entry.value);
    // An empty key would sign or verify nothing without a word.
    if (taken < 0 || (taken > 0 && entry.value->IsEmpty() && entry.value != &_signComment)) {
      return sMissingValue(entry.option);
    }
    if (taken > 0 && entry.generate != _generate) {
      DString rule =
          entry.generate ? DString(L"] must be used with [-generate]") : DString(L"] cannot be used with [-generate]");
      return sFail(DString(), DString(L"Invalid argument combination! [") + entry.option + rule);
    }
    if (taken > 0 && entry.value == &_signComment) _hasSignComment = true;
  }
  if (_hasSignComment && _signKeyFile.IsEmpty()) {
    return sFail(DString(), DString(L"Invalid argument combination! [-signcomment] must be used with [-sign]"));
  }
  if (!_publicKey.IsEmpty() && ZYNInsSignature::CheckPublicKey(_publicKey) != 0) return 1;
  return 0;
}

// Read as the pieces were, so "0" and "-3" pass the parsing and are refused only here,
// where the count is known: a volume the media lacks would be skipped without a word.
int ZYNInsMediaCheckerOptions::CheckCDsToCheck(int volumeCount) {
  for (int i = 0; i < _CDsToCheck.GetLength(); ++i) {
    DString const& piece = *_CDsToCheck.GetAsPtr(i);
    int number = 0;
    piece.ConvertToNum(number, "%d");
    if (number >= 1 && number <= volumeCount) continue;
    return sFail(DString(S_Where) + L" (-cds) invalid index value : " + piece,
                 ZYNInsMsg::BuildMsg(DString(L"/P1: invalid argument"), DStrings(piece)));
  }
  return 0;
}

// "-<n> <path>" names where volume n stands. The key is the text after the dash as the
// user wrote it; "%d" stops at the first non-digit, so "-2x" is key "2x".
void ZYNInsMediaCheckerOptions::_TakeCustomCDPaths(DStrings& args) {
  int p = 0;
  while (p < args.GetLength()) {
    DString const& entry = *args.GetAsPtr(p);
    int number = 0;
    bool isVolume = entry[0] == L'-' && p + 1 < args.GetLength() &&
                    entry.SubStringD(1, entry.Length()).ConvertToNum(number, "%d") == ZYN_S_OK;
    if (!isVolume) {
      ++p;
      continue;
    }
    DString key = entry.SubStringD(1, entry.Length());
    DString path = *args.GetAsPtr(p + 1);
    args.RemoveRange(p, p + 2);
    _CDsPathList.PutBack(path);
    _CDsPathListIndex.PutBack(key);
  }
}

int ZYNInsMediaCheckerOptions::_CheckCombinations() {
  // A custom volume path selects volumes just as -cds does, hence the same words.
  if (_generate && (!_CDsToCheck.IsEmpty() || !_CDsPathList.IsEmpty())) {
    return sFail(DString(S_Where) + L" [-generate] cannot be used with [-cds] !",
                 DString(L"Invalid argument combination! [-generate] cannot be used with [-cds]"));
  }
  if (_generate && !_junitFile.IsEmpty()) {
    return sFail(DString(S_Where) + L" [-junit] cannot be used with [-generate] !",
                 DString(L"Invalid argument combination! [-junit] cannot be used with [-generate]"));
  }
  if (!_generate && !_relInfoFile.IsEmpty()) {
    return sFail(DString(S_Where) + L" [-relinfo] must be used with [-generate] !",
                 DString(L"Invalid argument combination! [-relinfo] must be used with [-generate]"));
  }
  return 0;
}

// An entry "<number>.txt", the number read by "%d"; `stem` receives the text before ".txt".
static bool sIsVolumeIndexFile(DString const& entry, DString& stem, int& number) {
  int length = entry.Length();
  if (entry.SearchSubString(DString(L".txt"), 0) != length - 4) return false;
  stem = entry.SubStringD(0, length - 4);
  return stem.ConvertToNum(number, "%d") == ZYN_S_OK;
}

// An Assembly Media has a "0data" folder in an ancestor of volume 1, searched from the
// parent upwards; volume 1's own "0data" is what any media has, so it isn't tried. The
// last try is the root's "0data" for an absolute path, and the working directory's only
// for a relative one: run from volume 1's root, that would be volume 1's own.
int ZYNInsMediaCheckerOptions::_DetectAssemblyMedia() {
  DString parent = ZYNInsDir::GetParentDir(_CD1Path);
  if (parent.IsEmpty()) return 0;
  DString top(_CD1Path[0] == L'/' ? L"/0data" : L"0data");
  DString zeroData;
  for (;;) {
    zeroData = parent.IsEmpty() ? top : parent + L"/" + L"0data";
    if (ZYNInsDir::Access(zeroData, 0) == 0) break;
    if (parent.IsEmpty()) return 0;
    parent = ZYNInsDir::GetParentDir(parent);
  }
  _AssemblyMedia = true;
  ZYNInsMsg::Debug(DString(S_Where) + L"AM 0data found : " + zeroData);

  ZYNInsMsg::Debug(DString(S_Where) + L"AM> sreach for AM volume index...");
  DString amRoot = ZYNInsDir::GetParentDir(zeroData);
  DStrings entries;
  ZYNInsDir::List(amRoot, entries, true, false);
  for (int i = 0; i < entries.GetLength(); ++i) {
    DString stem;
    int number = 0;
    if (!sIsVolumeIndexFile(*entries.GetAsPtr(i), stem, number)) continue;
    ZYNInsMsg::Debug(DString(S_Where) + L"AM index found : " + stem);
    _AM_CDindex = number;
    // In a file tree the volume folder of the larger media bears the number of the file.
    _physicalCD = ZYNInsDir::GetName(amRoot) != stem;
    _AM_RelativePath = ZYNInsDir::GetParentDir(_CD1Path);
    _AM_RelativePath.ReplaceAll(amRoot + L"/", DString());
    ZYNInsMsg::Debug(DString(S_Where) + L"AM relative path set to : " + _AM_RelativePath);
    ZYNInsMsg::Debug(DString(S_Where) + L"AM> volume index [" + stem + L"] // relative path : " + _AM_RelativePath);
    if (!_physicalCD) _CDsPath = ZYNInsDir::GetParentDir(amRoot);
    break;
  }
  // An index file numbered 0 is as good as none.
  if (_AM_CDindex == 0) {
    return sFail(DString(),
                 ZYNInsMsg::BuildMsg(DString(L"The given Assembly Media /P1 does not contains volume file(s) !"),
                                     DStrings(_CD1Path)));
  }
  return 0;
}

// In an Assembly Media a volume path may name the larger media's volume; the sub-media's
// folder below it is then added. False when neither form exists.
static bool sSettleAssemblyMediaPath(DString const& key, DString& path) {
  DString candidate;
  int settled = ZYNInsMediaGeometry::SettleAssemblyMediaPath(key, path, candidate);
  if (settled == ZYNInsAssemblyPathAsGiven) return true;
  if (settled == ZYNInsAssemblyPathMissing) {
    ZYNInsMsg::TracePrint(DString(L"Invalid AM-CD") + key +
                          L" path ! the path to the sub-Media volume does not exist : " + candidate);
    return false;
  }
  path = candidate;
  ZYNInsMediaCheckerOptions::SetCDPath(key, candidate);
  return true;
}

int ZYNInsMediaCheckerOptions::_PrintBannerAndSettlePaths() {
  ZYNInsMsg::TracePrint(DString(_generate ? L"{Generator Mode}\n" : L"{Checker Mode}\n"));
  if (_physicalCD) ZYNInsMsg::TracePrint(DString(L"{Physical Media}\n"));
  if (_AssemblyMedia) ZYNInsMsg::TracePrint(DString(L"{Assembly Media}\n"));
  if (!_generate) {
    DString list = _CDsToCheck.IsEmpty() ? DString(L"all") : sJoined(_CDsToCheck, L",");
    ZYNInsMsg::TracePrint(DString(L"{CD to check : ") + list + L"}\n");
  }
  if (!_extDir.IsEmpty()) ZYNInsMsg::TracePrint(DString(L"{Reference folder : ") + _extDir + L"}\n");
  if (!_relInfoFile.IsEmpty()) ZYNInsMsg::TracePrint(DString(L"{ReleaseInfo file : ") + _relInfoFile + L"}\n");
  if (!_reportFile.IsEmpty()) ZYNInsMsg::TracePrint(DString(L"{Custom Xml report file : ") + _reportFile + L"}\n");

  bool rejected = false;
  for (int i = 0; i < _CDsPathListIndex.GetLength(); ++i) {
    DString key = *_CDsPathListIndex.GetAsPtr(i);
    DString path = GetCDPath(key);
    if (_AssemblyMedia && !sSettleAssemblyMediaPath(key, path)) {
      rejected = true;
      continue;
    }
    ZYNInsMsg::TracePrint(DString(L"{CD") + key + L" path : " + path + L"}\n");
  }
  if (rejected) return sFail(DString(), DString(L"Invalid argument(s)"));
  return 0;
}

bool ZYNInsMediaCheckerOptions::SetCDPath(DString cdKey, DString& path) {
  static const wchar_t where[] = L"{ZYNInsMediaCheckerOptions::SetCDPath} ";
  int at = _CDsPathListIndex.Find(cdKey, 0);
  if (at < 0) {
    _CDsPathListIndex.PutBack(cdKey);
    _CDsPathList.PutBack(path);
    ZYNInsMsg::Debug(DString(where) + L"Sucessfully new set cd [" + cdKey + L"] path to : " + path);
    return true;
  }
  if (_CDsPathList.Set(at, path) != ZYN_S_OK) {
    ZYNInsMsg::Debug(DString(where) + L"Fail to replace cd [" + cdKey + L"] path to : " + path);
    return false;
  }
  ZYNInsMsg::Debug(DString(where) + L"Sucessfully replace cd [" + cdKey + L"] path to : " + path);
  return true;
}

bool ZYNInsMediaCheckerOptions::SetCDPath(int cdIndex, DString& path) {
  DString key;
  if (key.BuildFromNum(cdIndex, "%d") != ZYN_S_OK) return false;
  return SetCDPath(key, path);
}

DString ZYNInsMediaCheckerOptions::GetCDPath(DString cdKey) {
  int at = _CDsPathListIndex.Find(cdKey, 0);
  if (at < 0) return DString();
  DString path = *_CDsPathList.GetAsPtr(at);
  ZYNInsMsg::Debug(DString(L"{ZYNInsMediaCheckerOptions::GetCDPath} get cd [") + cdKey + L"] path as : " + path);
  return path;
}

DString ZYNInsMediaCheckerOptions::GetCDPath(int cdIndex) {
  DString key;
  if (key.BuildFromNum(cdIndex, "%d") != ZYN_S_OK) return DString();
  return GetCDPath(key);
}

int ZYNInsMediaCheckerOptions::GetRelativeAmCdIndex(int cdIndex) {
  if (!_AssemblyMedia) return cdIndex;
  return cdIndex + _AM_CDindex - 1;
}

// ---------------------------------------------------------------------------------------
// Help

namespace {
enum HelpForm { Both, ExtendedOnly };

// A piece with an option name is an option line: two tabs, the name padded to nine
// columns so that the colons line up, then the description.
struct HelpPiece {
  HelpForm form;
  wchar_t const* option;
  wchar_t const* text;
};
}  // namespace

static const HelpPiece S_HelpPieces[] = {
    {Both, nullptr,
     L"Zynthar Media checker tools.\nThis tool checks a media ( as filetree or as physical support ) to ensure "
     L"that its not corrupted. This tool can also make a media 'checkable' which allows to check its content "
     L"later.\n"},
    {Both, nullptr, L"Usage :\n"},
    {ExtendedOnly, nullptr, L"\t# generate (to make a media 'checkable') : {ZYNInsMediaCheck fullpath} "},
    {ExtendedOnly, nullptr, L"-generate"},
    {ExtendedOnly, nullptr, L" [-relinfo {relinfo filepath}]"},
    {ExtendedOnly, nullptr, L" [-CD1Path {cd1path}]"},
    {ExtendedOnly, nullptr, L" [-refDir {input xml filepath}]"},
    {ExtendedOnly, nullptr, L" [-xml {xml filepath}]"},
    {ExtendedOnly, nullptr, L" [-quiet]\n"},
    {Both, nullptr, L"\t# check (to ensure that no data corruption has occured) : {ZYNInsMediaCheck fullpath}"},
    {Both, nullptr, L" [-CD1Path {cd1path}]"},
    {ExtendedOnly, nullptr, L" [-refDir {input xml filepath}]"},
    {Both, nullptr, L" [-cds 2,4]"},
    {Both, nullptr, L" [-xml {xml filepath}]"},
    {Both, nullptr, L" [-quiet]\n"},
    {Both, nullptr, L"Mandatory:\n"},
    {Both, nullptr, L"Optional:\n"},
    {ExtendedOnly, L"-relinfo",
     L" : a path to a relinfo file. Adds infomation into the generated MediaContent.xml file. (only for generate "
     L"mode)\n"},
    {ExtendedOnly, L"-generate",
     L" : active the generate mode. Instead of trying to check, it will scan the media filetree to create a "
     L"MediaContent file into 0data folder. (this mode requires a media in filetree form)\n"},
    {Both, L"-xml",
     L" : generates an xml log file in {xml_filepath}.(otherwise the xml log is created only in check mode and "
     L"if there are errors ( under OS's temporary folder such as %TEMP% / $TMP)\n"},
    {Both, L"-quiet", L" : to deactivate console logging.\n"},
    {Both, L"-CD1Path",
     L" : to specify CD1 full path. (CD1 is where the 'meta.TOCxml' file and '0data' folder are present; if not "
     L"specified, the process will try to guess it using the Executable full path)\n"},
    {ExtendedOnly, L"-refDir",
     L" : a path to a reference folder in order to use specific output/input.( In checker mode, the folder must "
     L"contains extact filetree ie things like 1/0data/MediaContent.xml 2/0data/MediaContent.xml [...] )\n"},
    {Both, L"-cds",
     L" : a list ( ,-separated ) of CD number to check; by default all volumes of the media are checked.\n"},
    {Both, L"-n",
     L" : where n is a CD number greater than 1. This argument allows you to specify custom path for subsequent "
     L"volume number. \n"},
    {Both, L"-h", L" : print this help.\n"},
    {ExtendedOnly, L"-hh", L" : print this help in extended format.\n"},
    {Both, nullptr, L"Exit codes:\n"},
    {ExtendedOnly, nullptr, L"\t[In generate mode]\n"},
    {ExtendedOnly, nullptr, L"\t\t 0: xml reference file generated successfully.\n"},
    {ExtendedOnly, nullptr, L"\t\t 2: invalid argument(s) or execution error.\n"},
    {ExtendedOnly, nullptr, L"\t[In Check mode]\n"},
    {Both, nullptr, L"\t\t 0: media check successful.\n"},
    {Both, nullptr, L"\t\t 1: media check reported some errors.\n"},
    {Both, nullptr, L"\t\t 2: invalid argument(s) or execution error.\n"},
};

void ZYNInsMediaCheckerOptions::PrintHelp(bool extended) {
  DString help;
  for (HelpPiece const& piece : S_HelpPieces) {
    if (piece.form == ExtendedOnly && !extended) continue;
    if (piece.option != nullptr) {
      help += L"\t\t";
      help += fill(DString(piece.option), 9, L' ');
    }
    help += piece.text;
  }
  ZYNInsMsg::TracePrint(help);
}
