#ifndef ZYN_ADM_ZYNADMINPUTSTREAM_H
#define ZYN_ADM_ZYNADMINPUTSTREAM_H

// A source of bytes. Handed over unopened; the consumer opens, reads and closes it.
class ZYNAdmInputStream {
 public:
  virtual ~ZYNAdmInputStream() {}
  // Not 0 on success.
  virtual int Open() = 0;
  // Bytes read, 0 at the end of the data, -1 on failure.
  virtual int Read(unsigned char* buffer, int count) = 0;
  // Not 0 on success.
  virtual int Close() = 0;
};

#endif
