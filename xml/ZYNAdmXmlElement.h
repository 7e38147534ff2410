#ifndef ZYN_XML_ZYNADMXMLELEMENT_H
#define ZYN_XML_ZYNADMXMLELEMENT_H

#include <vector>

#include "DString.h"

struct ZYNAdmXmlElementInternal;
struct ZYNAdmXmlChildNode;
struct ZYNAdmXmlAttributeNode;

// Handle of one pointer on a shared, reference-counted element body: a name, one text
// value, children in insertion order and attributes kept sorted by name, so that equal
// trees serialise to equal bytes whatever order built them.
//
// Copying a handle shares the body; only Clone parts two handles. The reference count is
// plain: a tree and all its handles belong to one thread at a time. That holds for
// readers too: a borrowed view of a compact attribute value writes the element.
//
// `_orphan` is the null element, handed out by reference where there is no element.
// Every operation that could change an element refuses it, so a chain of calls on a
// failed lookup stays harmless. Identity is by address (IsOrphan).
class ZYNAdmXmlElement {
 public:
  // Empty handle; no body is created. constexpr so that `_orphan` needs no constructor run.
  constexpr ZYNAdmXmlElement() : _p(nullptr) {}
  // Empty handle, then SetName(name).
  explicit ZYNAdmXmlElement(const DString& name);
  ZYNAdmXmlElement(const ZYNAdmXmlElement& other);
  ZYNAdmXmlElement(ZYNAdmXmlElement&& other) noexcept : _p(other._p) { other._p = nullptr; }
  ~ZYNAdmXmlElement();

  // Same as Assign, except that assigning a handle to itself changes nothing.
  ZYNAdmXmlElement& operator=(const ZYNAdmXmlElement& other);

  // Lets go of the body (destroyed with its last reference); the handle becomes empty.
  void Reset();
  // Shares `other`'s body. Assigning `_orphan`, or to `_orphan`, changes nothing and
  // gives `_orphan`.
  ZYNAdmXmlElement& Assign(const ZYNAdmXmlElement& other);
  // A new body with copies of name, value and attribute list. deep 0: the children are
  // shared with this element; deep not 0: each child is cloned too. Empty for an empty
  // handle.
  ZYNAdmXmlElement Clone(unsigned char deep) const;

  // Structure. Results: 0 failure (on `_orphan`), 1 success.
  // Appends in O(1); an empty `child` handle is appended as it is.
  int AddChild(const ZYNAdmXmlElement& child);
  // The same, taking over `child`'s hold on its body: a list of many is moved in without
  // touching each body's count.
  int AddChild(ZYNAdmXmlElement&& child);
  // Moves every handle of `children` in, in their order, and empties it; a long list has
  // its nodes made on every core. Gives how many were added.
  int AddChildren(std::vector<ZYNAdmXmlElement>& children);
  // Unlinks the first child node holding `child`'s body; nothing if there is none.
  void RemoveChild(const ZYNAdmXmlElement& child);
  // Iteration: it = GetChildren(); while (it) { const ZYNAdmXmlElement& c = GetChild(it); }
  // Removing the node under an iterator invalidates it.
  void* GetChildren() const;
  // `_orphan` and a null iterator when the iterator isn't one of this element's nodes.
  const ZYNAdmXmlElement& GetChild(void*& iterator) const;

  // Name and value.
  int SetName(const DString& name);
  DString GetName() const;
  // Result: whether the stored value now equals `value` (0 on `_orphan`).
  int SetValue(const DString& value);
  DString GetValue() const;

  // Attributes. An empty name is refused (0, nothing created).
  int SetAttributeValue(const DString& name, const DString& value);
  DString GetAttributeValue(const DString& name) const;
  DString GetAttributeValue(const DString& name, const DString& defaultValue) const;
  // `found` becomes 1 where the attribute exists, an empty value included, else 0.
  DString GetAttributeValue(const DString& name, const DString& defaultValue, unsigned char& found) const;
  void RemoveAttribute(const DString& name);
  // Iteration in ascending name order: it = GetAttributes(); while (it) GetAttributeName(it).
  // Any change of the attributes may invalidate the element's attribute iterators.
  void* GetAttributes() const;
  // Empty text and a null iterator when the iterator isn't one of this element's nodes.
  DString GetAttributeName(void*& iterator) const;

