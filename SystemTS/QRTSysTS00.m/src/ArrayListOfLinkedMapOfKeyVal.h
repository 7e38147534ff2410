#ifndef ZYN_SYSTEMTS_ARRAYLISTOFLINKEDMAPOFKEYVAL_H
#define ZYN_SYSTEMTS_ARRAYLISTOFLINKEDMAPOFKEYVAL_H

#include "LinkedMapOfKeyVal.h"
#include "QRTSysTSArrayListAbstractCtnr.h"

// The bucket table of the integer-keyed map: whole buckets stored by value in one
// array, so that a table of N buckets is one allocation. Buckets are built in place
// and relocated by byte moves; no node points back at its bucket, which makes that sound.
class ArrayListOfLinkedMapOfKeyVal {
 public:
  ArrayListOfLinkedMapOfKeyVal();
  ArrayListOfLinkedMapOfKeyVal(ArrayListOfLinkedMapOfKeyVal const& other);
  virtual ~ArrayListOfLinkedMapOfKeyVal();
  ArrayListOfLinkedMapOfKeyVal& operator=(ArrayListOfLinkedMapOfKeyVal const& other);

  void Clear();
  int GetLength() const { return _array.GetCount(); }
  bool IsEmpty() const { return _array.GetCount() == 0; }
  int GetCapacity() const { return _array.GetCapacity(); }
  int SetCapacity(int capacity) { return _array.SetCapacity(capacity); }

  int Insert(int index, LinkedMapOfKeyVal const& bucket);
  int Insert(int index, ArrayListOfLinkedMapOfKeyVal const& buckets);
  int PutBack(LinkedMapOfKeyVal const& bucket) { return Insert(GetLength(), bucket); }
  int PutFront(LinkedMapOfKeyVal const& bucket) { return Insert(0, bucket); }
  // Appends n empty buckets with a single growth, for a table being built.
  int PutBackEmpty(int n);
  int Remove(int index);
  int RemoveRange(int first, int last);
  int Set(int index, LinkedMapOfKeyVal const& bucket);
  int Get(int index, LinkedMapOfKeyVal& out) const;
  LinkedMapOfKeyVal* GetAsPtr(int index);
  LinkedMapOfKeyVal const* GetAsPtr(int index) const;

  // Unchecked access for the map's lookups; the map's hash is always in range.
  LinkedMapOfKeyVal* At(int index) const { return static_cast<LinkedMapOfKeyVal*>(_array.At(index)); }
  void Swap(ArrayListOfLinkedMapOfKeyVal& other) { _array.Swap(other._array); }

 private:
  bool _HoldsAddress(void const* p) const;
  void DestroyRange(int first, int last);

  QRTSysTSArrayListAbstractCtnr _array;
};

#endif
