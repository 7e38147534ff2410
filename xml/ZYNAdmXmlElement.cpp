#include "ZYNAdmXmlElement.h"

#include <iterator>
#include <map>
#include <utility>
#include <vector>

struct ZYNAdmXmlChildNode {
  ZYNAdmXmlChildNode* next;
  ZYNAdmXmlElement child;  // holds one reference on the child's body
  ZYNAdmXmlElementInternal* parent;  // the body whose list holds this node; not counted
};

struct ZYNAdmXmlAttributeNode {
  ZYNAdmXmlAttributeNode* next;
  DString name;
  DString value;
};

struct SNameLess {
  bool operator()(const DString& a, const DString& b) const { return DString::Compare(&a, &b) < 0; }
};
typedef std::map<DString, ZYNAdmXmlAttributeNode*, SNameLess> SAttributeIndex;

// Elements with few attributes keep only the sorted list; past this many, an index by
// name keeps a tag with a huge number of attributes from costing quadratic time.
static const int S_indexThreshold = 32;

struct ZYNAdmXmlElementInternal {
  int refCount;
  DString name;
  DString value;
  ZYNAdmXmlChildNode* firstChild;
  ZYNAdmXmlChildNode* lastChild;  // the node behind which AddChild appends
  ZYNAdmXmlAttributeNode* firstAttribute;
  int attributeCount;
  SAttributeIndex* attributeIndex;          // null below the threshold
  ZYNAdmXmlElementInternal* nextToDestroy;  // link of the per-thread destruction queue

  ZYNAdmXmlElementInternal()
      : refCount(1),
        firstChild(nullptr),
        lastChild(nullptr),
        firstAttribute(nullptr),
        attributeCount(0),
        attributeIndex(nullptr),
        nextToDestroy(nullptr) {}
  ~ZYNAdmXmlElementInternal();
  void BuildIndex();
};

void ZYNAdmXmlElementInternal::BuildIndex() {
  if (attributeIndex != nullptr || attributeCount <= S_indexThreshold) return;
  attributeIndex = new SAttributeIndex();
  for (ZYNAdmXmlAttributeNode* node = firstAttribute; node != nullptr; node = node->next) {
    attributeIndex->emplace_hint(attributeIndex->end(), node->name, node);
  }
}

// Releasing a body may release its children and so on down a tree of any depth. Bodies
// whose count falls to 0 are queued and destroyed by the outermost release, so a deeply
// nested document can't exhaust the call stack.
static thread_local ZYNAdmXmlElementInternal* S_destroyQueue = nullptr;
static thread_local bool S_destroying = false;

static void sDestroyBody(ZYNAdmXmlElementInternal* body) {
  body->nextToDestroy = S_destroyQueue;
  S_destroyQueue = body;
  if (S_destroying) return;
  S_destroying = true;
  while (S_destroyQueue != nullptr) {
    ZYNAdmXmlElementInternal* next = S_destroyQueue;
    S_destroyQueue = next->nextToDestroy;
    delete next;
  }
  S_destroying = false;
}

// Children go first, in order, each release possibly destroying a whole subtree.
ZYNAdmXmlElementInternal::~ZYNAdmXmlElementInternal() {
  refCount = 0;
  ZYNAdmXmlChildNode* child = firstChild;
  while (child != nullptr) {
    ZYNAdmXmlChildNode* next = child->next;
    delete child;
    child = next;
  }
  firstChild = nullptr;
  lastChild = nullptr;
  ZYNAdmXmlAttributeNode* attribute = firstAttribute;
  while (attribute != nullptr) {
    ZYNAdmXmlAttributeNode* next = attribute->next;
    delete attribute;
    attribute = next;
  }
  firstAttribute = nullptr;
  delete attributeIndex;
  attributeIndex = nullptr;
}

ZYNAdmXmlElement ZYNAdmXmlElement::_orphan;

// The source of every empty result given by reference. Built on first use: DString's own
// empty record may not exist yet when static constructors run.
static const DString& sEmpty() {
  static const DString S_empty;
  return S_empty;
}

// Walks the sorted list up to `name`. Gives the node holding it, or null when a greater
// name (or the end) shows that it is absent.
static ZYNAdmXmlAttributeNode* sFindAttribute(const ZYNAdmXmlElementInternal* body,
                                              const DString& name) {
  if (body == nullptr) return nullptr;
  if (body->attributeIndex != nullptr) {
    SAttributeIndex::const_iterator it = body->attributeIndex->find(name);
    return it == body->attributeIndex->end() ? nullptr : it->second;
  }
  for (ZYNAdmXmlAttributeNode* node = body->firstAttribute; node != nullptr; node = node->next) {
    int order = DString::Compare(&node->name, &name);
    if (order == 0) return node;
    if (order > 0) return nullptr;
  }
  return nullptr;
}

ZYNAdmXmlElement::ZYNAdmXmlElement(const DString& name) : _p(nullptr) { SetName(name); }

ZYNAdmXmlElement::ZYNAdmXmlElement(const ZYNAdmXmlElement& other) : _p(other._p) {
  if (_p != nullptr) ++_p->refCount;
}

