#ifndef ZYN_SYSTEMTS_ZYNSYSREFCOUNTITF_H
#define ZYN_SYSTEMTS_ZYNSYSREFCOUNTITF_H

// The lifetime interface of a shared object: the last Release deletes it.
class ZYNSysRefCountItf {
 public:
  virtual int AddRef() = 0;
  virtual int Release() = 0;

 protected:
  virtual ~ZYNSysRefCountItf() {}
};

#endif
