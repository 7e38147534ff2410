// The file-by-file comparison of a fresh view with the reference, run only when their
// seals differ. References hold a hundred thousand files and more, so every look-up by
// path goes through an index, every removal through one rebuild of a child list, and
// each file's path, hash and timestamp are read in place, once a pass, with no string
// made unless a finding quotes them. The findings and their order are those of a walk
// that searches each volume from its first file and removes matched files as it goes.
//
// Names "CD" and "File" are matched here with DString's own equality, loose as it is (a
// longer name led by a unit whose low byte is 0 passes), as the comparison always has:
// what passes here is what the seal of the reference covered.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "DStrings.h"
#include "QRTWorkers.h"
#include "ZYNAdmError.h"
#include "ZYNAdmNameReadings.h"
#include "ZYNAdmOutputStreamBuffer.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlParser.h"
#include "ZYNInsFileFields.h"
#include "ZYNInsFindings.h"
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

typedef ZYNInsFileFields::Units Units;

std::uint64_t HashOf(Units text) {
  std::uint64_t hash = 1469598103934665603ull;
  for (int i = 0; i < text.length; ++i) hash = (hash ^ text.at[i]) * 1099511628211ull;
  return hash;
}

struct TextHash {
  std::size_t operator()(DString const& text) const { return HashOf(Units{text.ConvertToUCChar(), text.Length()}); }
};

// Damaged timestamps may be any 64-bit value: the difference wraps instead of overflowing.
long long DeltaOf(long long current, long long reference) {
  return static_cast<long long>(static_cast<unsigned long long>(current) - static_cast<unsigned long long>(reference));
}

// The names compared, made once per comparison rather than once per look-up.
struct Names {
  DString file{L"File"};
  DString cd{L"CD"};
  DString path{L"path"};
  DString hash{L"hash"};
  DString timestamp{L"timestamp"};
};

// The File children of one scanned volume, by path. A search from the first child finds
// the earliest file of a path that is still there, and only matches of the time pass
// leave, so each path chains its files in order, the first one left at the head.
//
// The paths are read and hashed on every core, then entered in order. Reading a tree
// from several threads is safe here only because nothing below borrows a compact value
// (which would write the element): fields are read through ZYNInsFileFields.
class ScannedVolume {
 public:
  ScannedVolume(ZYNAdmXmlElement const& cd, Names const& names) : _cd(cd) {
    for (ZYNAdmXmlElement const& child : cd.Children()) _children.push_back(&child);
    std::size_t count = _children.size();
    _taken.assign(count, false);
    _nextSame.assign(count, -1);
    std::size_t size = 16;
    while (size < count * 2) size *= 2;
    _slots.assign(size, Slot());
    std::vector<std::uint64_t> hashes(count);
    std::vector<char> isFile(count);
    QRTForEachRange("compare", count, S_Range, [&](std::size_t first, std::size_t last) {
      std::unique_ptr<ZYNInsFileFields> reader(new ZYNInsFileFields());
      for (std::size_t i = first; i < last; ++i) {
        isFile[i] = _children[i]->GetNameRef() == names.file;
        if (!isFile[i]) continue;
        reader->Read(_children[i], ZYNInsFileFields::kPath);
        hashes[i] = HashOf(reader->path);
      }
    });
    std::unique_ptr<ZYNInsFileFields[]> readers(new ZYNInsFileFields[2]);
    for (std::size_t i = 0; i < count; ++i) {
      if (!isFile[i]) continue;
      Slot& slot = _slots[_Probe(hashes[i], _children[i], Units(), readers.get())];
      int at = static_cast<int>(i);
      if (slot.tail < 0) {
        slot.hash = hashes[i];
        slot.head = at;
      } else {
        _nextSame[static_cast<std::size_t>(slot.tail)] = at;
      }
      slot.tail = at;
    }
  }

