// The file-by-file comparison of a fresh view with the reference, run only when their
// seals differ. References hold a hundred thousand files and more, so every look-up by
// path goes through an index and every removal through one rebuild of a child list;
// the findings and their order are those of a walk that searches each volume from its
// first file and removes matched files as it goes.
//
// Names "CD" and "File" are matched here with DString's own equality, loose as it is (a
// longer name led by a unit whose low byte is 0 passes), as the comparison always has:
// what passes here is what the seal of the reference covered.
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <unordered_map>
#include <utility>
#include <vector>

#include "DStrings.h"
#include "ZYNAdmError.h"
#include "ZYNAdmOutputStreamBuffer.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlParser.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMsg.h"

typedef ZYNInsMediaCheckerServices Services;

static const wchar_t S_Missing[] = L"[CD/P1] \"/P2\" File cannot be found on media\n";
static const wchar_t S_Content[] = L"[CD/P1] \"/P2\" File's content corrupted /P3 retrieved /P4 expected\n";
static const wchar_t S_Time[] = L"[CD/P1] \"/P2\" File's timedata corrupted /P3 retrieved /P4 expected\n";
static const wchar_t S_Unexpected[] = L"[CD/P1] \"/P2\" Unexpected file on this media\n";

// A difference of a minute or less is no clock shift, nor is one of a day or more.
static const long long S_MinShift = 61;
static const long long S_MaxShift = 86399;

namespace {

struct TextHash {
  std::size_t operator()(DString const& text) const {
    std::size_t hash = 1469598103934665603ull;
    unsigned short const* units = text.ConvertToUCChar();
    for (int i = 0, n = text.Length(); i < n; ++i) hash = (hash ^ units[i]) * 1099511628211ull;
    return hash;
  }
};

// The File children of one scanned volume, by path. A search from the first child finds
// the earliest file of a path that is still there, and only matches of the time pass
// leave, so each path keeps its files in order and a cursor on the first one left.
class ScannedVolume {
 public:
  explicit ScannedVolume(ZYNAdmXmlElement const& cd) : _cd(cd) {
    DString const file(L"File");
    DString const path(L"path");
    for (ZYNAdmXmlElement const& child : cd.Children()) {
      _children.push_back(child);
      _taken.push_back(false);
      if (child.GetNameRef() != file) continue;
      Entries& entries = _byPath[child.GetAttributeValue(path)];
      entries.at.push_back(static_cast<int>(_children.size()) - 1);
    }
  }

  // The first file of `path` still in the volume, or null.
  ZYNAdmXmlElement const* Find(DString const& path) const {
    auto found = _byPath.find(path);
    if (found == _byPath.end() || found->second.next >= found->second.at.size()) return nullptr;
    return &_children[static_cast<std::size_t>(found->second.at[found->second.next])];
  }

  // Find, and the file leaves the volume.
  ZYNAdmXmlElement const* Take(DString const& path) {
    auto found = _byPath.find(path);
    if (found == _byPath.end() || found->second.next >= found->second.at.size()) return nullptr;
    std::size_t index = static_cast<std::size_t>(found->second.at[found->second.next++]);
    _taken[index] = true;
    return &_children[index];
  }

  // Leaves in the element only what no match took, in its order.
  void Commit();

 private:
  struct Entries {
    std::vector<int> at;
    std::size_t next = 0;
  };
  ZYNAdmXmlElement _cd;
  std::vector<ZYNAdmXmlElement> _children;
  std::vector<bool> _taken;
  std::unordered_map<DString, Entries, TextHash> _byPath;
};

// One reference volume and its scanned partner.
struct VolumePair {
  int number;  // the true volume number, whatever -cds left out
  ZYNAdmXmlElement reference;
  std::vector<ZYNAdmXmlElement> children;  // the reference volume's, in order
  std::vector<bool> dealtWith;             // File children that leave the reference
  std::vector<std::size_t> toJudge;        // positions of the File children still judged
  ScannedVolume scanned;
};

struct FileFields {
  DString path;
  DString timestamp;
  DString hash;
};

}  // namespace

// Rebuilds the child list at once: a removal one by one would search the list each time.
static void sReplaceChildren(ZYNAdmXmlElement& parent, std::vector<ZYNAdmXmlElement> const& keep) {
  for (void* it = parent.GetChildren(); it != nullptr; it = parent.GetChildren()) {
    ZYNAdmXmlElement first = parent.GetChild(it);
    parent.RemoveChild(first);
  }
  for (ZYNAdmXmlElement const& child : keep) parent.AddChild(child);
}

void ScannedVolume::Commit() {
  std::vector<ZYNAdmXmlElement> keep;
  for (std::size_t i = 0; i < _children.size(); ++i) {
    if (!_taken[i]) keep.push_back(_children[i]);
  }
  if (keep.size() != _children.size()) sReplaceChildren(_cd, keep);
}

