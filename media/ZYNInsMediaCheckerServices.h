#ifndef ZYN_MEDIA_ZYNINSMEDIACHECKERSERVICES_H
#define ZYN_MEDIA_ZYNINSMEDIACHECKERSERVICES_H

#include "DString.h"

// The operations on a media. Static members only: a run has one media.
class ZYNInsMediaCheckerServices {
 public:
  // Empties the calling thread's error stack onto the console as one block, oldest
  // record first and `message` last.
  static void DisplayError(DString message);
};

#endif