  // Where the files of `path` are, or -1 when the volume never had one. `probe` reads
  // the paths met on the way: one for each thread that searches.
  int Find(Units path, ZYNInsFileFields& probe) const {
    std::size_t at = _Probe(HashOf(path), nullptr, path, &probe);
    return _slots[at].tail < 0 ? -1 : static_cast<int>(at);
  }

  // The first file of `slot` still in the volume, or null.
  ZYNAdmXmlElement const* First(int slot) const {
    if (slot < 0 || _slots[static_cast<std::size_t>(slot)].head < 0) return nullptr;
    return _children[static_cast<std::size_t>(_slots[static_cast<std::size_t>(slot)].head)];
  }

  // First, and the file leaves the volume.
  ZYNAdmXmlElement const* Take(int slot) {
    ZYNAdmXmlElement const* first = First(slot);
    if (first == nullptr) return nullptr;
    Slot& files = _slots[static_cast<std::size_t>(slot)];
    std::size_t index = static_cast<std::size_t>(files.head);
    _taken[index] = true;
    files.head = _nextSame[index];
    return first;
  }

  // Leaves in the element only what no match took, in its order.
  void Commit();

  static const std::size_t S_Range = 2048;  // files read in one piece of work

 private:
  // Empty while tail is -1; head is -1 once every file of the path is taken.
  struct Slot {
    std::uint64_t hash = 0;
    int head = -1;
    int tail = -1;
  };

  // The slot of the path, or the empty one where it would go. The path is `path`, or,
  // where that is empty, `owner`'s, read only when a slot of the same hash is met.
  // `readers`: room for two.
  std::size_t _Probe(std::uint64_t hash, ZYNAdmXmlElement const* owner, Units path, ZYNInsFileFields* readers) const {
    std::size_t mask = _slots.size() - 1;
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
      Slot const& slot = _slots[at];
      if (slot.tail < 0) return at;
      if (slot.hash != hash) continue;
      if (owner != nullptr && path.at == nullptr) {
        readers[1].Read(owner, ZYNInsFileFields::kPath);
        path = readers[1].path;
      }
      readers[0].Read(_children[static_cast<std::size_t>(slot.tail)], ZYNInsFileFields::kPath);
      if (ZYNInsFileFields::SameUnits(path, readers[0].path)) return at;
    }
  }

  ZYNAdmXmlElement _cd;
  std::vector<ZYNAdmXmlElement const*> _children;  // in _cd's list, which holds them
  std::vector<bool> _taken;
  std::vector<int> _nextSame;  // the next child of the same path, or -1
  std::vector<Slot> _slots;
};

// A reference file matched by the first pass, judged on its time by the second.
struct Matched {
  std::size_t at;                 // among the reference volume's children
  int slot;                       // its path among the scanned files
  ZYNAdmXmlElement const* found;  // the scanned file the first pass compared
  long long expected;             // seconds
  long long delta;                // the found file's seconds minus the expected ones
  bool toc;                       // the path is "/TOC"
};

// One reference volume and its scanned partner.
struct VolumePair {
  int number;  // the true volume number, whatever -cds left out
  ZYNAdmXmlElement reference;
  std::vector<ZYNAdmXmlElement const*> children;  // in the reference volume's list, in order
  std::vector<bool> dealtWith;                    // File children that leave the reference
  std::vector<std::size_t> files;                 // positions of the File children
  std::vector<Matched> matched;                   // those the first pass found
  ScannedVolume scanned;
};

struct ShiftGroup {
  long long value;
  int count;
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
    if (!_taken[i]) keep.push_back(*_children[i]);
  }
  if (keep.size() != _children.size()) sReplaceChildren(_cd, keep);
}

// Pointers, not handles: a handle copied would touch every element's count twice.
static std::vector<ZYNAdmXmlElement const*> sChildren(ZYNAdmXmlElement const& parent) {
  std::vector<ZYNAdmXmlElement const*> children;
  for (ZYNAdmXmlElement const& child : parent.Children()) children.push_back(&child);
  return children;
}