static std::vector<ZYNAdmXmlElement> sChildren(ZYNAdmXmlElement const& parent) {
  std::vector<ZYNAdmXmlElement> children;
  for (ZYNAdmXmlElement const& child : parent.Children()) children.push_back(child);
  return children;
}

// A tree without `CDs` is walked from its root and simply has no volume.
static ZYNAdmXmlElement sVolumes(ZYNAdmXmlElement const& media) {
  ZYNAdmXmlElement cds;
  Services::GetFirstElement(media, DString(L"CDs"), cds);
  return cds;
}

static FileFields sFields(ZYNAdmXmlElement const* file) {
  FileFields fields;
  if (file == nullptr) return fields;
  fields.path = file->GetAttributeValue(DString(L"path"));
  fields.timestamp = file->GetAttributeValue(DString(L"timestamp"));
  fields.hash = file->GetAttributeValue(DString(L"hash"));
  return fields;
}

static long long sSeconds(DString const& text) {
  long long value = 0;
  text.ConvertToNum(value, "%lld");
  return value;
}

// Damaged timestamps may be any 64-bit value: the difference wraps instead of overflowing.
static long long sDelta(DString const& current, DString const& reference) {
  unsigned long long difference =
      static_cast<unsigned long long>(sSeconds(current)) - static_cast<unsigned long long>(sSeconds(reference));
  return static_cast<long long>(difference);
}

static bool sNear(long long delta, long long shift) { return delta >= shift - 1 && delta <= shift + 1; }

// A TOC at the root is rewritten when a media is assembled, so only an older one counts.
static bool sTimeIsWrong(DString const& path, long long delta, long long first, long long second) {
  if (path == DString(L"/TOC")) return delta < first - 1 && delta < second - 1;
  return !sNear(delta, first) && !sNear(delta, second) && !sNear(delta, first + second);
}

static void sAppendFinding(DString& errors, wchar_t const* text, DStrings const& parameters) {
  errors.Append(ZYNInsMsg::BuildMsg(DString(text), parameters));
}

// The reference volumes to compare, each with the scanned volume at the same place among
// those scanned. `-cds` leaves volumes out of the scan, so those are passed over without
// taking a partner.
static std::vector<VolumePair> sPairVolumes(ZYNAdmXmlElement const& reference, ZYNAdmXmlElement const& current) {
  std::vector<VolumePair> pairs;
  ZYNAdmXmlElement refCDs = sVolumes(reference);
  ZYNAdmXmlElement curCDs = sVolumes(current);
  DStrings wanted = ZYNInsMediaCheckerOptions::GetCDsToCheck();
  void* partner = curCDs.GetChildren();
  int number = 1;
  for (ZYNAdmXmlElement const& refCD : refCDs.Children()) {
    if (refCD.GetNameRef() != DString(L"CD")) continue;
    int cd = number++;
    if (!wanted.IsEmpty() && wanted.Find(DString::FromNum(cd, "%d"), 0) < 0) continue;
    // Past the last scanned volume the partner is an element without files.
    ZYNAdmXmlElement scanned = partner != nullptr ? curCDs.GetChild(partner) : ZYNAdmXmlElement();
    VolumePair pair{cd, refCD, sChildren(refCD), {}, {}, ScannedVolume(scanned)};
    pair.dealtWith.assign(pair.children.size(), false);
    for (std::size_t i = 0; i < pair.children.size(); ++i) {
      if (pair.children[i].GetNameRef() == DString(L"File")) pair.toJudge.push_back(i);
    }
    pairs.push_back(std::move(pair));
  }
  return pairs;
}

// Pass 0: files gone and altered content, and the time differences of every file.
static void sFindMissingAndAltered(std::vector<VolumePair>& pairs, DString& errors, DStrings& shifts) {
  for (VolumePair& pair : pairs) {
    DString cd = DString::FromNum(pair.number, "%d");
    std::vector<std::size_t> matched;
    for (std::size_t at : pair.toJudge) {
      FileFields expected = sFields(&pair.children[at]);
      ZYNAdmXmlElement const* match = pair.scanned.Find(expected.path);
      FileFields found = sFields(match);
      shifts.PutBack(DString::FromNum(sDelta(found.timestamp, expected.timestamp), "%lld"));
      if (match == nullptr) {
        sAppendFinding(errors, S_Missing, DStrings(cd, expected.path));
        pair.dealtWith[at] = true;  // takes no further part
        continue;
      }
      if (found.hash != expected.hash) {
        sAppendFinding(errors, S_Content, DStrings(cd, expected.path, found.hash, expected.hash));
      }
      matched.push_back(at);
    }
    pair.toJudge.swap(matched);
  }
}

