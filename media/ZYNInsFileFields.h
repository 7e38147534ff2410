#ifndef ZYN_MEDIA_ZYNINSFILEFIELDS_H
#define ZYN_MEDIA_ZYNINSFILEFIELDS_H

#include "ZYNAdmXmlElement.h"

// The path, hash and timestamp of a File element, read in one walk of its attributes
// without a string made for any of them: a value held compact is decoded into room of
// the reader's own, and the element is left as it was (a borrowed view would turn each
// compact value into a string for good, a hundred thousand of them on a large volume).
// The views last until the next Read; an attribute that isn't there reads empty. Every
// view is followed by a unit 0, as a DString's text is.
class ZYNInsFileFields {
 public:
  struct Units {
    unsigned short const* at = nullptr;
    int length = 0;
  };

  // Null reads as an element without attributes.
  void Read(ZYNAdmXmlElement const* file);

  // The timestamp as DString::ConvertToNum with "%lld" reads it.
  long long Seconds() const;

  // DString::Compare of the two paths.
  static int ComparePaths(ZYNInsFileFields const& a, ZYNInsFileFields const& b);

  Units path;
  Units hash;
  Units timestamp;

 private:
  ZYNAdmXmlElement const* _file = nullptr;
  // One room for each field kept and one for the attributes passed over.
  unsigned short _rooms[4][ZYNAdmXmlElement::_scratchUnits + 1];
};

#endif