// A tree without `CDs` is walked from its root and simply has no volume.
static ZYNAdmXmlElement sVolumes(ZYNAdmXmlElement const& media) {
  ZYNAdmXmlElement cds;
  Services::GetFirstElement(media, DString(L"CDs"), cds);
  return cds;
}

static bool sNear(long long delta, long long shift) { return delta >= shift - 1 && delta <= shift + 1; }

// A TOC at the root is rewritten when a media is assembled, so only an older one counts.
static bool sTimeIsWrong(bool toc, long long delta, long long first, long long second) {
  if (toc) return delta < first - 1 && delta < second - 1;
  return !sNear(delta, first) && !sNear(delta, second) && !sNear(delta, first + second);
}

// The sentence goes to the report's text and, with its parts, to the findings' records.
static void sAppendFinding(DString& errors, ZYNInsFindingKind kind, int volume, wchar_t const* text,
                           DStrings const& parameters) {
  DString sentence = ZYNInsMsg::BuildMsg(DString(text), parameters);
  errors.Append(sentence);
  ZYNInsFindings::Add(kind, volume, parameters, sentence);
}

// The reference volumes to compare, each with the scanned volume at the same place among
// those scanned. `-cds` leaves volumes out of the scan, so those are passed over without
// taking a partner.
static std::vector<VolumePair> sPairVolumes(ZYNAdmXmlElement const& reference, ZYNAdmXmlElement const& current,
                                            Names const& names) {
  std::vector<VolumePair> pairs;
  ZYNAdmXmlElement refCDs = sVolumes(reference);
  ZYNAdmXmlElement curCDs = sVolumes(current);
  DStrings wanted = ZYNInsMediaCheckerOptions::GetCDsToCheck();
  void* partner = curCDs.GetChildren();
  int number = 1;
  for (ZYNAdmXmlElement const& refCD : refCDs.Children()) {
    if (refCD.GetNameRef() != names.cd) continue;
    int cd = number++;
    if (!wanted.IsEmpty() && wanted.Find(DString::FromNum(cd, "%d"), 0) < 0) continue;
    // Past the last scanned volume the partner is an element without files.
    ZYNAdmXmlElement scanned = partner != nullptr ? curCDs.GetChild(partner) : ZYNAdmXmlElement();
    VolumePair pair{cd, refCD, sChildren(refCD), {}, {}, {}, ScannedVolume(scanned, names)};
    pair.dealtWith.assign(pair.children.size(), false);
    for (std::size_t i = 0; i < pair.children.size(); ++i) {
      if (pair.children[i]->GetNameRef() == names.file) pair.files.push_back(i);
    }
    pairs.push_back(std::move(pair));
  }
  return pairs;
}

static const unsigned short S_Toc[] = {'/', 'T', 'O', 'C'};

// A name read on a machine with other settings (language table, locale) is recorded as
// another text of the same bytes: the file is there if the volume holds the text that
// the bytes give here. Only a path not found as recorded comes this way.
static int sFindUnderOtherReading(ScannedVolume const& scanned, Units path, ZYNInsFileFields& probe) {
  DStrings others;
  ZYNAdmNameReadings::Others(DString(path.at, path.length), others);
  for (int i = 0; i < others.GetLength(); ++i) {
    DString const& other = *others.GetAsPtr(i);
    int slot = scanned.Find(Units{other.ConvertToUCChar(), other.Length()}, probe);
    if (slot >= 0) return slot;
  }
  return -1;
}

