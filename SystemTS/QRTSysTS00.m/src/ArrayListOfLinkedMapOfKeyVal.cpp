// ArrayListOfLinkedMapOfKeyVal.cpp - an array of key-value maps, the life-cycle manager's registration lists.
#include "ArrayListOfLinkedMapOfKeyVal.h"

#include <cstdint>
#include <new>

#include "ZYNResult.h"

ArrayListOfLinkedMapOfKeyVal::ArrayListOfLinkedMapOfKeyVal() : _array(sizeof(LinkedMapOfKeyVal)) {}

ArrayListOfLinkedMapOfKeyVal::ArrayListOfLinkedMapOfKeyVal(ArrayListOfLinkedMapOfKeyVal const& other)
    : _array(sizeof(LinkedMapOfKeyVal)) {
  _array.SetCapacity(other.GetCapacity());
  Insert(0, other);
}

ArrayListOfLinkedMapOfKeyVal::~ArrayListOfLinkedMapOfKeyVal() { DestroyRange(0, GetLength()); }

ArrayListOfLinkedMapOfKeyVal& ArrayListOfLinkedMapOfKeyVal::operator=(ArrayListOfLinkedMapOfKeyVal const& other) {
  if (&other == this) return *this;
  Clear();
  Insert(0, other);
  return *this;
}

void ArrayListOfLinkedMapOfKeyVal::Clear() {
  DestroyRange(0, GetLength());
  _array.SetCount(0);
}

// Every slot holds exactly a LinkedMapOfKeyVal, built here, so the destructor is
// called directly rather than through the virtual table.
void ArrayListOfLinkedMapOfKeyVal::DestroyRange(int first, int last) {
  for (int i = first; i < last; ++i) At(i)->LinkedMapOfKeyVal::~LinkedMapOfKeyVal();
}

// A bucket taken from our own storage would move when MakeRoom reallocates.
bool ArrayListOfLinkedMapOfKeyVal::_HoldsAddress(void const* p) const {
  if (_array.GetStorage() == nullptr) return false;
  uintptr_t begin = reinterpret_cast<uintptr_t>(_array.GetStorage());
  uintptr_t end = begin + static_cast<uintptr_t>(_array.GetCapacity()) * sizeof(LinkedMapOfKeyVal);
  uintptr_t address = reinterpret_cast<uintptr_t>(p);
  return address >= begin && address < end;
}

int ArrayListOfLinkedMapOfKeyVal::Insert(int index, LinkedMapOfKeyVal const& bucket) {
  if (_HoldsAddress(&bucket)) {
    LinkedMapOfKeyVal copy(bucket);
    return Insert(index, copy);
  }
  int hr = _array.MakeRoom(index, 1);
  if (hr != ZYN_S_OK) return hr;
  new (_array.At(index)) LinkedMapOfKeyVal(bucket);
  return ZYN_S_OK;
}

int ArrayListOfLinkedMapOfKeyVal::Insert(int index, ArrayListOfLinkedMapOfKeyVal const& buckets) {
  if (&buckets == this) {
    ArrayListOfLinkedMapOfKeyVal copy(buckets);
    return Insert(index, copy);
  }
  int n = buckets.GetLength();
  int hr = _array.MakeRoom(index, n);
  if (hr != ZYN_S_OK) return hr;
  for (int i = 0; i < n; ++i) new (_array.At(index + i)) LinkedMapOfKeyVal(*buckets.At(i));
  return ZYN_S_OK;
}

int ArrayListOfLinkedMapOfKeyVal::PutBackEmpty(int n) {
  int index = GetLength();
  int hr = _array.MakeRoom(index, n);
  if (hr != ZYN_S_OK) return hr;
  for (int i = 0; i < n; ++i) new (_array.At(index + i)) LinkedMapOfKeyVal();
  return ZYN_S_OK;
}

int ArrayListOfLinkedMapOfKeyVal::Remove(int index) {
  if (_array.CheckIndex(index) != ZYN_S_OK) return ZYN_E_FAIL;
  return RemoveRange(index, index + 1);
}

int ArrayListOfLinkedMapOfKeyVal::RemoveRange(int first, int last) {
  if (_array.CheckRange(first, last) != ZYN_S_OK) return ZYN_E_FAIL;
  int count = GetLength();
  DestroyRange(first, last);
  _array.Move(first, last, count - last);
  _array.SetCount(count - (last - first));
  return ZYN_S_OK;
}

int ArrayListOfLinkedMapOfKeyVal::Set(int index, LinkedMapOfKeyVal const& bucket) {
  if (_array.CheckIndex(index) != ZYN_S_OK) return ZYN_E_FAIL;
  *At(index) = bucket;
  return ZYN_S_OK;
}

int ArrayListOfLinkedMapOfKeyVal::Get(int index, LinkedMapOfKeyVal& out) const {
  if (_array.CheckIndex(index) != ZYN_S_OK) return ZYN_E_FAIL;
  out = *At(index);
  return ZYN_S_OK;
}

LinkedMapOfKeyVal* ArrayListOfLinkedMapOfKeyVal::GetAsPtr(int index) {
  return _array.CheckIndex(index) == ZYN_S_OK ? At(index) : nullptr;
}

LinkedMapOfKeyVal const* ArrayListOfLinkedMapOfKeyVal::GetAsPtr(int index) const {
  return _array.CheckIndex(index) == ZYN_S_OK ? At(index) : nullptr;
}
