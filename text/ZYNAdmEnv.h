#ifndef ZYN_TEXT_ZYNADMENV_H
#define ZYN_TEXT_ZYNADMENV_H

#include "DString.h"

// The environment as DString values.
class ZYNAdmEnv {
 public:
  static DString GetEnv(DString name);
  static int PutEnv(DString name, DString value);
};

#endif
