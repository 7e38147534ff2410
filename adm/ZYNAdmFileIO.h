#ifndef ZYN_ADM_ZYNADMFILEIO_H
#define ZYN_ADM_ZYNADMFILEIO_H

#include "DString.h"

// Buffered files under a DString path. A handle is the FILE pointer held as a long.
// All give 0 or the generic failure; none pushes an error record.
int ZYNAdmFOpen(DString path, DString mode, long& handle);
// Reading only, and only a regular file: the open never waits (a FIFO, a device) and
// anything else counts as missing.
int ZYNAdmFOpenRegular(DString path, long& handle);
int ZYNAdmFSeek(long handle, int offset, int origin);
int ZYNAdmFClose(long& handle);
// A read fault fails; the bytes read before it are still counted in `read`.
int ZYNAdmFRead(long handle, char* buffer, unsigned int count, unsigned int* read);
int ZYNAdmFWrite(long handle, const char* buffer, unsigned int count, unsigned int* written);

#endif