// Pass 1: the times, against the shifts common to the media; every file judged leaves
// both trees.
static void sFindWrongTimes(std::vector<VolumePair>& pairs, long long first, long long second, DString& errors) {
  for (VolumePair& pair : pairs) {
    DString cd = DString::FromNum(pair.number, "%d");
    for (std::size_t at : pair.toJudge) {
      FileFields expected = sFields(&pair.children[at]);
      FileFields found = sFields(pair.scanned.Take(expected.path));
      pair.dealtWith[at] = true;
      long long delta = sDelta(found.timestamp, expected.timestamp);
      if (!sTimeIsWrong(expected.path, delta, first, second)) continue;
      sAppendFinding(errors, S_Time, DStrings(cd, expected.path, found.timestamp, expected.timestamp));
    }
    std::vector<ZYNAdmXmlElement> keep;
    for (std::size_t i = 0; i < pair.children.size(); ++i) {
      if (!pair.dealtWith[i]) keep.push_back(pair.children[i]);
    }
    if (keep.size() != pair.children.size()) sReplaceChildren(pair.reference, keep);
    pair.scanned.Commit();
  }
}

void ZYNInsMediaCheckerServices::GetErrors(ZYNAdmXmlElement& reference, ZYNAdmXmlElement& current, DString& errors) {
  std::vector<VolumePair> pairs = sPairVolumes(reference, current);
  DStrings shifts;
  sFindMissingAndAltered(pairs, errors, shifts);
  long long first = 0;
  long long second = 0;
  GetTimeShift(shifts, first, second);
  sFindWrongTimes(pairs, first, second, errors);
  GetUnexpectedFiles(current, errors);
}

namespace {
struct ShiftGroup {
  long long value;
  int count;
};
}  // namespace

// Compared on each side of 0, since the lowest difference has no opposite.
static bool sIsShiftCandidate(long long value) {
  if (value == 0) return true;
  if (value < 0) return value >= -S_MaxShift && value <= -S_MinShift;
  return value >= S_MinShift && value <= S_MaxShift;
}

// Values are grouped by their text, in the order of their first appearance: of two
// values with equal counts the earlier stays ahead.
void ZYNInsMediaCheckerServices::GetTimeShift(DStrings shifts, long long& first, long long& second) {
  first = 0;
  second = 0;
  std::vector<ShiftGroup> groups;
  std::unordered_map<DString, std::size_t, TextHash> groupOf;
  for (int i = 0, n = shifts.GetLength(); i < n; ++i) {
    DString const& text = *shifts.GetAsPtr(i);
    auto inserted = groupOf.emplace(text, groups.size());
    if (inserted.second) groups.push_back(ShiftGroup{sSeconds(text), 0});
    ++groups[inserted.first->second].count;
  }
  int firstCount = 0;
  int secondCount = 0;
  for (ShiftGroup const& group : groups) {
    if (!sIsShiftCandidate(group.value)) continue;
    if (group.count > firstCount) {
      second = first;
      secondCount = firstCount;
      first = group.value;
      firstCount = group.count;
    } else if (group.count > secondCount) {
      second = group.value;
      secondCount = group.count;
    }
  }
}

// The counter runs over the scanned volumes, not the volume numbers: with -cds the
// first scanned volume is CD1 here whatever its number.
void ZYNInsMediaCheckerServices::GetUnexpectedFiles(ZYNAdmXmlElement current, DString& errors) {
  ZYNAdmXmlElement cds = sVolumes(current);
  int counter = 1;
  for (ZYNAdmXmlElement const& cd : cds.Children()) {
    if (cd.GetNameRef() != DString(L"CD")) continue;
    DString number = DString::FromNum(counter++, "%d");
    for (ZYNAdmXmlElement const& file : cd.Children()) {
      if (file.GetNameRef() != DString(L"File")) continue;
      sAppendFinding(errors, S_Unexpected, DStrings(number, file.GetAttributeValue(DString(L"path"))));
    }
  }
}

static void sPushFailure(wchar_t const* message) {
  ZYNAdmError::Push(DString(message), ZYNAdmErrorTypeApplication, 0x80004005, 1);
}

int ZYNInsMediaCheckerServices::CompareXmlElements(ZYNAdmXmlElement a, ZYNAdmXmlElement b) {
  ZYNAdmOutputStreamBuffer left;
  ZYNAdmOutputStreamBuffer right;
  if (ZYNAdmXmlParser::GetXml(a, left) == 0 || ZYNAdmXmlParser::GetXml(b, right) == 0) {
    sPushFailure(L"Invalid input XML element");
    return 0;
  }
  unsigned char* leftBytes = nullptr;
  unsigned char* rightBytes = nullptr;
  int leftSize = 0;
  int rightSize = 0;
  int haveLeft = left.GetBuffer(leftBytes, leftSize);
  int haveRight = right.GetBuffer(rightBytes, rightSize);
  bool same = haveLeft != 0 && haveRight != 0 && leftSize == rightSize &&
              std::equal(leftBytes, leftBytes + leftSize, rightBytes);
  bool comparable = haveLeft != 0 && haveRight != 0;
  std::free(leftBytes);
  std::free(rightBytes);
  if (!comparable) return 0;
  if (same) return 1;
  sPushFailure(L"The XML elements are different");
  return 0;
}
