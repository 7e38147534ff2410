// Reading a File element's fields in place, for the walks over every file of a volume.
#include "ZYNInsFileFields.h"

#include <cstring>

#include "DString.h"

typedef ZYNAdmXmlElement::StoredValue View;

static DString const& sPathName() {
  static DString const S_name(L"path");
  return S_name;
}
static DString const& sHashName() {
  static DString const S_name(L"hash");
  return S_name;
}
static DString const& sTimestampName() {
  static DString const S_name(L"timestamp");
  return S_name;
}

static bool sIsNamed(DString const* name, DString const& wanted) {
  return name->Length() == wanted.Length() && name->IsSubStringAt(0, wanted);
}

// The units of a compact value, and a unit 0 behind them.
static void sUnpack(View const& value, unsigned short* out) {
  ZYNAdmXmlElement::DecodeStored(value, out);
  out[value.length] = 0;
}

ZYNInsFileFields::Units ZYNInsFileFields::_Decode(View const& value, int room) {
  Units units;
  units.length = value.length;
  units.at = value.units;
  if (units.at != nullptr) return units;
  sUnpack(value, _rooms[room]);
  units.at = _rooms[room];
  return units;
}

void ZYNInsFileFields::Read(ZYNAdmXmlElement const* file, int fields) {
  _file = file;
  path = timestamp = Units();
  _hash = View();
  if (file == nullptr) return;
  for (void* it = file->GetAttributes(); it != nullptr;) {
    View value;
    DString const* name = file->NextStoredAttribute(it, value);
    if (name == nullptr) return;
    if ((fields & kPath) != 0 && sIsNamed(name, sPathName())) {
      path = _Decode(value, 0);
    } else if ((fields & kHash) != 0 && sIsNamed(name, sHashName())) {
      _hash = value;
    } else if ((fields & kTimestamp) != 0 && sIsNamed(name, sTimestampName())) {
      timestamp = _Decode(value, 1);
    }
  }
}

long long ZYNInsFileFields::Seconds() const {
  // Plain digits, the form of every reference made, are read here; anything else as
  // sscanf reads it.
  int first = timestamp.length > 0 && timestamp.at[0] == '-' ? 1 : 0;
  int digits = timestamp.length - first;
  bool plain = digits >= 1 && digits <= 18;
  long long value = 0;
  for (int i = first; plain && i < timestamp.length; ++i) {
    unsigned short unit = timestamp.at[i];
    plain = unit >= '0' && unit <= '9';
    if (plain) value = value * 10 + (unit - '0');
  }
  if (plain) return first == 1 ? -value : value;
  return _file == nullptr ? 0 : SecondsOf(_file->GetAttributeValue(sTimestampName()));
}

long long ZYNInsFileFields::SecondsOf(DString const& text) {
  long long value = 0;
  text.ConvertToNum(value, "%lld");
  return value;
}

int ZYNInsFileFields::ComparePaths(ZYNInsFileFields const& a, ZYNInsFileFields const& b) {
  if (a.path.length == 0 && b.path.length == 0) return 0;
  if (a.path.length == 0) return -1;
  if (b.path.length == 0) return 1;
  for (unsigned short const *left = a.path.at, *right = b.path.at;; ++left, ++right) {
    if (*left != *right) return *left < *right ? -1 : 1;
    if (*left == 0) return 0;
  }
}

bool ZYNInsFileFields::SameUnits(Units a, Units b) {
  return a.length == b.length &&
         (a.length == 0 || std::memcmp(a.at, b.at, sizeof(unsigned short) * static_cast<size_t>(a.length)) == 0);
}

bool ZYNInsFileFields::LooselyEqual(Units a, Units b) {
  if (a.length == b.length) return SameUnits(a, b);
  Units const& longer = a.length > b.length ? a : b;
  return (longer.at[0] & 0xFF) == 0;
}

bool ZYNInsFileFields::SameHash(ZYNInsFileFields const& a, ZYNInsFileFields const& b) {
  View const& left = a._hash;
  View const& right = b._hash;
  // Two digests stored alike: their bytes tell.
  if (left.units == nullptr && right.units == nullptr && left.length == right.length && left.nibbles == right.nibbles) {
    size_t bytes = static_cast<size_t>(left.nibbles ? (left.length + 1) / 2 : left.length);
    return bytes == 0 || std::memcmp(left.bytes, right.bytes, bytes) == 0;
  }
  unsigned short leftRoom[ZYNAdmXmlElement::kStoredMaxUnits + 1];
  unsigned short rightRoom[ZYNAdmXmlElement::kStoredMaxUnits + 1];
  Units leftUnits{left.units, left.length};
  Units rightUnits{right.units, right.length};
  if (left.units == nullptr) {
    sUnpack(left, leftRoom);
    leftUnits.at = leftRoom;
  }
  if (right.units == nullptr) {
    sUnpack(right, rightRoom);
    rightUnits.at = rightRoom;
  }
  return LooselyEqual(leftUnits, rightUnits);
}