// Pass 0: files gone and altered content, and the time differences of every file.
static void sFindMissingAndAltered(std::vector<VolumePair>& pairs, Names const& names, DString& errors,
                                   std::vector<long long>& deltas) {
  // What each file's first look gives, read on every core; the findings follow in order.
  struct Look {
    int slot;
    ZYNAdmXmlElement const* match;
    long long seconds;
    long long delta;
    bool sameHash;
    bool toc;
  };
  for (VolumePair& pair : pairs) {
    std::vector<Look> looks(pair.files.size());
    QRTForEachRange("compare", looks.size(), ScannedVolume::S_Range, [&](std::size_t first, std::size_t last) {
      std::unique_ptr<ZYNInsFileFields[]> fields(new ZYNInsFileFields[3]);
      ZYNInsFileFields& expected = fields[0];
      ZYNInsFileFields& found = fields[1];
      for (std::size_t i = first; i < last; ++i) {
        expected.Read(pair.children[pair.files[i]]);
        Look& look = looks[i];
        look.slot = pair.scanned.Find(expected.path, fields[2]);
        if (look.slot < 0) look.slot = sFindUnderOtherReading(pair.scanned, expected.path, fields[2]);
        look.match = pair.scanned.First(look.slot);
        found.Read(look.match, ZYNInsFileFields::kHash | ZYNInsFileFields::kTimestamp);
        look.seconds = expected.Seconds();
        look.delta = DeltaOf(found.Seconds(), look.seconds);
        look.sameHash = ZYNInsFileFields::SameHash(found, expected);
        look.toc = ZYNInsFileFields::LooselyEqual(expected.path, Units{S_Toc, 4});
      }
    });
    DString cd = DString::FromNum(pair.number, "%d");
    pair.matched.reserve(looks.size());
    for (std::size_t i = 0; i < looks.size(); ++i) {
      Look const& look = looks[i];
      std::size_t at = pair.files[i];
      ZYNAdmXmlElement const& file = *pair.children[at];
      deltas.push_back(look.delta);
      if (look.match == nullptr) {
        sAppendFinding(errors, ZYNInsFindingMissing, pair.number, S_Missing,
                       DStrings(cd, file.GetAttributeValue(names.path)));
        pair.dealtWith[at] = true;  // takes no further part
        continue;
      }
      if (!look.sameHash) {
        sAppendFinding(errors, ZYNInsFindingAltered, pair.number, S_Content,
                       DStrings(cd, file.GetAttributeValue(names.path), look.match->GetAttributeValue(names.hash),
                                file.GetAttributeValue(names.hash)));
      }
      pair.matched.push_back(Matched{at, look.slot, look.match, look.seconds, look.delta, look.toc});
    }
  }
}

// Pass 1: the times, against the shifts common to the media; every file judged leaves
// both trees.
static void sFindWrongTimes(std::vector<VolumePair>& pairs, Names const& names, long long first, long long second,
                            DString& errors) {
  std::unique_ptr<ZYNInsFileFields> found(new ZYNInsFileFields());
  for (VolumePair& pair : pairs) {
    DString cd = DString::FromNum(pair.number, "%d");
    for (Matched const& file : pair.matched) {
      ZYNAdmXmlElement const* taken = pair.scanned.Take(file.slot);
      pair.dealtWith[file.at] = true;
      long long delta = file.delta;
      // A path the reference lists twice takes the next scanned file of that path, or none.
      if (taken != file.found) {
        found->Read(taken, ZYNInsFileFields::kTimestamp);
        delta = DeltaOf(found->Seconds(), file.expected);
      }
      if (!sTimeIsWrong(file.toc, delta, first, second)) continue;
      ZYNAdmXmlElement const& expected = *pair.children[file.at];
      DString retrieved = taken == nullptr ? DString() : taken->GetAttributeValue(names.timestamp);
      sAppendFinding(
          errors, ZYNInsFindingTime, pair.number, S_Time,
          DStrings(cd, expected.GetAttributeValue(names.path), retrieved, expected.GetAttributeValue(names.timestamp)));
    }
    std::vector<ZYNAdmXmlElement> keep;
    for (std::size_t i = 0; i < pair.children.size(); ++i) {
      if (!pair.dealtWith[i]) keep.push_back(*pair.children[i]);
    }
    if (keep.size() != pair.children.size()) sReplaceChildren(pair.reference, keep);
    pair.scanned.Commit();
  }
}

