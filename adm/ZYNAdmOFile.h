#ifndef ZYN_ADM_ZYNADMOFILE_H
#define ZYN_ADM_ZYNADMOFILE_H

#include "DString.h"
#include "ZYNAdmOutputFile.h"
#include "ZYNAdmOutputText.h"

// A text file written line by line; Open creates or empties it. Results are 0 or the
// generic failure.
class ZYNAdmOFile {
 public:
  explicit ZYNAdmOFile(DString fileName);
  virtual ~ZYNAdmOFile() {}

  DString GetFilename() const { return _fileName; }
  int Open();
  int Close();
  int WriteLine(DString line) { return _text.WriteLine(line); }

 private:
  ZYNAdmOFile(ZYNAdmOFile const&) = delete;  // the text layer points at our own file
  ZYNAdmOFile& operator=(ZYNAdmOFile const&) = delete;

  DString _fileName;
  ZYNAdmOutputFile _file;
  ZYNAdmOutputText _text;
};

#endif
