#ifndef ZYN_ADM_ZYNADMERROR_H
#define ZYN_ADM_ZYNADMERROR_H

#include "DString.h"

class DStrings;
struct ZYNAdmErrorGlobalData;
struct ZYNAdmErrorLocalInfo;

// Nothing reads the type back; these are the two values raised.
enum ZYNAdmErrorType {
  ZYNAdmErrorTypeApplication = 1,
  ZYNAdmErrorTypeFile = 3,
};

// One error record and, through its statics, the calling thread's error stack.
// Index 0 is always the newest record.
class ZYNAdmError {
 public:
  ZYNAdmError(DString message, ZYNAdmErrorType type, int hresult, int errorCode);
  virtual ~ZYNAdmError();

  static void Push(DString message, ZYNAdmErrorType type, int hresult, int errorCode);
  static void Push(DString catalog, DString key, DStrings const* parameters, ZYNAdmErrorType type, int hresult,
                   int errorCode);
  // Convenience for the application's own records: type 1, the generic failure, code 1.
  static void Push(DString message);
  static void PushGetLastError(DString message, ZYNAdmErrorType type, int hresult);

  static DString Pop();
  static ZYNAdmError* GetErrorAtIndex(int index);
  static DString GetError(int index);
  static int GetErrorCode(int index);
  static int GetHRESULT(int index);
  static int GetErrorType(int index);
  static void FlushStack();
  static int GetStackSize();
  static bool IsStackEmpty();

  static void ConstructOnce();
  static ZYNAdmErrorLocalInfo* GetThreadLocalInfo(int create);
  static bool StackError(ZYNAdmError* error);

  DString const& GetMessage() const { return _message; }

  static ZYNAdmErrorGlobalData* S_GlobalData;

 private:
  ZYNAdmError(ZYNAdmError const&) = delete;
  ZYNAdmError& operator=(ZYNAdmError const&) = delete;

  DString _message;
  ZYNAdmErrorType _type;
  int _hresult;
  int _errorCode;
};

#endif
