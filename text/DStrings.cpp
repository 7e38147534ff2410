// DStrings.cpp - the ordered vector of string values.
#include "DStrings.h"

#include <stdlib.h>

#include <cstdint>
#include <vector>

static_assert(sizeof(DString) == sizeof(void*), "DStrings relocates handles by byte moves");

DStrings::DStrings() : _array(sizeof(DString)) {}

DStrings::DStrings(DStrings const& other) : _array(sizeof(DString)) {
  _array.SetCapacity(other.GetCapacity());
  Insert(0, other);
}

DStrings::DStrings(DStrings const& other, int first, int last) : _array(sizeof(DString)) {
  Insert(0, other, first, last);
}

DStrings::DStrings(DString const& s1) : _array(sizeof(DString)) {
  DString const* list[] = {&s1};
  _InsertList(list, 1);
}

DStrings::DStrings(DString const& s1, DString const& s2) : _array(sizeof(DString)) {
  DString const* list[] = {&s1, &s2};
  _InsertList(list, 2);
}

DStrings::DStrings(DString const& s1, DString const& s2, DString const& s3) : _array(sizeof(DString)) {
  DString const* list[] = {&s1, &s2, &s3};
  _InsertList(list, 3);
}

DStrings::DStrings(DString const& s1, DString const& s2, DString const& s3, DString const& s4)
    : _array(sizeof(DString)) {
  DString const* list[] = {&s1, &s2, &s3, &s4};
  _InsertList(list, 4);
}

DStrings::DStrings(DString const& s1, DString const& s2, DString const& s3, DString const& s4, DString const& s5)
    : _array(sizeof(DString)) {
  DString const* list[] = {&s1, &s2, &s3, &s4, &s5};
  _InsertList(list, 5);
}

DStrings::DStrings(DString const& s1, DString const& s2, DString const& s3, DString const& s4, DString const& s5,
                   DString const& s6)
    : _array(sizeof(DString)) {
  DString const* list[] = {&s1, &s2, &s3, &s4, &s5, &s6};
  _InsertList(list, 6);
}

DStrings::DStrings(DString const& s1, DString const& s2, DString const& s3, DString const& s4, DString const& s5,
                   DString const& s6, DString const& s7)
    : _array(sizeof(DString)) {
  DString const* list[] = {&s1, &s2, &s3, &s4, &s5, &s6, &s7};
  _InsertList(list, 7);
}

DStrings::~DStrings() { DestroyRange(0, GetLength()); }

DStrings& DStrings::operator=(DStrings const& other) {
  if (&other == this) return *this;
  Clear();
  Insert(0, other);
  return *this;
}

// Appending one at a time keeps the growth steps of a vector built by PutBack.
int DStrings::_InsertList(DString const* const* list, int count) {
  for (int i = 0; i < count; ++i) Insert(GetLength(), *list[i]);
  return ZYN_S_OK;
}

void DStrings::Clear() {
  DestroyRange(0, GetLength());
  _array.SetCount(0);
}

// An argument that lives in our own storage would move, or vanish, when MakeRoom
// reallocates; such arguments are copied out first.
bool DStrings::_HoldsAddress(void const* p) const {
  if (_array.GetStorage() == nullptr) return false;
  uintptr_t begin = reinterpret_cast<uintptr_t>(_array.GetStorage());
  uintptr_t end = begin + static_cast<uintptr_t>(_array.GetCapacity()) * sizeof(DString);
  uintptr_t address = reinterpret_cast<uintptr_t>(p);
  return address >= begin && address < end;
}

int DStrings::Insert(int index, DString const& value) {
  if (_HoldsAddress(&value)) {
    DString copy(value);
    return Insert(index, copy);
  }
  int hr = _array.MakeRoom(index, 1);
  if (hr != ZYN_S_OK) return hr;
  DString const* list[] = {&value};
  BuildRangeFromList(index, list, 1);
  return ZYN_S_OK;
}

int DStrings::Insert(int index, DStrings const& values) {
  if (&values == this) {
    DStrings copy(values);
    return Insert(index, copy);
  }
  int n = values.GetLength();
  int hr = _array.MakeRoom(index, n);
  if (hr != ZYN_S_OK) return hr;
  BuildRangeFromRange(index, values, 0, n);
  return ZYN_S_OK;
}

