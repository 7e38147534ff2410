#ifndef ZYN_ADM_ZYNADMIFILE_H
#define ZYN_ADM_ZYNADMIFILE_H

#include "DString.h"
#include "ZYNAdmInputFile.h"
#include "ZYNAdmInputText.h"

// A text file read line by line. Results are 0 or the generic failure.
class ZYNAdmIFile {
 public:
  explicit ZYNAdmIFile(DString fileName);
  virtual ~ZYNAdmIFile() {}

  int Open();
  int Close();
  // A last line without a line end arrives with ReachedEOF() set.
  int GetLine(DString& line);
  unsigned char GetLineFailed() const { return _lineFailed; }
  unsigned char ReachedEOF() const { return _endReached; }

 private:
  ZYNAdmIFile(ZYNAdmIFile const&) = delete;  // the text layer points at our own file
  ZYNAdmIFile& operator=(ZYNAdmIFile const&) = delete;

  DString _fileName;
  ZYNAdmInputFile _file;
  ZYNAdmInputText _text;
  unsigned char _lineFailed;
  unsigned char _endReached;
};

#endif
