#ifndef ZYN_ADM_ZYNADMREPLACINGFILE_H
#define ZYN_ADM_ZYNADMREPLACINGFILE_H

#include <memory>
#include <string>

#include "DString.h"
#include "ZYNAdmOutputStream.h"

// Writes a file that takes the place of the one at its path only when whole: the bytes go
// to a new file beside it, which Close flushes to disk and renames over the path. A link
// at the path is replaced, never followed; on any failure, or if the object dies before
// Close, the new file goes and the old one stays as it was. A character device at the
// path (such as /dev/null) can't be replaced and is written in place.
class ZYNAdmReplacingFile : public ZYNAdmOutputStream {
 public:
  explicit ZYNAdmReplacingFile(DString path) : _path(path), _handle(0), _failed(false) {}
  ~ZYNAdmReplacingFile() override;
  int Open() override;
  int Write(unsigned char* buffer, int count) override;
  int Close() override;

 private:
  ZYNAdmReplacingFile(ZYNAdmReplacingFile const&) = delete;
  ZYNAdmReplacingFile& operator=(ZYNAdmReplacingFile const&) = delete;
  void Discard();

  DString _path;
  std::string _final;      // the narrow path
  std::string _temporary;  // empty when writing in place
  long _handle;
  bool _failed;
  std::unique_ptr<char[]> _buffer;  // the stream's, freed after it is closed
};

#endif
