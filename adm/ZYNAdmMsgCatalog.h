#ifndef ZYN_ADM_ZYNADMMSGCATALOG_H
#define ZYN_ADM_ZYNADMMSGCATALOG_H

#include "DString.h"

class DStrings;

// Message texts by catalogue and key. No message file stands behind it: the text is
// the key itself in the notation catalog.key(p1, p2).
class ZYNAdmMsgCatalog {
 public:
  static DString BuildMessage(DString catalog, DString key, DStrings const* parameters, unsigned char* defaultUsed);
};

#endif