ZYNAdmXmlElement::~ZYNAdmXmlElement() { Reset(); }

ZYNAdmXmlElement& ZYNAdmXmlElement::operator=(const ZYNAdmXmlElement& other) {
  if (this == &other) return *this;
  Assign(other);
  return *this;
}

void ZYNAdmXmlElement::Reset() {
  if (_p == nullptr) return;
  ZYNAdmXmlElementInternal* body = _p;
  _p = nullptr;
  if (--body->refCount == 0) sDestroyBody(body);
}

ZYNAdmXmlElement& ZYNAdmXmlElement::Assign(const ZYNAdmXmlElement& other) {
  if (other.IsOrphan() || IsOrphan()) return _orphan;
  // Take the new reference before letting go of the old body: the new one may live
  // only inside the old one's subtree.
  ZYNAdmXmlElementInternal* body = other._p;
  if (body != nullptr) ++body->refCount;
  Reset();
  _p = body;
  return *this;
}

bool ZYNAdmXmlElement::_EnsureBody() {
  if (IsOrphan()) return false;
  if (_p == nullptr) _p = new ZYNAdmXmlElementInternal();
  return true;
}

// Copies one body's own content into `target`; with `deep`, each child gets a fresh body
// that is queued for copying instead of being copied by recursion.
static void sCopyBody(const ZYNAdmXmlElementInternal* source, ZYNAdmXmlElementInternal* target, bool deep,
                      std::vector<std::pair<const ZYNAdmXmlElementInternal*, ZYNAdmXmlElementInternal*> >& work);

ZYNAdmXmlElement ZYNAdmXmlElement::Clone(unsigned char deep) const {
  ZYNAdmXmlElement result;
  if (_p == nullptr) return result;
  result._p = new ZYNAdmXmlElementInternal();
  std::vector<std::pair<const ZYNAdmXmlElementInternal*, ZYNAdmXmlElementInternal*> > work;
  work.emplace_back(_p, result._p);
  while (!work.empty()) {
    std::pair<const ZYNAdmXmlElementInternal*, ZYNAdmXmlElementInternal*> next = work.back();
    work.pop_back();
    sCopyBody(next.first, next.second, deep != 0, work);
  }
  return result;
}

static void sCopyBody(const ZYNAdmXmlElementInternal* source, ZYNAdmXmlElementInternal* body, bool deep,
                      std::vector<std::pair<const ZYNAdmXmlElementInternal*, ZYNAdmXmlElementInternal*> >& work) {
  body->name = source->name;
  body->value = source->value;
  for (ZYNAdmXmlChildNode* from = source->firstChild; from != nullptr; from = from->next) {
    ZYNAdmXmlChildNode* node = new ZYNAdmXmlChildNode{nullptr, ZYNAdmXmlElement(), body};
    if (!deep) {
      node->child = from->child;
    } else if (const ZYNAdmXmlElementInternal* grandSource = ZYNAdmXmlElement::_BodyOf(from->child)) {
      ZYNAdmXmlElementInternal* fresh = new ZYNAdmXmlElementInternal();
      ZYNAdmXmlElement::_AdoptBody(node->child, fresh);
      work.emplace_back(grandSource, fresh);
    }
    if (body->lastChild == nullptr) {
      body->firstChild = node;
    } else {
      body->lastChild->next = node;
    }
    body->lastChild = node;
  }
  ZYNAdmXmlAttributeNode** link = &body->firstAttribute;
  for (ZYNAdmXmlAttributeNode* from = source->firstAttribute; from != nullptr; from = from->next) {
    *link = new ZYNAdmXmlAttributeNode{nullptr, from->name, from->value};
    link = &(*link)->next;
  }
  body->attributeCount = source->attributeCount;
  body->BuildIndex();
}

int ZYNAdmXmlElement::AddChild(const ZYNAdmXmlElement& child) {
  if (child.IsOrphan() || !_EnsureBody()) return 0;
  ZYNAdmXmlChildNode* node = new ZYNAdmXmlChildNode{nullptr, child, _p};
  if (_p->lastChild == nullptr) {
    _p->firstChild = node;
  } else {
    _p->lastChild->next = node;
  }
  _p->lastChild = node;
  return 1;
}

void ZYNAdmXmlElement::RemoveChild(const ZYNAdmXmlElement& child) {
  if (child.IsOrphan() || IsOrphan() || _p == nullptr) return;
  ZYNAdmXmlChildNode* previous = nullptr;
  ZYNAdmXmlChildNode* node = _p->firstChild;
  while (node != nullptr && node->child._p != child._p) {
    previous = node;
    node = node->next;
  }
  if (node == nullptr) return;
  if (previous == nullptr) {
    _p->firstChild = node->next;
  } else {
    previous->next = node->next;
  }
  if (_p->lastChild == node) _p->lastChild = previous;
  // `child` may be the very handle in the node; it must not be read after this.
  delete node;
}

void* ZYNAdmXmlElement::GetChildren() const { return _p == nullptr ? nullptr : _p->firstChild; }

