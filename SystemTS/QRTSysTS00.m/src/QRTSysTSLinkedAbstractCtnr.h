#ifndef ZYN_SYSTEMTS_QRTSYSTSLINKEDABSTRACTCTNR_H
#define ZYN_SYSTEMTS_QRTSYSTSLINKEDABSTRACTCTNR_H

// Links that open every node; the typed list adds its payload behind them.
struct QRTSysTSLinkedNode {
  QRTSysTSLinkedNode* next;
  QRTSysTSLinkedNode* prev;
};

// Untyped doubly linked list. It links and unlinks nodes but neither allocates nor
// frees them. No node points back at the list, so the list itself may be relocated
// by a byte move, which the bucket table relies on.
class QRTSysTSLinkedAbstractCtnr {
 public:
  QRTSysTSLinkedAbstractCtnr() : _count(0), _head(nullptr), _tail(nullptr) {}

  QRTSysTSLinkedAbstractCtnr(QRTSysTSLinkedAbstractCtnr const&) = delete;
  QRTSysTSLinkedAbstractCtnr& operator=(QRTSysTSLinkedAbstractCtnr const&) = delete;

  int GetCount() const { return _count; }
  QRTSysTSLinkedNode* GetHead() const { return _head; }
  QRTSysTSLinkedNode* GetTail() const { return _tail; }

  void PushBack(QRTSysTSLinkedNode* node);
  void Unlink(QRTSysTSLinkedNode* node);
  // Forgets every node; whoever allocated them has freed them or kept them.
  void Reset();

 private:
  int _count;
  QRTSysTSLinkedNode* _head;
  QRTSysTSLinkedNode* _tail;
};

#endif
