#ifndef ZYN_ADM_ZYNADMOUTPUTSTREAM_H
#define ZYN_ADM_ZYNADMOUTPUTSTREAM_H

// A sink of bytes. Handed over unopened; the producer opens, writes and closes it.
class ZYNAdmOutputStream {
 public:
  virtual ~ZYNAdmOutputStream() {}
  // Not 0 on success.
  virtual int Open() = 0;
  // Bytes taken; anything other than `count` is a failure to the caller.
  virtual int Write(unsigned char* buffer, int count) = 0;
  // Not 0 on success.
  virtual int Close() = 0;
};

#endif
