// QRTSysTSArrayListAbstractCtnr.cpp - the untyped array under the string vector.
#include "QRTSysTSArrayListAbstractCtnr.h"

#include <climits>
#include <cstring>
#include <utility>

#include "ZYNResult.h"

QRTSysTSArrayListAbstractCtnr::QRTSysTSArrayListAbstractCtnr(int elementSize)
    : _storage(nullptr), _count(0), _capacity(0), _elementSize(elementSize) {}

QRTSysTSArrayListAbstractCtnr::~QRTSysTSArrayListAbstractCtnr() { delete[] _storage; }

// Replaces the storage by one of exactly `capacity` slots; none at all for 0.
void QRTSysTSArrayListAbstractCtnr::_Reallocate(int capacity, bool keepElements) {
  unsigned char* storage = nullptr;
  if (capacity > 0) {
    storage = new unsigned char[static_cast<size_t>(capacity) * static_cast<size_t>(_elementSize)];
  }
  if (keepElements && _count > 0) {
    std::memcpy(storage, _storage, static_cast<size_t>(_count) * static_cast<size_t>(_elementSize));
  }
  delete[] _storage;
  _storage = storage;
  _capacity = capacity;
}

int QRTSysTSArrayListAbstractCtnr::ReInit(int capacity) {
  _count = 0;
  if (_capacity >= capacity) return ZYN_S_OK;
  if (capacity < 0) return ZYN_E_FAIL;
  _Reallocate(capacity, false);
  return ZYN_S_OK;
}

int QRTSysTSArrayListAbstractCtnr::SetCapacity(int capacity) {
  if (capacity < _count) return ZYN_E_FAIL;
  if (capacity == _capacity) return ZYN_S_OK;
  _Reallocate(capacity, true);
  return ZYN_S_OK;
}

int QRTSysTSArrayListAbstractCtnr::MakeRoom(int index, int n) {
  if (index < 0 || index > _count || n < 0) return ZYN_E_FAIL;
  long long newCount = static_cast<long long>(_count) + n;
  if (newCount > INT_MAX) return ZYN_E_FAIL;

  if (newCount > _capacity) {
    long long capacity;
    if (_capacity == 0) {
      capacity = newCount < 4 ? 4 : newCount;
    } else {
      capacity = 2LL * _capacity;
      if (capacity < newCount) capacity = newCount;
      if (capacity > INT_MAX) capacity = INT_MAX;
    }
    _Reallocate(static_cast<int>(capacity), true);
  }
  if (n < 1) return ZYN_S_OK;

  int behind = _count - index;
  _count = static_cast<int>(newCount);
  if (behind > 0) Move(index + n, index, behind);
  return ZYN_S_OK;
}

int QRTSysTSArrayListAbstractCtnr::Move(int to, int from, int n) {
  if (_storage == nullptr) return ZYN_E_FAIL;
  if (n > 0) std::memmove(At(to), At(from), static_cast<size_t>(n) * static_cast<size_t>(_elementSize));
  return ZYN_S_OK;
}

void QRTSysTSArrayListAbstractCtnr::Swap(QRTSysTSArrayListAbstractCtnr& other) {
  std::swap(_storage, other._storage);
  std::swap(_count, other._count);
  std::swap(_capacity, other._capacity);
  std::swap(_elementSize, other._elementSize);
}

int QRTSysTSArrayListAbstractCtnr::CheckIndex(int index) const {
  return (index >= 0 && index < _count) ? ZYN_S_OK : ZYN_E_FAIL;
}

int QRTSysTSArrayListAbstractCtnr::CheckRange(int first, int last) const {
  return (first >= 0 && first < last && last <= _count) ? ZYN_S_OK : ZYN_E_FAIL;
}
