#ifndef ZYN_ADM_ZYNADMOUTPUTTEXT_H
#define ZYN_ADM_ZYNADMOUTPUTTEXT_H

#include "DString.h"

class ZYNAdmOutputStream;

// Lines into any output stream, through the narrow conversion, each ending in LF.
class ZYNAdmOutputText {
 public:
  explicit ZYNAdmOutputText(ZYNAdmOutputStream* stream) : _stream(stream) {}
  virtual ~ZYNAdmOutputText() {}

  int Open();
  int Close();
  // 0 or the generic failure; a short write is a failure.
  int WriteLine(DString line);

 private:
  ZYNAdmOutputStream* _stream;  // not owned
};

#endif
