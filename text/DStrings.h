#ifndef ZYN_TEXT_DSTRINGS_H
#define ZYN_TEXT_DSTRINGS_H

#include "DString.h"
#include "QRTSysTSArrayListAbstractCtnr.h"

// Ordered vector of string handles in one contiguous array. Handles are built in
// place in raw storage and relocated by byte moves, which a one-pointer DString allows.
class DStrings {
 public:
  class const_iterator;
  class iterator;

  DStrings();
  DStrings(DStrings const& other);
  DStrings(DStrings const& other, int first, int last);
  explicit DStrings(DString const& s1);
  DStrings(DString const& s1, DString const& s2);
  DStrings(DString const& s1, DString const& s2, DString const& s3);
  DStrings(DString const& s1, DString const& s2, DString const& s3, DString const& s4);
  DStrings(DString const& s1, DString const& s2, DString const& s3, DString const& s4, DString const& s5);
  DStrings(DString const& s1, DString const& s2, DString const& s3, DString const& s4, DString const& s5,
           DString const& s6);
  DStrings(DString const& s1, DString const& s2, DString const& s3, DString const& s4, DString const& s5,
           DString const& s6, DString const& s7);
  virtual ~DStrings();

  DStrings& operator=(DStrings const& other);

  void Clear();
  int GetLength() const { return _array.GetCount(); }
  bool IsEmpty() const { return _array.GetCount() == 0; }
  int GetCapacity() const { return _array.GetCapacity(); }
  int SetCapacity(int capacity) { return _array.SetCapacity(capacity); }

  int Insert(int index, DString const& value);
  int Insert(int index, DStrings const& values);
  int Insert(int index, DStrings const& values, int first, int last);
  int Insert(int index, DString const* values, int count);
  int PutBack(DString const& value) { return Insert(GetLength(), value); }
  int PutBack(DStrings const& values) { return Insert(GetLength(), values); }
  int PutFront(DString const& value) { return Insert(0, value); }
  int PutFront(DStrings const& values) { return Insert(0, values); }

  int Remove(int index);
  int RemoveRange(int first, int last);
  int PopFront(DString& out);
  int PopBack(DString& out);

  int Set(int index, DString const& value);
  int Get(int index, DString& out) const;
  DString* GetAsPtr(int index);
  DString const* GetAsPtr(int index) const;
  int Find(DString const& value, int start) const;
  int Sort(int (*compare)(DString const*, DString const*));

  bool operator==(DStrings const& other) const;
  bool operator!=(DStrings const& other) const { return !(*this == other); }

  iterator Begin();
  const_iterator cBegin() const;
  iterator Last();
  const_iterator cLast() const;

  // Read-only cursor: the owner and an index, nothing more. It survives insertion
  // and removal; the index then designates whatever stands there.
  class const_iterator {
   public:
    const_iterator() : _owner(nullptr), _index(-2) {}
    const_iterator(DStrings const& owner, int index) : _owner(const_cast<DStrings*>(&owner)), _index(index) {}
    const_iterator(const_iterator const&) = default;
    const_iterator& operator=(const_iterator const&) = default;
    virtual ~const_iterator() {}

    int Next();
    int Prev();
    bool IsBegin() const { return _index == 0; }
    bool IsLast() const { return _owner != nullptr && _index == _owner->GetLength() - 1; }
    bool IsEnd() const { return !_IsValid(); }
    int GetIndex() const { return _index; }
    int Get(DString& out) const;
    DString const* GetAsConstPtr() const;
    DString const* GetAsConstPtrGoToNext();
    DString const* GetAsConstPtrGoToPrev();

    bool operator==(const_iterator const& o) const { return _owner == o._owner && _index == o._index; }
    bool operator!=(const_iterator const& o) const { return !(*this == o); }

   protected:
    bool _IsValid() const { return _owner != nullptr && _index >= 0 && _index < _owner->GetLength(); }

    DStrings* _owner;
    int _index;
  };

  class iterator : public const_iterator {
   public:
    iterator() {}
    iterator(DStrings& owner, int index) : const_iterator(owner, index) {}

    int Set(DString const& value) const;
    DString* GetAsPtr() const;
    DString* GetAsPtrGoToNext();
    DString* GetAsPtrGoToPrev();
    int Insert(DString const& value);
    int Insert(DStrings const& values);
    // Closing the gap already brings the next element to this index, so the
    // step skips one: a loop of these removes every second element.
    int RemoveGoToNext();
    int RemoveGoToPrev();
  };

 protected:
  DString* pT(int index) const { return static_cast<DString*>(_array.At(index)); }
  void BuildRangeFromList(int index, DString const* const* list, int count);
  void BuildRangeFromRange(int index, DStrings const& source, int first, int last);
  void BuildRangeFromBuffer(int index, DString const* buffer, int count);
  void DestroyRange(int first, int last);
  void Destroy(int index);

 private:
  int _InsertList(DString const* const* list, int count);
  bool _HoldsAddress(void const* p) const;

  QRTSysTSArrayListAbstractCtnr _array;
};

#endif
