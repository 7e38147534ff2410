// Making sure that the folder or disc at hand is the volume asked for, of this very
// media, and asking the user on standard input until it is.
#include <cstdio>
#include <cstdlib>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmError.h"
#include "ZYNAdmInputFile.h"
#include "ZYNAdmStdLib.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNAdmXmlParser.h"
#include "ZYNInsDir.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMediaGeometry.h"
#include "ZYNInsMsg.h"
#include "ZYNInsReferenceCache.h"

typedef ZYNInsMediaCheckerOptions Options;
typedef ZYNInsMediaCheckerServices Services;

static const wchar_t S_CheckWhere[] = L"{ZYNInsMediaCheckerServices::CheckIfCorrectCD}";
static const wchar_t S_AskWhere[] = L"{ZYNInsMediaCheckerServices::AskForCD}";

static const wchar_t S_Unreadable[] = L"\n\"/P1\" input file is missing or cannot be accessed";
static const wchar_t S_Corrupted[] = L"\"/P1\" has a corrupted content";
static const wchar_t S_InsertCD[] = L"\n\nCD/P1 is required. Please insert it or specify custom path\n\n/P2\n";
static const wchar_t S_NotNextToCD1[] =
    L"\n\nCD/P1 was not found next to the CD1. Please specify it's custom path\n\n/P2\n";
static const wchar_t S_CustomPathCD[] = L"\n\nCD/P1 is required. specify custom path\n\n/P2\n";
static const wchar_t S_WrongCD[] =
    L"\nWrong CD at \"/P1\"\n\nCurrent:\nCD /P2\n/P3\n\nPlease replace by:\nCD /P4\n/P5\n\n";

// Past this many answers that are none of the menu's, the question counts as cancelled.
static const int S_MaxWrongAnswers = 5;
static const int S_StdinChunk = 256;

static void sDebug(wchar_t const* where, DString const& text) { ZYNInsMsg::Debug(DString(where) + text); }

static DString sNumber(int value) { return DString::FromNum(value, "%d"); }

// Past the end of standard input every answer would be the same: a question that would
// be asked again is answered as a cancel instead.
static bool sInputEnded() { return std::feof(stdin) != 0 || std::ferror(stdin) != 0; }

static void sPush(DString const& message) { ZYNAdmError::Push(message, ZYNAdmErrorTypeApplication, 0x80004005, 1); }

// Unless the user said otherwise, a physical media brings every volume to the place of
// volume 1, and a file tree keeps each in the folder of its number.
static DString sDefaultVolumePath(int cdIndex) {
  DString rawText = sNumber(cdIndex);
  if (Options::IsPhysicalCD()) {
    DString path = Options::GetCD1Path();
    if (Options::IsAM()) path = ZYNInsDir::GetParentDir(path) + L"/" + rawText;
    sDebug(S_CheckWhere, DString(L" new physical cd path : ") + path);
    return path;
  }
  DString path = ZYNInsMediaGeometry::FileTreeVolumePath(cdIndex);
  sDebug(S_CheckWhere, DString(L" new cd path : ") + path);
  return path;
}

// Empty when the file reads and its seal holds; else the words for the user.
static DString sReadReference(DString const& refFile, ZYNAdmXmlElement& ref) {
  if (ZYNInsReferenceCache::Parse(refFile, ref) != 1) {
    sDebug(S_CheckWhere, DString(L" (") + refFile + L") Xml parse fail");
    return ZYNInsMsg::BuildMsg(DString(S_Unreadable), DStrings(refFile));
  }
  if (ZYNInsReferenceCache::Check(ref) != ZYNAdmSealRight) {
    sDebug(S_CheckWhere, DString(L" (") + refFile + L") Xml check fail");
    return ZYNInsMsg::BuildMsg(DString(S_Corrupted), DStrings(refFile));
  }
  return DString();
}

// Asks until a reference file reads and its seal holds. A path typed keeps its value
// from one question to the next, the ending added to it included. A ZYNInsVolumeCheck.
static int sAskForReadableReference(int cdIndex, DString error, DString const& expectedRelData, DString& volumePath,
                                    DString const& refFile, ZYNAdmXmlElement& ref) {
  sDebug(S_CheckWhere, DString(L" error while retrieveing info from (") + refFile + L"). try to get valide infos...");
  DString outerText = ZYNInsMediaGeometry::OuterVolumeText(cdIndex);
  wchar_t const* advice = Options::IsPhysicalCD() ? S_InsertCD : S_NotNextToCD1;
  error.Append(ZYNInsMsg::BuildMsg(DString(advice), DStrings(outerText, expectedRelData)));
  DString typed;
  DString source = refFile;
  for (;;) {
    if (Services::AskForCD(cdIndex, error, typed) == ZYNInsAnswerStop) {
      sDebug(S_CheckWhere, DString(L" AskForCD Cancelled !"));
      return ZYNInsVolumeCancelled;
    }
    sDebug(S_CheckWhere, DString(L" user's CD path : (") + typed + L")");
    // A typed path brings its own reference file: -refDir plays no part here.
    if (!typed.IsEmpty()) {
      volumePath = typed;
      typed.Append(ZYNInsMediaGeometry::ReferenceTail());
      sDebug(S_CheckWhere, DString(L" new reffile path : ") + typed);
      source = typed;
    }
    ZYNAdmInputFile input(source);
    int parsed = ZYNAdmXmlParser::Parse(input, ref);
    int checked = ZYNAdmXmlHash::Check(ref);
    sDebug(S_CheckWhere, DString(L" status : parse[") + sNumber(parsed) + L"]//check[" + sNumber(checked) + L"]");
    if (parsed != 0 && checked == ZYNAdmSealRight) return ZYNInsVolumeRight;
  }
}

