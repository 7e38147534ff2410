#ifndef ZYN_ADM_ZYNADMINPUTTEXT_H
#define ZYN_ADM_ZYNADMINPUTTEXT_H

#include "DString.h"

class ZYNAdmInputStream;

// Lines out of any input stream. Bytes are widened one by one, with no character set
// applied; CR is dropped wherever it stands and LF ends a line.
class ZYNAdmInputText {
 public:
  explicit ZYNAdmInputText(ZYNAdmInputStream* stream) : _stream(stream) {}
  virtual ~ZYNAdmInputText() {}

  int Open();
  int Close();
  // 1 when a line end was read, 0 at the end of the data (`line` may still hold a last
  // line), -1 on failure. `maximum` sizes the work chunk only; lines of any length arrive.
  int ReadLine(DString& line, int maximum);

 private:
  ZYNAdmInputStream* _stream;  // not owned
};

#endif
