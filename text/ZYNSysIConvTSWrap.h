#ifndef ZYN_TEXT_ZYNSYSICONVTSWRAP_H
#define ZYN_TEXT_ZYNSYSICONVTSWRAP_H

#include <iconv.h>

// One direction of a registered conversion pair: the pair's key K (always even) converts
// from the pair's first code set to its second, K + 1 the other way.
typedef unsigned int IConvDesc_t;

// The pivot code set: 16-bit units in the machine's byte order.
#define ZYN_ICONV_PIVOT "UCS-2-INTERNAL"

// A thread-safe table of conversion pairs over iconv. Open only registers names; each
// thread opens its own descriptors on its first conversion, so no iconv state is ever
// shared and no lock is held while converting.
class ZYNSysIConvTSWrap {
 public:
  // Finds or makes the pair of the two names. 0, or ZYN_E_FAIL for a null name or once the
  // session has ended.
  static int Open(char const* toCode, char const* fromCode, IConvDesc_t& handle);
  // The calling thread's descriptor for the handle, or (iconv_t)-1 when none can be had.
  static iconv_t GetIConvDesc(IConvDesc_t handle);

  // For a host that drives the session: make the lock and the record queue, and end all
  // conversion (descriptors closed, pairs freed; later conversions fall back to identity).
  static void sInitIConvTS(void* unused);
  static void sDeinitIConvTS(int unused);

  // The name handed to iconv_open for a code set name of this system.
  static char const* IConvName(char const* name);
};

#endif