int ZYNInsMediaCheckerServices::CheckIfCorrectCD(int cdIndex, DString expectedHash, DString expectedRelData) {
  sDebug(S_CheckWhere, DString(L" enter cd index checker func ..."));
  DString path = Options::GetCDPath(cdIndex);
  DString rawText = sNumber(cdIndex);
  DString outerText = ZYNInsMediaGeometry::OuterVolumeText(cdIndex);
  sDebug(S_CheckWhere, DString(L" curpath{") + path + L"}//(cd index) raw{" + rawText + L"} cur{" + outerText + L"}");
  if (path.IsEmpty()) path = sDefaultVolumePath(cdIndex);
  DString volumePath = path;
  DString refFile = Options::GetExternalFolder().IsEmpty() ? path : Options::GetExternalFolder() + L"/" + rawText;
  refFile.Append(ZYNInsMediaGeometry::ReferenceTail());
  sDebug(S_CheckWhere, DString(L" computed reffile path : ") + refFile);

  ZYNAdmXmlElement ref;
  DString error = sReadReference(refFile, ref);
  if (!error.IsEmpty()) {
    if (Options::IsQuiet()) {
      sPush(error);
      return ZYNInsVolumeFailed;
    }
    int asked = sAskForReadableReference(cdIndex, error, expectedRelData, volumePath, refFile, ref);
    if (asked == ZYNInsVolumeCancelled) return ZYNInsVolumeCancelled;
  }

  // A full reference has no packageHash: its own seal stands for it. Volume 1 is known by
  // its cdid alone, since its seal was tested on reading.
  DString packageHash = ref.GetAttributeValue(DString(L"packageHash"));
  if (packageHash.IsEmpty()) packageHash = ZYNAdmXmlHash::GetHash(ref);
  DString cdid = ref.GetAttributeValue(DString(L"cdid"));
  if (cdid == rawText && (cdIndex == 1 || packageHash == expectedHash)) {
    Options::SetCDPath(cdIndex, volumePath);
    if (cdIndex == 1) ZYNInsReferenceCache::Accept(ref);
    return ZYNInsVolumeRight;
  }

  sDebug(S_CheckWhere, DString(L" current Volume infos are inconsitent.(reqVol[") + rawText + L"]//curVol[" + cdid +
                           L"]//refHash[" + packageHash + L"]//curHash[" + expectedHash + L"])");
  // Both descriptions only where the volume belongs to another media.
  DString ownRelData;
  DString wantedRelData;
  if (packageHash != expectedHash) {
    GetRelData(ref, ownRelData);
    wantedRelData = expectedRelData;
  }
  DString message =
      ZYNInsMsg::BuildMsg(DString(S_WrongCD), DStrings(volumePath, cdid, ownRelData, outerText, wantedRelData));
  if (Options::IsQuiet()) {
    sPush(message);
    return ZYNInsVolumeFailed;
  }
  if (AskForCD(cdIndex, message, path) == ZYNInsAnswerStop) {
    sDebug(S_CheckWhere, DString(L" AskForCD Cancelled !"));
    return ZYNInsVolumeCancelled;
  }
  // Once a wrong volume has been answered, a cancel brings the question back: only the
  // right volume ends it, or the end of standard input.
  for (;;) {
    if (CheckIfCorrectCD(cdIndex, expectedHash, expectedRelData) == ZYNInsVolumeRight) return ZYNInsVolumeRight;
    if (sInputEnded()) return ZYNInsVolumeCancelled;
  }
}

// On an Assembly Media a typed path may name the larger media's volume; the sub-media's
// folder below it is then added. False, with a word to the user, when neither exists.
static bool sSettleAssemblyMediaPath(int cdIndex, DString const& outerText, DString& path) {
  DString candidate;
  int settled = ZYNInsMediaGeometry::SettleAssemblyMediaPath(sNumber(cdIndex), path, candidate);
  if (settled == ZYNInsAssemblyPathAsGiven) return true;
  if (settled == ZYNInsAssemblyPathBelow) {
    path = candidate;
    return true;
  }
  ZYNInsMsg::TracePrint(DString(L"Invalid AM-CD") + outerText +
                        L" ! the path to the sub-Media volume does not exist : " + candidate);
  return false;
}

