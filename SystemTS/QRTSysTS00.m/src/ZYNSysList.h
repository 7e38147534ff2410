#ifndef ZYN_SYSTEMTS_ZYNSYSLIST_H
#define ZYN_SYSTEMTS_ZYNSYSLIST_H

// How a list orders what Add gives it, and whether its cursor wraps at the ends.
enum ZYNSysListType {
  ZYNSysListLinear = 0,       // appended, cursor stops
  ZYNSysListSorted = 1,       // sorted, cursor stops
  ZYNSysListQueue = 2,        // appended, cursor stops
  ZYNSysListSortedQueue = 3,  // sorted, cursor stops
  ZYNSysListRing = 4,         // appended, cursor wraps
  ZYNSysListSortedRing = 5,   // sorted, cursor wraps
};

struct ZYNSysListElementStruct {
  void* item;
  ZYNSysListElementStruct* next;
  ZYNSysListElementStruct* previous;
};

// A doubly linked list of untyped items that it copies, deletes and compares through the
// Child operations of its subclass. A subclass calls removeall in its own destructor and
// copylist in its own copy constructor: during the base's, the subclass's operations
// can't be reached.
class ZYNSysList {
 public:
  ZYNSysList(ZYNSysListType type, bool allowDuplicates);
  // Copies type and duplicate rule only; see above.
  ZYNSysList(ZYNSysList const& other);
  ZYNSysList& operator=(ZYNSysList const& other);
  virtual ~ZYNSysList();

 protected:
  // The base keeps the caller's pointers and compares them by identity.
  virtual void* ChildCopyItem(void const* item) const;
  virtual void ChildDeleteItem(void* item) const;
  virtual int ChildCompareItem(void const* left, void const* right) const;

 public:
  // In a sorted list before the first element that compares after it, otherwise at the
  // tail. An equal element refuses the item unless duplicates are allowed. The new
  // element, or null.
  ZYNSysListElementStruct* Add(void const* item);
  ZYNSysListElementStruct* addtail(void const* item);
  ZYNSysListElementStruct* addhead(void const* item);
  ZYNSysListElementStruct* addbefore(void const* item, ZYNSysListElementStruct* element);
  ZYNSysListElementStruct* addafter(void const* item, ZYNSysListElementStruct* element);

  // 0 when removed, -1 when not found.
  int Remove(void const* item);
  int Remove(unsigned long index);
  // Each gives the element that followed the removed one.
  ZYNSysListElementStruct* removeat(ZYNSysListElementStruct* element);
  ZYNSysListElementStruct* removehead();
  ZYNSysListElementStruct* removetail();
  void removeall();

  int Count() const { return _count; }
  void* GetFirst();
  void* GetLast();
  // Null at the end, except in the wrapping types.
  void* GetNext();
  void* GetPrevious();

  ZYNSysListElementStruct* _GetHead() const { return _head; }
  ZYNSysListElementStruct* _GetTail() const { return _tail; }

 protected:
  void copylist(ZYNSysList const& other);

 private:
  ZYNSysListElementStruct* _Insert(void const* item, ZYNSysListElementStruct* previous, ZYNSysListElementStruct* next);
  bool _IsSorted() const;
  bool _Wraps() const;

  ZYNSysListElementStruct* _head;
  ZYNSysListElementStruct* _tail;
  int _count;
  ZYNSysListElementStruct* _cursor;
  ZYNSysListType _type;
  bool _allowDuplicates;
};

#endif