// Compared on each side of 0, since the lowest difference has no opposite.
static bool sIsShiftCandidate(long long value) {
  if (value == 0) return true;
  if (value < 0) return value >= -S_MaxShift && value <= -S_MinShift;
  return value >= S_MinShift && value <= S_MaxShift;
}

// The two most frequent candidates; of two groups with equal counts the earlier stays
// ahead.
static void sPickShifts(std::vector<ShiftGroup> const& groups, long long& first, long long& second) {
  first = 0;
  second = 0;
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

// Differences are grouped as their decimal texts would be: one text for each value.
static void sTimeShift(std::vector<long long> const& deltas, long long& first, long long& second) {
  std::vector<ShiftGroup> groups;
  std::unordered_map<long long, std::size_t> groupOf;
  for (long long delta : deltas) {
    auto inserted = groupOf.emplace(delta, groups.size());
    if (inserted.second) groups.push_back(ShiftGroup{delta, 0});
    ++groups[inserted.first->second].count;
  }
  sPickShifts(groups, first, second);
}

void ZYNInsMediaCheckerServices::GetErrors(ZYNAdmXmlElement& reference, ZYNAdmXmlElement& current, DString& errors) {
  Names const names;
  std::vector<VolumePair> pairs = sPairVolumes(reference, current, names);
  std::vector<long long> deltas;
  sFindMissingAndAltered(pairs, names, errors, deltas);
  long long first = 0;
  long long second = 0;
  sTimeShift(deltas, first, second);
  sFindWrongTimes(pairs, names, first, second, errors);
  GetUnexpectedFiles(current, errors);
}

// Values are grouped by their text, in the order of their first appearance.
void ZYNInsMediaCheckerServices::GetTimeShift(DStrings shifts, long long& first, long long& second) {
  std::vector<ShiftGroup> groups;
  std::unordered_map<DString, std::size_t, TextHash> groupOf;
  for (int i = 0, n = shifts.GetLength(); i < n; ++i) {
    DString const& text = *shifts.GetAsPtr(i);
    auto inserted = groupOf.emplace(text, groups.size());
    if (inserted.second) groups.push_back(ShiftGroup{ZYNInsFileFields::SecondsOf(text), 0});
    ++groups[inserted.first->second].count;
  }
  sPickShifts(groups, first, second);
}

// The volume scanned after `volume`, by -cds; the volume numbers run on past the list.
static int sNextScanned(DStrings const& wanted, int volume) {
  for (++volume; !wanted.IsEmpty() && wanted.Find(DString::FromNum(volume, "%d"), 0) < 0; ++volume) {
    if (volume > 65535) break;
  }
  return volume;
}

// The counter runs over the scanned volumes, not the volume numbers: with -cds the
// first scanned volume is CD1 here whatever its number. The records carry the true one.
void ZYNInsMediaCheckerServices::GetUnexpectedFiles(ZYNAdmXmlElement current, DString& errors) {
  ZYNAdmXmlElement cds = sVolumes(current);
  DStrings wanted = ZYNInsMediaCheckerOptions::GetCDsToCheck();
  int counter = 1;
  int volume = 0;
  for (ZYNAdmXmlElement const& cd : cds.Children()) {
    if (cd.GetNameRef() != DString(L"CD")) continue;
    DString number = DString::FromNum(counter++, "%d");
    volume = sNextScanned(wanted, volume);
    for (ZYNAdmXmlElement const& file : cd.Children()) {
      if (file.GetNameRef() != DString(L"File")) continue;
      sAppendFinding(errors, ZYNInsFindingUnexpected, volume, S_Unexpected,
                     DStrings(number, file.GetAttributeValue(DString(L"path"))));
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