  // Borrowed views for hot loops such as the writer's, which would otherwise copy each
  // string handle it reads: valid while the element is unchanged. Empty texts for an
  // empty handle.
  const DString& GetNameRef() const;
  const DString& GetValueRef() const;
  // One step of a walk begun with GetAttributes() on this very element: the name, with
  // `value` set, or null at the end. Unlike GetAttributeName it trusts the iterator.
  const DString* NextAttribute(void*& iterator, const DString*& value) const;
  // The value of one attribute, borrowed as above; empty text where there is none.
  const DString& GetAttributeValueRef(const DString& name) const;

  // For walks over large trees (the writer, the comparison): as NextAttribute, but a
  // value held in the compact form is given as it is stored rather than made a string
  // that would then stay with the element. Valid while the element is unchanged; writes
  // nothing, so several threads may walk one tree this way.
  struct StoredValue {
    const unsigned short* units;  // a string's units; null for a compact value
    const unsigned char* bytes;   // compact: one unit (below 0x100) per byte, or, with
    bool nibbles;                 // `nibbles`, two lower-case hex digits per byte, high first
    int length;                   // in units
  };
  const DString* NextStoredAttribute(void*& iterator, StoredValue& value) const;
  // The units of a compact value (`units` null) into `out`, which has room for its
  // length: at most kStoredMaxUnits, the longest value kept compact. Reads the element
  // only.
  static const int kStoredMaxUnits = 1024;
  static void DecodeStored(const StoredValue& value, unsigned short* out);

  // For builders of many elements (the parser, the scan): the same as
  // SetAttributeValue(*name, DString(units, length)) for each in turn; on an element without attributes the block is
  // built once, not once per attribute. `units` is read during the call only. Result: 1 when every attribute was set.
  struct AttributeUnits {
    const DString* name;
    const unsigned short* units;
    int length;
  };
  int SetAttributes(const AttributeUnits* attributes, int count);

  // Neither of these is an operation of the model; they spare callers a pointer test.
  bool IsOrphan() const { return this == &_orphan; }

  // The name, unit for unit. DString's == would also take some longer names for equal
  // (a text led by a unit whose low byte is 0).
  bool HasName(const DString& name) const {
    const DString& own = GetNameRef();
    return own.Length() == name.Length() && own.IsSubStringAt(0, name);
  }

  // for (const ZYNAdmXmlElement& child : element.Children()): the children in order. The
  // list must not change during the walk.
  class ChildIterator {
   public:
    ChildIterator(const ZYNAdmXmlElement* parent, void* cursor) : _parent(parent), _next(cursor) { ++*this; }
    const ZYNAdmXmlElement& operator*() const { return *_current; }
    ChildIterator& operator++() {
      _current = _next != nullptr ? &_parent->GetChild(_next) : nullptr;
      return *this;
    }
    bool operator!=(const ChildIterator& other) const { return _current != other._current; }

   private:
    const ZYNAdmXmlElement* _parent;
    void* _next;
    const ZYNAdmXmlElement* _current = nullptr;
  };
  struct ChildRange {
    const ZYNAdmXmlElement* parent;
    ChildIterator begin() const { return ChildIterator(parent, parent->GetChildren()); }
    ChildIterator end() const { return ChildIterator(parent, nullptr); }
  };
  ChildRange Children() const { return ChildRange{this}; }
  bool IsEmpty() const { return _p == nullptr; }

  static ZYNAdmXmlElement _orphan;

  // For the tree copy inside this class's source file only.
  static const ZYNAdmXmlElementInternal* _BodyOf(const ZYNAdmXmlElement& e) { return e._p; }
  static void _AdoptBody(ZYNAdmXmlElement& e, ZYNAdmXmlElementInternal* body) { e._p = body; }

 private:
  bool _EnsureBody();

  ZYNAdmXmlElementInternal* _p;
};

#endif
