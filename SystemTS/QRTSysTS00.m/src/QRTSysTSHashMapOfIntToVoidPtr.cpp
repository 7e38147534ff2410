// QRTSysTSHashMapOfIntToVoidPtr.cpp - the integer-keyed hash map of pointers.
#include "QRTSysTSHashMapOfIntToVoidPtr.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "ZYNResult.h"

static const int S_defaultSize = 12;
static const float S_fallbackInverseLoadFactor = 1.3333334f;

// Single precision on purpose: 12 * (1 / 0.75f) must round to 16, not 17.
static int sCeilTimes(int n, float factor) {
  float product = static_cast<float>(n) * factor;
  return static_cast<int>(std::ceil(product));
}

static LinkedMapOfKeyValNode* sNext(LinkedMapOfKeyValNode const* node) {
  return static_cast<LinkedMapOfKeyValNode*>(node->next);
}

QRTSysTSHashMapOfIntToVoidPtr::QRTSysTSHashMapOfIntToVoidPtr(int size, float loadFactor) { Init(size, loadFactor); }

QRTSysTSHashMapOfIntToVoidPtr::QRTSysTSHashMapOfIntToVoidPtr(QRTSysTSHashMapOfIntToVoidPtr const& source, int size,
                                                             float loadFactor) {
  Init(size, loadFactor);
  Fill(source);
}

QRTSysTSHashMapOfIntToVoidPtr::QRTSysTSHashMapOfIntToVoidPtr(QRTSysTSHashMapOfIntToVoidPtr const& other)
    : _table(other._table), _entryCount(other._entryCount), _inverseLoadFactor(other._inverseLoadFactor) {}

QRTSysTSHashMapOfIntToVoidPtr& QRTSysTSHashMapOfIntToVoidPtr::operator=(QRTSysTSHashMapOfIntToVoidPtr const& other) {
  if (&other == this) return *this;
  _table = other._table;
  _entryCount = other._entryCount;
  _inverseLoadFactor = other._inverseLoadFactor;
  return *this;
}

void QRTSysTSHashMapOfIntToVoidPtr::Init(int size, float loadFactor) {
  _entryCount = 0;
  if (loadFactor < 0.1f || loadFactor > 100.0f) {
    _inverseLoadFactor = S_fallbackInverseLoadFactor;
  } else {
    _inverseLoadFactor = 1.0f / loadFactor;
  }
  int buckets = sCeilTimes(size < 1 ? S_defaultSize : size, _inverseLoadFactor);

  _table.Clear();
  _table.SetCapacity(buckets);
  _table.PutBackEmpty(buckets);
}

void QRTSysTSHashMapOfIntToVoidPtr::Fill(QRTSysTSHashMapOfIntToVoidPtr const& source) {
  for (const_iterator it(source); !it.IsEnd(); it.Next()) {
    LinkedMapOfKeyValNode const* entry = it.GetEntryAsPtr();
    Put(entry->key, entry->value);
  }
  _entryCount = source._entryCount;
}

int QRTSysTSHashMapOfIntToVoidPtr::Hash(int const& key) const {
  unsigned char bytes[sizeof(int)];
  std::memcpy(bytes, &key, sizeof bytes);
  uint32_t h = static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(bytes[0])));
  for (size_t i = 1; i < sizeof bytes; ++i) {
    h = h * 131u + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(bytes[i])));
  }
  return static_cast<int>((h & 0x7FFFFFFFu) % static_cast<uint32_t>(_table.GetLength()));
}

int QRTSysTSHashMapOfIntToVoidPtr::GetMinimumTableLength(int n) const { return sCeilTimes(n, _inverseLoadFactor); }

// Moves the nodes, in iteration order, into a map built with (size, loadFactor), just
// as re-putting every entry would, then takes over its table and factor. The node
// count stays this map's, as a fill from it would leave it.
void QRTSysTSHashMapOfIntToVoidPtr::ReHash(int size, float loadFactor) {
  QRTSysTSHashMapOfIntToVoidPtr fresh(size, loadFactor);
  int buckets = _table.GetLength();
  for (int i = 0; i < buckets; ++i) {
    LinkedMapOfKeyValNode* node = _table.At(i)->DetachAll();
    while (node != nullptr) {
      LinkedMapOfKeyValNode* next = sNext(node);
      fresh._AppendNode(node);
      node = next;
    }
  }
  _table.Swap(fresh._table);
  _inverseLoadFactor = fresh._inverseLoadFactor;
}

void QRTSysTSHashMapOfIntToVoidPtr::Clear(int size, float loadFactor) {
  _table.Clear();
  Init(size, loadFactor);
}

// The table about doubles once the entries reach the load limit; the entry just
// added is not counted in the new size.
void QRTSysTSHashMapOfIntToVoidPtr::_CountNewEntry() {
  if (GetMinimumTableLength(_entryCount + 1) > _table.GetLength()) {
    ReHash(_entryCount * 2, 1.0f / _inverseLoadFactor);
  }
  ++_entryCount;
}

// A put of a key known to be absent, reusing its node.
void QRTSysTSHashMapOfIntToVoidPtr::_AppendNode(LinkedMapOfKeyValNode* node) {
  _BucketOf(node->key)->AppendNode(node);
  _CountNewEntry();
}

int QRTSysTSHashMapOfIntToVoidPtr::Put(int const& key, void* const& value) {
  LinkedMapOfKeyVal* bucket = _BucketOf(key);
  void** slot = bucket->GetAsPtr(key);
  if (slot != nullptr) {
    *slot = value;
    return ZYN_S_OK;
  }
  LinkedMapOfKeyValNode* node = new LinkedMapOfKeyValNode;
  node->key = key;
  node->value = value;
  bucket->AppendNode(node);
  _CountNewEntry();
  return ZYN_S_OK;
}

