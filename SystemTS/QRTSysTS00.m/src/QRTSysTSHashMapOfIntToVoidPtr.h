#ifndef ZYN_SYSTEMTS_QRTSYSTSHASHMAPOFINTTOVOIDPTR_H
#define ZYN_SYSTEMTS_QRTSYSTSHASHMAPOFINTTOVOIDPTR_H

#include "ArrayListOfLinkedMapOfKeyVal.h"
#include "ZYNResult.h"

// Map from 32-bit integers to untyped pointers, chained in buckets held by value.
// Iteration runs bucket by bucket, and within a bucket in order of first insertion;
// both the bucket count and the hash are fixed rules, since that order is observable.
// Not synchronised: one thread at a time.
class QRTSysTSHashMapOfIntToVoidPtr {
 public:
  class const_iterator;
  class iterator;

  QRTSysTSHashMapOfIntToVoidPtr(int size = 12, float loadFactor = 0.75f);
  QRTSysTSHashMapOfIntToVoidPtr(QRTSysTSHashMapOfIntToVoidPtr const& source, int size, float loadFactor);
  QRTSysTSHashMapOfIntToVoidPtr(QRTSysTSHashMapOfIntToVoidPtr const& other);
  QRTSysTSHashMapOfIntToVoidPtr& operator=(QRTSysTSHashMapOfIntToVoidPtr const& other);
  virtual ~QRTSysTSHashMapOfIntToVoidPtr() {}

  void Init(int size, float loadFactor);
  void Fill(QRTSysTSHashMapOfIntToVoidPtr const& source);
  int Hash(int const& key) const;
  int GetMinimumTableLength(int n) const;
  void ReHash(int size, float loadFactor);
  void Clear(int size = 12, float loadFactor = 0.75f);

  int GetLength() const { return _entryCount; }
  bool IsEmpty() const { return _entryCount == 0; }
  int GetBucketCount() const { return _table.GetLength(); }

  int Put(int const& key, void* const& value);
  int Put(QRTSysTSHashMapOfIntToVoidPtr const& other);
  int Get(int const& key, void*& value) const;
  void** GetAsPtr(int const& key);
  void* const* GetAsPtr(int const& key) const;
  bool Find(int const& key) const;
  // Both give the bucket's length afterwards, not a status.
  int Remove(int const& key);
  int Delete(int const& key);
  void DeleteAll();
  void DeleteAllAndThis();

  iterator Begin();
  const_iterator cBegin() const;

  class const_iterator {
   public:
    const_iterator() : _map(nullptr), _bucket(0), _node(nullptr) {}
    explicit const_iterator(QRTSysTSHashMapOfIntToVoidPtr const& map);
    const_iterator(const_iterator const&) = default;
    const_iterator& operator=(const_iterator const&) = default;
    virtual ~const_iterator() {}

    int Next();
    bool IsEnd() const { return _node == nullptr; }
    int GetKey(int& key) const;
    int GetVal(void*& value) const;
    int Get(int& key, void*& value) const;
    int const* GetKeyAsPtr() const { return _node != nullptr ? &_node->key : nullptr; }
    void* const* GetValAsConstPtr() const { return _node != nullptr ? &_node->value : nullptr; }
    LinkedMapOfKeyValNode const* GetEntryAsPtr() const { return _node; }
    int GetGoToNext(int& key, void*& value);
    int const* GetKeyAsPtrGoToNext();
    void* const* GetValAsConstPtrGoToNext();
    LinkedMapOfKeyValNode const* GetEntryAsPtrGoToNext();

    bool operator==(const_iterator const& o) const { return _map == o._map && _node == o._node; }
    bool operator!=(const_iterator const& o) const { return !(*this == o); }

   protected:
    void _SeekNonEmptyFrom(int bucket);

    QRTSysTSHashMapOfIntToVoidPtr* _map;
    int _bucket;
    LinkedMapOfKeyValNode* _node;
  };

  class iterator : public const_iterator {
   public:
    iterator() {}
    explicit iterator(QRTSysTSHashMapOfIntToVoidPtr& map) : const_iterator(map) {}

    int SetVal(void* value) const;
    void** GetValAsPtr() const { return _node != nullptr ? &_node->value : nullptr; }
    void** GetValAsPtrGoToNext();
  };

 private:
  LinkedMapOfKeyVal* _BucketOf(int key) const { return _table.At(Hash(key)); }
  void _CountNewEntry();
  void _AppendNode(LinkedMapOfKeyValNode* node);

  ArrayListOfLinkedMapOfKeyVal _table;
  int _entryCount;
  float _inverseLoadFactor;
};

#endif