const ZYNAdmXmlElement& ZYNAdmXmlElement::GetChild(void*& iterator) const {
  ZYNAdmXmlChildNode* node = static_cast<ZYNAdmXmlChildNode*>(iterator);
  if (_p == nullptr || _p->firstChild == nullptr || node == nullptr || node->parent != _p) {
    iterator = nullptr;
    return _orphan;
  }
  iterator = node->next;
  return node->child;
}

int ZYNAdmXmlElement::SetName(const DString& name) {
  if (!_EnsureBody()) return 0;
  _p->name = name;
  return 1;
}

const DString& ZYNAdmXmlElement::GetNameRef() const {
  return _p == nullptr ? sEmpty() : _p->name;
}

const DString& ZYNAdmXmlElement::GetValueRef() const {
  return _p == nullptr ? sEmpty() : _p->value;
}

DString ZYNAdmXmlElement::GetName() const { return _p == nullptr ? DString() : _p->name; }

int ZYNAdmXmlElement::SetValue(const DString& value) {
  if (!_EnsureBody()) return 0;
  _p->value = value;
  return _p->value == value ? 1 : 0;
}

DString ZYNAdmXmlElement::GetValue() const { return _p == nullptr ? DString() : _p->value; }

int ZYNAdmXmlElement::SetAttributeValue(const DString& name, const DString& value) {
  if (name.IsEmpty() || !_EnsureBody()) return 0;
  ZYNAdmXmlAttributeNode** link = &_p->firstAttribute;
  SAttributeIndex* index = _p->attributeIndex;
  if (index != nullptr) {
    SAttributeIndex::iterator at = index->lower_bound(name);
    if (at != index->end() && DString::Compare(&at->first, &name) == 0) {
      at->second->value = value;
      return 1;
    }
    if (at != index->begin()) link = &std::prev(at)->second->next;
    *link = new ZYNAdmXmlAttributeNode{*link, name, value};
    index->emplace_hint(at, name, *link);
    ++_p->attributeCount;
    return 1;
  }
  for (; *link != nullptr; link = &(*link)->next) {
    int order = DString::Compare(&(*link)->name, &name);
    if (order == 0) {
      (*link)->value = value;
      return 1;
    }
    if (order > 0) break;
  }
  *link = new ZYNAdmXmlAttributeNode{*link, name, value};
  ++_p->attributeCount;
  _p->BuildIndex();
  return 1;
}

DString ZYNAdmXmlElement::GetAttributeValue(const DString& name) const {
  ZYNAdmXmlAttributeNode* node = sFindAttribute(_p, name);
  return node == nullptr ? DString() : node->value;
}

DString ZYNAdmXmlElement::GetAttributeValue(const DString& name,
                                            const DString& defaultValue) const {
  ZYNAdmXmlAttributeNode* node = sFindAttribute(_p, name);
  return node == nullptr ? defaultValue : node->value;
}

DString ZYNAdmXmlElement::GetAttributeValue(const DString& name, const DString& defaultValue,
                                            unsigned char& found) const {
  found = 0;
  ZYNAdmXmlAttributeNode* node = sFindAttribute(_p, name);
  if (node == nullptr) return defaultValue;
  found = 1;
  return node->value;
}

void ZYNAdmXmlElement::RemoveAttribute(const DString& name) {
  if (IsOrphan() || _p == nullptr) return;
  ZYNAdmXmlAttributeNode** link = &_p->firstAttribute;
  SAttributeIndex* index = _p->attributeIndex;
  if (index != nullptr) {
    SAttributeIndex::iterator at = index->find(name);
    if (at == index->end()) return;
    if (at != index->begin()) link = &std::prev(at)->second->next;
    index->erase(at);
  } else {
    for (; *link != nullptr; link = &(*link)->next) {
      int order = DString::Compare(&(*link)->name, &name);
      if (order > 0) return;
      if (order == 0) break;
    }
    if (*link == nullptr) return;
  }
  ZYNAdmXmlAttributeNode* node = *link;
  *link = node->next;
  delete node;
  --_p->attributeCount;
}

void* ZYNAdmXmlElement::GetAttributes() const {
  return _p == nullptr ? nullptr : _p->firstAttribute;
}

DString ZYNAdmXmlElement::GetAttributeName(void*& iterator) const {
  ZYNAdmXmlAttributeNode* wanted = static_cast<ZYNAdmXmlAttributeNode*>(iterator);
  iterator = nullptr;
  if (_p == nullptr || wanted == nullptr) return DString();
  // An iterator of another element must not be followed: it may be stale.
  for (ZYNAdmXmlAttributeNode* node = _p->firstAttribute; node != nullptr; node = node->next) {
    if (node != wanted) continue;
    iterator = node->next;
    return node->name;
  }
  return DString();
}

const DString* ZYNAdmXmlElement::NextAttribute(void*& iterator, const DString*& value) const {
  ZYNAdmXmlAttributeNode* node = static_cast<ZYNAdmXmlAttributeNode*>(iterator);
  if (_p == nullptr || node == nullptr) {
    iterator = nullptr;
    return nullptr;
  }
  iterator = node->next;
  value = &node->value;
  return &node->name;
}