int QRTSysTSHashMapOfIntToVoidPtr::Put(QRTSysTSHashMapOfIntToVoidPtr const& other) {
  if (&other == this) return ZYN_S_OK;
  for (const_iterator it(other); !it.IsEnd(); it.Next()) {
    LinkedMapOfKeyValNode const* entry = it.GetEntryAsPtr();
    Put(entry->key, entry->value);
  }
  return ZYN_S_OK;
}

int QRTSysTSHashMapOfIntToVoidPtr::Get(int const& key, void*& value) const { return _BucketOf(key)->Get(key, value); }

void** QRTSysTSHashMapOfIntToVoidPtr::GetAsPtr(int const& key) { return _BucketOf(key)->GetAsPtr(key); }

void* const* QRTSysTSHashMapOfIntToVoidPtr::GetAsPtr(int const& key) const {
  return static_cast<LinkedMapOfKeyVal const*>(_BucketOf(key))->GetAsPtr(key);
}

bool QRTSysTSHashMapOfIntToVoidPtr::Find(int const& key) const { return _BucketOf(key)->Find(key); }

int QRTSysTSHashMapOfIntToVoidPtr::Remove(int const& key) {
  LinkedMapOfKeyVal* bucket = _BucketOf(key);
  int before = bucket->GetLength();
  int after = bucket->Remove(key);
  if (after < before) --_entryCount;
  return after;
}

int QRTSysTSHashMapOfIntToVoidPtr::Delete(int const& key) {
  LinkedMapOfKeyVal* bucket = _BucketOf(key);
  int before = bucket->GetLength();
  int after = bucket->Delete(key);
  if (after < before) --_entryCount;
  return after;
}

void QRTSysTSHashMapOfIntToVoidPtr::DeleteAll() {
  int buckets = _table.GetLength();
  for (int i = 0; i < buckets; ++i) _table.At(i)->DeleteAll();
  _entryCount = 0;
}

void QRTSysTSHashMapOfIntToVoidPtr::DeleteAllAndThis() {
  DeleteAll();
  delete this;
}

QRTSysTSHashMapOfIntToVoidPtr::iterator QRTSysTSHashMapOfIntToVoidPtr::Begin() { return iterator(*this); }

QRTSysTSHashMapOfIntToVoidPtr::const_iterator QRTSysTSHashMapOfIntToVoidPtr::cBegin() const {
  return const_iterator(*this);
}

// ---- cursors ----

QRTSysTSHashMapOfIntToVoidPtr::const_iterator::const_iterator(QRTSysTSHashMapOfIntToVoidPtr const& map)
    : _map(const_cast<QRTSysTSHashMapOfIntToVoidPtr*>(&map)), _bucket(0), _node(nullptr) {
  _SeekNonEmptyFrom(0);
}

void QRTSysTSHashMapOfIntToVoidPtr::const_iterator::_SeekNonEmptyFrom(int bucket) {
  int buckets = _map->_table.GetLength();
  for (_bucket = bucket; _bucket < buckets; ++_bucket) {
    _node = _map->_table.At(_bucket)->GetHead();
    if (_node != nullptr) return;
  }
  _node = nullptr;
}

int QRTSysTSHashMapOfIntToVoidPtr::const_iterator::Next() {
  if (_node == nullptr) return ZYN_E_FAIL;
  _node = sNext(_node);
  if (_node == nullptr) _SeekNonEmptyFrom(_bucket + 1);
  return ZYN_S_OK;
}

int QRTSysTSHashMapOfIntToVoidPtr::const_iterator::GetKey(int& key) const {
  if (_node == nullptr) return ZYN_E_FAIL;
  key = _node->key;
  return ZYN_S_OK;
}

int QRTSysTSHashMapOfIntToVoidPtr::const_iterator::GetVal(void*& value) const {
  if (_node == nullptr) return ZYN_E_FAIL;
  value = _node->value;
  return ZYN_S_OK;
}

int QRTSysTSHashMapOfIntToVoidPtr::const_iterator::Get(int& key, void*& value) const {
  if (_node == nullptr) return ZYN_E_FAIL;
  key = _node->key;
  value = _node->value;
  return ZYN_S_OK;
}

int QRTSysTSHashMapOfIntToVoidPtr::const_iterator::GetGoToNext(int& key, void*& value) {
  int hr = Get(key, value);
  if (hr == ZYN_S_OK) Next();
  return hr;
}

int const* QRTSysTSHashMapOfIntToVoidPtr::const_iterator::GetKeyAsPtrGoToNext() {
  int const* key = GetKeyAsPtr();
  Next();
  return key;
}

void* const* QRTSysTSHashMapOfIntToVoidPtr::const_iterator::GetValAsConstPtrGoToNext() {
  void* const* value = GetValAsConstPtr();
  Next();
  return value;
}

LinkedMapOfKeyValNode const* QRTSysTSHashMapOfIntToVoidPtr::const_iterator::GetEntryAsPtrGoToNext() {
  LinkedMapOfKeyValNode const* entry = _node;
  Next();
  return entry;
}

int QRTSysTSHashMapOfIntToVoidPtr::iterator::SetVal(void* value) const {
  if (_node == nullptr) return ZYN_E_FAIL;
  _node->value = value;
  return ZYN_S_OK;
}

void** QRTSysTSHashMapOfIntToVoidPtr::iterator::GetValAsPtrGoToNext() {
  void** value = GetValAsPtr();
  Next();
  return value;
}
