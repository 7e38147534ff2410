#ifndef ZYN_MEDIA_ZYNINSFINDINGSJSON_H
#define ZYN_MEDIA_ZYNINSFINDINGSJSON_H

// ZYNInsFindingsJson.h - the run's findings as JSON Lines: a run record, the findings in
// the order of the report, a volume record per volume generated, a summary record.

#include <string>

#include "DString.h"

struct ZYNInsRunFacts;

class ZYNInsFindingsJson {
 public:
  // Raised whenever a record changes its meaning; fields may be added without it.
  static const int kSchema = 1;

  // The whole file: UTF-8, no byte order mark, one object and a line end per record.
  static std::string Text(ZYNInsRunFacts const& facts);

  // `text` as a JSON string, quotes included. Units that are no character (the halves
  // that stand for bytes the code page refused) become U+FFFD.
  static std::string String(DString const& text);
  // Whether String loses anything of `text`.
  static bool IsLossy(DString const& text);
  // The bytes that `text` names on disk, as the system layer converts it, in hex.
  static std::string Hex(DString const& text);
};

// `unit` as UTF-8, or U+FFFD for a surrogate half; shared by the JUnit writer.
void ZYNInsAppendUtf8(std::string& out, unsigned unit);
// Seconds with three decimals and a point, whatever the locale's decimal sign.
std::string ZYNInsSecondsText(double seconds);

#endif
