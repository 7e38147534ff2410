#ifndef ZYN_ADM_ZYNADMNARROWTEXT_H
#define ZYN_ADM_ZYNADMNARROWTEXT_H

#include "DString.h"

// The narrow form of a text for one system call, taken through ZYNAdmCodePage and
// given back through FreeAndNull on every road out of the caller.
class ZYNAdmNarrowText {
 public:
  explicit ZYNAdmNarrowText(DString const& text);
  ~ZYNAdmNarrowText();

  bool IsNull() const { return _text == nullptr; }
  char const* Get() const { return _text; }

 private:
  ZYNAdmNarrowText(ZYNAdmNarrowText const&) = delete;
  ZYNAdmNarrowText& operator=(ZYNAdmNarrowText const&) = delete;

  char* _text;
};

#endif
