#ifndef ZYN_TEXT_QRTSYSTSARRAYLISTABSTRACTCTNR_H
#define ZYN_TEXT_QRTSYSTSARRAYLISTABSTRACTCTNR_H

#include "ZYNResult.h"

// Untyped growable array of fixed-size elements. It moves elements by plain byte
// copies and never constructs or destroys them: the typed class on top does that,
// so whatever is stored here must be relocatable by a byte move.
class QRTSysTSArrayListAbstractCtnr {
 public:
  explicit QRTSysTSArrayListAbstractCtnr(int elementSize);
  ~QRTSysTSArrayListAbstractCtnr();

  QRTSysTSArrayListAbstractCtnr(QRTSysTSArrayListAbstractCtnr const&) = delete;
  QRTSysTSArrayListAbstractCtnr& operator=(QRTSysTSArrayListAbstractCtnr const&) = delete;

  int ReInit(int capacity);
  int SetCapacity(int capacity);
  int MakeRoom(int index, int n);
  int Move(int to, int from, int n);
  int CheckIndex(int index) const;
  int CheckRange(int first, int last) const;

  int GetCount() const { return _count; }
  int GetCapacity() const { return _capacity; }
  int GetElementSize() const { return _elementSize; }
  void* GetStorage() const { return _storage; }
  // Address of slot `index`; no check, the typed layer has done it.
  void* At(int index) const { return _storage + static_cast<long>(index) * _elementSize; }
  // The typed layer lowers the count after destroying elements it removed.
  void SetCount(int count) { _count = count; }
  // Exchanges whole contents, for a typed owner that rebuilds itself aside.
  void Swap(QRTSysTSArrayListAbstractCtnr& other);

 private:
  void _Reallocate(int capacity, bool keepElements);

  unsigned char* _storage;
  int _count;
  int _capacity;
  int _elementSize;
};

#endif