int DStrings::Insert(int index, DStrings const& values, int first, int last) {
  if (values._array.CheckRange(first, last) != ZYN_S_OK) return ZYN_E_FAIL;
  if (&values == this) {
    DStrings copy(values, first, last);
    return Insert(index, copy);
  }
  int hr = _array.MakeRoom(index, last - first);
  if (hr != ZYN_S_OK) return hr;
  BuildRangeFromRange(index, values, first, last);
  return ZYN_S_OK;
}

int DStrings::Insert(int index, DString const* values, int count) {
  if (values == nullptr || count < 1) return ZYN_E_FAIL;
  if (_HoldsAddress(values) || _HoldsAddress(values + count - 1)) {
    std::vector<DString> copy(values, values + count);
    return Insert(index, copy.data(), count);
  }
  int hr = _array.MakeRoom(index, count);
  if (hr != ZYN_S_OK) return hr;
  BuildRangeFromBuffer(index, values, count);
  return ZYN_S_OK;
}

int DStrings::Remove(int index) {
  if (_array.CheckIndex(index) != ZYN_S_OK) return ZYN_E_FAIL;
  return RemoveRange(index, index + 1);
}

int DStrings::RemoveRange(int first, int last) {
  if (_array.CheckRange(first, last) != ZYN_S_OK) return ZYN_E_FAIL;
  int count = GetLength();
  DestroyRange(first, last);
  _array.Move(first, last, count - last);
  _array.SetCount(count - (last - first));
  return ZYN_S_OK;
}

int DStrings::PopFront(DString& out) {
  if (IsEmpty()) return ZYN_E_FAIL;
  out = *pT(0);
  return RemoveRange(0, 1);
}

int DStrings::PopBack(DString& out) {
  if (IsEmpty()) return ZYN_E_FAIL;
  int last = GetLength() - 1;
  out = *pT(last);
  return RemoveRange(last, last + 1);
}

int DStrings::Set(int index, DString const& value) {
  if (_array.CheckIndex(index) != ZYN_S_OK) return ZYN_E_FAIL;
  *pT(index) = value;
  return ZYN_S_OK;
}

int DStrings::Get(int index, DString& out) const {
  if (_array.CheckIndex(index) != ZYN_S_OK) return ZYN_E_FAIL;
  out = *pT(index);
  return ZYN_S_OK;
}

DString* DStrings::GetAsPtr(int index) { return _array.CheckIndex(index) == ZYN_S_OK ? pT(index) : nullptr; }

DString const* DStrings::GetAsPtr(int index) const {
  return _array.CheckIndex(index) == ZYN_S_OK ? pT(index) : nullptr;
}

int DStrings::Find(DString const& value, int start) const {
  int count = GetLength();
  if (start < 0 || start >= count) return -1;
  for (int i = start; i < count; ++i) {
    if (*pT(i) == value) return i;
  }
  return -1;
}

// qsort_r hands the comparator through its context argument, so that no global
// is needed and concurrent sorts on other threads stay independent.
static int sCompareHandles(void const* left, void const* right, void* compare) {
  auto cmp = reinterpret_cast<int (*)(DString const*, DString const*)>(compare);
  return cmp(static_cast<DString const*>(left), static_cast<DString const*>(right));
}

// The C library's qsort itself: the order it leaves equal elements in (a stable merge
// in glibc) is kept exactly, and it moves the handles as raw 8-byte words, which
// measured faster than sorting pointers to them and relocating afterwards.
int DStrings::Sort(int (*compare)(DString const*, DString const*)) {
  if (_array.GetStorage() == nullptr) return ZYN_S_OK;
  qsort_r(_array.GetStorage(), static_cast<size_t>(GetLength()), static_cast<size_t>(_array.GetElementSize()),
          sCompareHandles, reinterpret_cast<void*>(compare));
  return ZYN_S_OK;
}

bool DStrings::operator==(DStrings const& other) const {
  int count = GetLength();
  if (count != other.GetLength()) return false;
  for (int i = 0; i < count; ++i) {
    if (*pT(i) != *other.pT(i)) return false;
  }
  return true;
}

