#ifndef ZYN_ADM_ZYNADMINPUTFILE_H
#define ZYN_ADM_ZYNADMINPUTFILE_H

#include "DString.h"
#include "ZYNAdmInputStream.h"

// Reads a regular file from its start; anything else fails to open, as a missing file
// does. A read fault is -1, never a short count. Nothing is opened before Open().
class ZYNAdmInputFile : public ZYNAdmInputStream {
 public:
  explicit ZYNAdmInputFile(DString path) : _path(path), _handle(0) {}
  ~ZYNAdmInputFile() override;
  int Open() override;
  int Read(unsigned char* buffer, int count) override;
  int Close() override;

 private:
  DString _path;
  long _handle;
};

#endif
