#ifndef ZYN_TEXT_ZYNRESULT_H
#define ZYN_TEXT_ZYNRESULT_H

// Result values shared by the layers that report 0 for success.
static const int ZYN_S_OK = 0;
static const int ZYN_E_FAIL = static_cast<int>(0x80004005u);
static const int ZYN_E_NOTIMPL = static_cast<int>(0x80004001u);

// A kernel error number carried in a result: 0x80070000 plus its low 16 bits.
inline int ZYNResultFromErrno(int err) {
  return static_cast<int>(0x80070000u | (static_cast<unsigned int>(err) & 0xFFFFu));
}

#endif
