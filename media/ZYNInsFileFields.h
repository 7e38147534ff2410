#ifndef ZYN_MEDIA_ZYNINSFILEFIELDS_H
#define ZYN_MEDIA_ZYNINSFILEFIELDS_H

#include "ZYNAdmXmlElement.h"

// The path, hash and timestamp of a File element, read in one walk of its attributes
// without a string made for any of them: a value held compact is decoded into room of
// the reader's own, or, for the hash, compared as it is stored; the element is left as
// it was (a borrowed view would turn each compact value into a string for good, a
// hundred thousand of them on a large volume). The views last until the next Read; an
// attribute that isn't there, or wasn't asked for, reads empty. Every view is followed
// by a unit 0, as a DString's text is.
class ZYNInsFileFields {
 public:
  struct Units {
    unsigned short const* at = nullptr;
    int length = 0;
  };
  enum Field { kPath = 1, kHash = 2, kTimestamp = 4, kAll = 7 };

  // Null reads as an element without attributes. `fields`: a mask of Field.
  void Read(ZYNAdmXmlElement const* file, int fields = kAll);

  // The timestamp as DString::ConvertToNum with "%lld" reads it.
  long long Seconds() const;

  // DString::Compare of the two paths.
  static int ComparePaths(ZYNInsFileFields const& a, ZYNInsFileFields const& b);

  // DString's == of the two hashes, loose as it is: of two texts of different lengths
  // the longer passes for equal when its first unit's low byte is 0.
  static bool SameHash(ZYNInsFileFields const& a, ZYNInsFileFields const& b);
  static bool LooselyEqual(Units a, Units b);
  // Unit for unit.
  static bool SameUnits(Units a, Units b);

  // A timestamp's text as DString::ConvertToNum with "%lld" reads it: 0 where it fails.
  static long long SecondsOf(DString const& text);

  Units path;
  Units timestamp;

 private:
  Units _Decode(ZYNAdmXmlElement::StoredValue const& value, int room);

  ZYNAdmXmlElement const* _file = nullptr;
  ZYNAdmXmlElement::StoredValue _hash = ZYNAdmXmlElement::StoredValue();
  unsigned short _rooms[2][ZYNAdmXmlElement::kStoredMaxUnits + 1];
};

#endif
