// Reading a File element's fields in place, for the walks over every file of a volume.
#include "ZYNInsFileFields.h"

#include "DString.h"

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

void ZYNInsFileFields::Read(ZYNAdmXmlElement const* file) {
  _file = file;
  path = hash = timestamp = Units();
  if (file == nullptr) return;
  int room = 0;  // the rooms below it hold a value kept
  for (void* it = file->GetAttributes(); it != nullptr;) {
    Units value;
    DString const* name = file->_NextAttributeUnits(it, value.at, value.length, _rooms[room]);
    if (name == nullptr) return;
    Units* field = sIsNamed(name, sPathName())        ? &path
                   : sIsNamed(name, sHashName())      ? &hash
                   : sIsNamed(name, sTimestampName()) ? &timestamp
                                                      : nullptr;
    if (field == nullptr) continue;
    if (value.at == _rooms[room]) _rooms[room++][value.length] = 0;
    *field = value;
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
  value = 0;
  if (_file != nullptr) _file->GetAttributeValue(sTimestampName()).ConvertToNum(value, "%lld");
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
