// ZYNInsFindings.cpp - the run's findings as records, their counts, and what was read.
#include "ZYNInsFindings.h"

#include "DStrings.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMsg.h"

bool ZYNInsFindings::_keepAll = false;
std::vector<ZYNInsFinding> ZYNInsFindings::_list;
long long ZYNInsFindings::_counts[ZYNInsFindingKinds] = {};
std::vector<ZYNInsVolumeTally> ZYNInsFindings::_volumes;

static wchar_t const* const S_KindNames[ZYNInsFindingKinds] = {
    L"missing",   L"altered",   L"time",    L"unexpected", L"unreadable", L"unidentified",
    L"reference", L"cancelled", L"refused", L"signature",  L"error",
};

void ZYNInsFindings::Reset() {
  _keepAll = false;
  _list.clear();
  for (long long& count : _counts) count = 0;
  _volumes.clear();
}

wchar_t const* ZYNInsFindings::KindName(ZYNInsFindingKind kind) {
  return kind >= 0 && kind < ZYNInsFindingKinds ? S_KindNames[kind] : L"error";
}

wchar_t const* ZYNInsFindings::Verdict(int status) {
  if (status == 0) return L"PASSED";
  if (status == 1 && !ZYNInsMediaCheckerOptions::IsGenerateMode()) return L"FAILED";
  return _counts[ZYNInsFindingCancelled] > 0 ? L"CANCELLED" : L"ERROR";
}

long long ZYNInsFindings::Total() {
  long long total = 0;
  for (long long count : _counts) total += count;
  return total;
}

void ZYNInsFindings::Add(ZYNInsFinding const& finding) {
  // One more than the console shows, so that it knows whether to say "and N more".
  if (_keepAll || _list.size() <= static_cast<size_t>(kConsoleLines)) _list.push_back(finding);
  ++_counts[finding.kind];
}

void ZYNInsFindings::Add(ZYNInsFindingKind kind, int volume, DString const& path, DString const& sentence) {
  Add(ZYNInsFinding{kind, volume, path, DString(), DString(), sentence});
}

void ZYNInsFindings::Add(ZYNInsFindingKind kind, int volume, DStrings const& parameters, DString const& sentence) {
  if (!_keepAll && _list.size() > static_cast<size_t>(kConsoleLines)) {
    ++_counts[kind];
    return;
  }
  ZYNInsFinding finding{kind, volume, DString(), DString(), DString(), sentence};
  parameters.Get(1, finding.path);
  parameters.Get(2, finding.found);
  parameters.Get(3, finding.expected);
  Add(finding);
}

static ZYNInsVolumeTally* sTally(std::vector<ZYNInsVolumeTally>& volumes, int volume) {
  for (ZYNInsVolumeTally& tally : volumes) {
    if (tally.volume == volume) return &tally;
  }
  volumes.push_back(ZYNInsVolumeTally{volume, 0, 0});
  return &volumes.back();
}

void ZYNInsFindings::StartVolume(int volume) { sTally(_volumes, volume); }

void ZYNInsFindings::FileRead(int volume, long long bytes) {
  // The scan reads one volume after the other: the last one is nearly always the one.
  ZYNInsVolumeTally* tally =
      !_volumes.empty() && _volumes.back().volume == volume ? &_volumes.back() : sTally(_volumes, volume);
  ++tally->files;
  tally->bytes += bytes;
}

// A finding on one line: the report's sentence, its inner line ends made spaces.
static DString sOneLine(DString const& sentence) {
  int length = sentence.Length();
  while (length > 0 && sentence[length - 1] == L'\n') --length;
  DString line = sentence.SubStringD(0, length);
  line.ReplaceAll(DString(L"\n"), DString(L" "));
  return line;
}

void ZYNInsFindings::PrintOnStderr(DString const& reportPath) {
  // Only differences found on the media: a run that failed otherwise said why already.
  bool differences = false;
  for (int kind = 0; kind < ZYNInsFindingUnidentified; ++kind) differences = differences || _counts[kind] > 0;
  if (!differences) return;
  DString text;
  int shown = 0;
  for (ZYNInsFinding const& finding : _list) {
    if (shown++ == kConsoleLines) break;
    text += sOneLine(finding.sentence);
    text += L'\n';
  }
  long long total = Total();
  if (total > kConsoleLines) {
    text += ZYNInsMsg::BuildMsg(DString(L"and /P1 more, see /P2\n"),
                                DStrings(DString::FromNum(total - kConsoleLines, "%lld"), reportPath));
  }
  DString counts;
  for (int kind = 0; kind < ZYNInsFindingKinds; ++kind) {
    if (_counts[kind] == 0) continue;
    if (!counts.IsEmpty()) counts += L", ";
    counts += DString::FromNum(_counts[kind], "%lld");
    counts += L' ';
    counts += KindName(static_cast<ZYNInsFindingKind>(kind));
  }
  if (!counts.IsEmpty()) text += DString(L"Findings: ") + counts + L"\n";
  ZYNInsMsg::ErrorPrint(text);
}
