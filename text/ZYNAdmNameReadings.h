#ifndef ZYN_TEXT_ZYNADMNAMEREADINGS_H
#define ZYN_TEXT_ZYNADMNAMEREADINGS_H

// ZYNAdmNameReadings.h - the other texts that the bytes of one file name give: a name
// recorded on one machine, read back under the settings of another.

#include "DString.h"

class DStrings;

// A name on disk is bytes; the text recorded for it depends on the reading in force
// where it was read: bytes as units (no language table), UTF-8, or the locale's code
// page. Given a recorded text, this finds the bytes each reading would have read it
// from, and what the reading in force now makes of those bytes.
class ZYNAdmNameReadings {
 public:
  // Appends to `others` each text, other than `recorded` and without repeats, under
  // which the reading in force now shows bytes that another reading shows as
  // `recorded`. Nothing for a text that all readings share, such as ASCII. Safe on any
  // thread; prints nothing.
  static void Others(DString const& recorded, DStrings& others);
};

#endif