DStrings::iterator DStrings::Begin() { return iterator(*this, IsEmpty() ? -2 : 0); }

DStrings::const_iterator DStrings::cBegin() const { return const_iterator(*this, IsEmpty() ? -2 : 0); }

DStrings::iterator DStrings::Last() { return iterator(*this, IsEmpty() ? -2 : GetLength() - 1); }

DStrings::const_iterator DStrings::cLast() const { return const_iterator(*this, IsEmpty() ? -2 : GetLength() - 1); }

void DStrings::BuildRangeFromList(int index, DString const* const* list, int count) {
  for (int i = 0; i < count; ++i) new (pT(index + i)) DString(*list[i]);
}

void DStrings::BuildRangeFromRange(int index, DStrings const& source, int first, int last) {
  for (int i = first; i < last; ++i) new (pT(index + i - first)) DString(*source.pT(i));
}

void DStrings::BuildRangeFromBuffer(int index, DString const* buffer, int count) {
  for (int i = 0; i < count; ++i) new (pT(index + i)) DString(buffer[i]);
}

void DStrings::DestroyRange(int first, int last) {
  for (int i = first; i < last; ++i) Destroy(i);
}

void DStrings::Destroy(int index) { pT(index)->~DString(); }

// ---- cursors ----

int DStrings::const_iterator::Next() {
  if (_owner == nullptr || _index < -1 || _index > _owner->GetLength() - 1) return ZYN_E_FAIL;
  ++_index;
  return ZYN_S_OK;
}

int DStrings::const_iterator::Prev() {
  if (_owner == nullptr || _index < 0 || _index > _owner->GetLength()) return ZYN_E_FAIL;
  --_index;
  return ZYN_S_OK;
}

int DStrings::const_iterator::Get(DString& out) const {
  if (!_IsValid()) return ZYN_E_FAIL;
  out = *_owner->pT(_index);
  return ZYN_S_OK;
}

DString const* DStrings::const_iterator::GetAsConstPtr() const { return _IsValid() ? _owner->pT(_index) : nullptr; }

DString const* DStrings::const_iterator::GetAsConstPtrGoToNext() {
  if (!_IsValid()) return nullptr;
  return _owner->pT(_index++);
}

DString const* DStrings::const_iterator::GetAsConstPtrGoToPrev() {
  if (!_IsValid()) return nullptr;
  return _owner->pT(_index--);
}

int DStrings::iterator::Set(DString const& value) const {
  if (!_IsValid()) return ZYN_E_FAIL;
  *_owner->pT(_index) = value;
  return ZYN_S_OK;
}

DString* DStrings::iterator::GetAsPtr() const { return _IsValid() ? _owner->pT(_index) : nullptr; }

DString* DStrings::iterator::GetAsPtrGoToNext() {
  if (!_IsValid()) return nullptr;
  return _owner->pT(_index++);
}

DString* DStrings::iterator::GetAsPtrGoToPrev() {
  if (!_IsValid()) return nullptr;
  return _owner->pT(_index--);
}

int DStrings::iterator::Insert(DString const& value) {
  if (_owner == nullptr) return ZYN_E_FAIL;
  int hr = _owner->Insert(_index, value);
  if (hr != ZYN_S_OK) return hr;
  _index += 1;
  return ZYN_S_OK;
}

int DStrings::iterator::Insert(DStrings const& values) {
  if (_owner == nullptr) return ZYN_E_FAIL;
  int n = values.GetLength();
  int hr = _owner->Insert(_index, values);
  if (hr != ZYN_S_OK) return hr;
  _index += n;
  return ZYN_S_OK;
}

int DStrings::iterator::RemoveGoToNext() {
  if (_owner == nullptr) return ZYN_E_FAIL;
  int hr = _owner->Remove(_index);
  if (hr != ZYN_S_OK) return hr;
  ++_index;
  return ZYN_S_OK;
}

int DStrings::iterator::RemoveGoToPrev() {
  if (_owner == nullptr) return ZYN_E_FAIL;
  int hr = _owner->Remove(_index);
  if (hr != ZYN_S_OK) return hr;
  --_index;
  return ZYN_S_OK;
}
