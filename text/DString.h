#ifndef ZYN_TEXT_DSTRING_H
#define ZYN_TEXT_DSTRING_H

#include <cstddef>
#include <cstdint>
#include <new>

#include "ZYNResult.h"

class DStrings;

// One shared, reference-counted record of UCS-2 units. The layout is fixed: counts
// first, then the flags word, the cached hash and the units with their terminator.
struct DStringInternal {
  int32_t refCount;           // -1 on the shared empty record, which is never counted
  int32_t length;             // units in use, terminator excluded
  uint32_t capacityAndFlags;  // bits 0-29 capacity, bit 30 hash stale
  uint32_t hash;
  // The units follow the header directly: capacity + 1 of them in a heap record.
  uint16_t* Units() { return reinterpret_cast<uint16_t*>(this + 1); }
  uint16_t const* Units() const { return reinterpret_cast<uint16_t const*>(this + 1); }

  static const uint32_t kCapacityMask = 0x3FFFFFFFu;
  static const uint32_t kHashStale = 0x40000000u;

  static DStringInternal* Allocate(int capacity);
  int Release();
  int AddRef();

  // Other threads may drop their copies meanwhile; what matters is whether this handle
  // is the only one left, which no other thread can change back.
  int RefCount() const { return __atomic_load_n(&refCount, __ATOMIC_ACQUIRE); }
  int Capacity() const { return static_cast<int>(capacityAndFlags & kCapacityMask); }
  void SetHashStale() { capacityAndFlags |= kHashStale; }
  bool IsHashStale() const { return (capacityAndFlags & kHashStale) != 0; }
};

extern DStringInternal& _DStringEmpty;
extern DStringInternal* _DStringEmptyPtr;

// The one text value: a handle of one pointer on a shared record. Copies share the
// record; the first write to a shared record copies it.
class DString {
 public:
  DString() : _p(_DStringEmptyPtr) {}
  DString(wchar_t const* text);  // NOLINT: literals convert implicitly by design
  DString(unsigned short const* units, int count);
  DString(DString const& other);
  DString(DString const& other, int first, int last);
  ~DString();

  DString& operator=(DString const& other);
  DString& operator=(wchar_t const* text);

  int BuildFromUCChar(unsigned short const* units, int count);
  void Empty();
  bool IsEmpty() const { return _p == nullptr || _p->length == 0; }
  int Length() const { return _p ? _p->length : 0; }
  int GetLengthInChar() const { return Length(); }
  unsigned short const* ConvertToUCChar() const { return _p ? _p->Units() : nullptr; }
  void const* GetBinDump(unsigned int& size) const;
  wchar_t operator[](int index) const;
  int SetCapacity(int capacity);
  int GetCapacity() const { return _p ? _p->Capacity() : 0; }

  static void* operator new(std::size_t, void* where) { return where; }
  static void operator delete(void*, void*) {}

  wchar_t* GetBuffer(int count);
  void ReleaseBuffer(int count);

  bool operator==(DString const& other) const;
  bool operator!=(DString const& other) const { return !(*this == other); }
  static int Compare(DString const* left, DString const* right);
  bool operator<(DString const& o) const { return Compare(this, &o) < 0; }
  bool operator>(DString const& o) const { return Compare(this, &o) > 0; }
  bool operator<=(DString const& o) const { return Compare(this, &o) <= 0; }
  bool operator>=(DString const& o) const { return Compare(this, &o) >= 0; }
  bool IsSubStringAt(int index, DString const& sub) const;
  int CompareD(DString const& other, unsigned char flag) const;

  DString& Append(DString const& other);
  DString& Append(DString const& a, DString const& b);
  DString& Append(DString const& a, DString const& b, DString const& c);
  DString& Append(DString const& other, int first, int last);
  DString& Append(wchar_t c);
  DString& operator+=(DString const& other) { return Append(other); }
  DString& operator+=(wchar_t c) { return Append(c); }
  DString& operator+=(wchar_t const* text);
  DString operator+(DString const& other) const;
  DString operator+(wchar_t const* text) const;
  DString operator+(wchar_t c) const;

  unsigned int HashFunc() const;
  int _CheckRange(int first, int last) const;

  // Search, parts and editing.
  int SearchSubString(DString const& sub, int start) const;
  int SearchSubStringBackward(DString const& sub, int offsetFromEnd) const;
  DString SubStringD(int first, int last) const;
  int Split(DString const& separator, DStrings& result) const;
  int Insert(int index, DString const& value);
  int Insert(int index, DString const& value, int first, int last);
  int ReplaceRange(int first, int last, DString const& value);
  int ReplaceSubString(DString const& from, DString const& to, int start);
  int ReplaceAll(DString const& from, DString const& to);
  int Remove(int first, int count);

  // Numbers.
  static DString FromNum(int value, char const* format);
  static DString FromNum(long long value, char const* format);
  static DString FromNum(double value, char const* format);
  int BuildFromNum(int value, char const* format);
  int BuildFromNum(long long value, char const* format);
  int BuildFromNum(double value, char const* format);
  int ConvertToNum(int& value, char const* format) const;
  int ConvertToNum(long long& value, char const* format) const;

  // For the UTF-8 decoder and the tests that look at the record.
  DStringInternal* _GetRecord() const { return _p; }
  void _AllocNewRefString(int newLength, unsigned char keepText, unsigned char grow);

 private:
  friend class ZYNAdmCodePage;
  bool _IsWritable() const { return _p != nullptr && _p != _DStringEmptyPtr; }
  int _BuildFromFormatted(char const* bytes);

  DStringInternal* _p;
};

DString operator+(wchar_t const* left, DString const& right);
DString operator+(wchar_t left, DString const& right);

#endif