int ZYNInsMediaCheckerServices::AskForCD(int cdIndex, DString message, DString& path) {
  if (Options::IsQuiet()) {
    sDebug(S_AskWhere, DString(L" in quiet mode, do not ask for cd !"));
    return ZYNInsAnswerStop;
  }
  DString outerText = ZYNInsMediaGeometry::OuterVolumeText(cdIndex);
  sDebug(S_AskWhere, DString(L" CD index to ask : ") + outerText);
  bool physical = Options::IsPhysicalCD();
  DString text = message;
  if (text.IsEmpty())
    text = ZYNInsMsg::BuildMsg(DString(physical ? S_InsertCD : S_CustomPathCD), DStrings(outerText, DString()));
  // "0" is taken on a file tree too, though its menu doesn't offer it.
  text.Append(DString(physical ? L"\n[0]Ok\n[1]Cancel\n[2]Custom Path\n" : L"\n[1]Cancel\n[2]Custom Path\n"));
  int wrongAnswers = 0;
  for (;;) {
    if (sInputEnded()) {
      sDebug(S_AskWhere, DString(L" Cancelled !"));
      return ZYNInsAnswerStop;
    }
    ZYNInsMsg::TracePrint(text);
    DString answer = GetStdin();
    if (answer == DString(L"0")) return ZYNInsAnswerGoOn;
    if (answer == DString(L"1")) {
      sDebug(S_AskWhere, DString(L" Cancelled !"));
      return ZYNInsAnswerStop;
    }
    if (answer != DString(L"2")) {
      DString complaint = DString(L"Unknow response value : [") + answer + L"] ( valide value : 0,1,2 )";
      ZYNInsMsg::TracePrint(ZYNInsMsg::BuildMsg(DString(L"\n\nError\n/P1\n\n"), DStrings(complaint)));
      if (++wrongAnswers >= S_MaxWrongAnswers) {
        sDebug(S_AskWhere, DString(L" Failed !"));
        return ZYNInsAnswerStop;
      }
      continue;
    }
    ZYNInsMsg::TracePrint(
        ZYNInsMsg::BuildMsg(DString(L"\nPlease specify the Path of CD /P1 folder :\n"), DStrings(outerText)));
    // Taken as typed: no slash removed, nothing made absolute.
    path = GetStdin();
    if (Options::IsAM() && !sSettleAssemblyMediaPath(cdIndex, outerText, path)) continue;
    Options::SetCDPath(cdIndex, path);
    return ZYNInsAnswerGoOn;
  }
}

static void sDebugStdinProgress(char* buffer, int index, int c) {
  if (!ZYNInsMsg::IsDebug()) return;
  buffer[index + 1] = 0;
  char one[2] = {static_cast<char>(c), 0};
  ZYNInsMsg::Debug(DString(L"{GetStdin} cur string : ") + ZYNAdmCodePage::ConvertStrToUcs(buffer));
  ZYNInsMsg::Debug(DString(L"{GetStdin} cur char : ") + ZYNAdmCodePage::ConvertStrToUcs(one) + L"/" + sNumber(c));
}

// The first character is stored untested, so a line end or the end of input that comes
// first belongs to the answer: at the end of input each answer is one byte 255.
DString GetStdin() {
  int size = S_StdinChunk;
  char* buffer = static_cast<char*>(std::malloc(static_cast<size_t>(size)));
  if (buffer == nullptr) {
    ZYNInsMsg::Debug(DString(L"{GetStdin} Fail to malloc base buffer !"));
    return DString();
  }
  // A program that drives us through a pipe must see the question before it answers.
  std::fflush(stdout);
  int c = std::getchar();
  ZYNInsMsg::Debug(DString(L"{GetStdin} 1st char : ") + sNumber(c));
  int index = 0;
  for (;;) {
    if (index >= size - 1) {
      size += S_StdinChunk;
      char* grown = static_cast<char*>(std::realloc(buffer, static_cast<size_t>(size)));
      if (grown == nullptr) {
        ZYNInsMsg::Debug(DString(L"{GetStdin} Fail to malloc NEW buffer !"));
        std::free(buffer);
        return DString();
      }
      buffer = grown;
    }
    buffer[index] = static_cast<char>(c);
    sDebugStdinProgress(buffer, index, c);
    c = std::getchar();
    if (c == EOF || c == '\n') break;
    ++index;
  }
  buffer[index + 1] = 0;
  DString result = ZYNAdmCodePage::ConvertStrToUcs(buffer);
  ZYNInsMsg::Debug(DString(L"{GetStdin} final result string : ") + result);
  std::free(buffer);
  return result;
}
