#ifndef ZYN_MEDIA_ZYNINSFINDINGSJUNIT_H
#define ZYN_MEDIA_ZYNINSFINDINGSJUNIT_H

// ZYNInsFindingsJUnit.h - the findings of a check as JUnit XML, for test dashboards: a
// suite per volume checked, a failing case per finding and one passing case for all the
// intact files of a volume, so that a large media gives a small file.

#include <string>

struct ZYNInsRunFacts;

class ZYNInsFindingsJUnit {
 public:
  // The whole file, UTF-8. Findings about the run rather than a volume (a cancel, a
  // reference that failed, a volume not identified) are failing cases of a suite "run".
  static std::string Text(ZYNInsRunFacts const& facts);
};

#endif
