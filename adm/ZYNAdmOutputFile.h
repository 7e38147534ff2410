#ifndef ZYN_ADM_ZYNADMOUTPUTFILE_H
#define ZYN_ADM_ZYNADMOUTPUTFILE_H

#include "DString.h"
#include "ZYNAdmOutputStream.h"

// Creates or empties a file on Open().
class ZYNAdmOutputFile : public ZYNAdmOutputStream {
 public:
  explicit ZYNAdmOutputFile(DString path) : _path(path), _handle(0) {}
  ~ZYNAdmOutputFile() override;
  int Open() override;
  int Write(unsigned char* buffer, int count) override;
  int Close() override;

 private:
  DString _path;
  long _handle;
};

#endif
