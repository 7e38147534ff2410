#ifndef ZYN_SYSTEMTS_LINKEDMAPOFKEYVAL_H
#define ZYN_SYSTEMTS_LINKEDMAPOFKEYVAL_H

#include "QRTSysTSLinkedAbstractCtnr.h"

struct LinkedMapOfKeyValNode : QRTSysTSLinkedNode {
  int key;
  void* value;
};

// One bucket of the integer-keyed map: a list of key/value nodes, searched
// linearly from the head, in order of first insertion. Values are not owned.
class LinkedMapOfKeyVal {
 public:
  LinkedMapOfKeyVal() {}
  LinkedMapOfKeyVal(LinkedMapOfKeyVal const& other);
  LinkedMapOfKeyVal& operator=(LinkedMapOfKeyVal const& other);
  virtual ~LinkedMapOfKeyVal();

  int Put(int const& key, void* const& value);
  int Get(int const& key, void*& value) const;
  void** GetAsPtr(int const& key);
  void* const* GetAsPtr(int const& key) const;
  bool Find(int const& key) const { return _FindNode(key) != nullptr; }
  // Both give the bucket's length afterwards, not a status.
  int Remove(int const& key);
  int Delete(int const& key);
  void DeleteAll();
  void DeleteAllAndThis();
  void ReHash(int size, float loadFactor) {}
  int GetLength() const { return _list.GetCount(); }
  bool IsEmpty() const { return _list.GetCount() == 0; }

  // Node-level access for the map, which walks and relinks nodes when it rehashes.
  LinkedMapOfKeyValNode* GetHead() const { return static_cast<LinkedMapOfKeyValNode*>(_list.GetHead()); }
  void AppendNode(LinkedMapOfKeyValNode* node) { _list.PushBack(node); }
  // Hands the whole chain over, head first, and leaves the bucket empty; the nodes
  // keep their links, which the taker overwrites.
  LinkedMapOfKeyValNode* DetachAll();
  // Frees every node; the values stay with their owners.
  void FreeNodes();

 private:
  LinkedMapOfKeyValNode* _FindNode(int key) const;

  QRTSysTSLinkedAbstractCtnr _list;
};

#endif
