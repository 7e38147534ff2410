// ZYNAdmXmlElement.cpp - the XML element tree: shared bodies, sorted attributes, compact values.
#include "ZYNAdmXmlElement.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <new>
#include <utility>
#include <vector>

#include "QRTWorkers.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

struct ZYNAdmXmlChildNode {
  ZYNAdmXmlChildNode* next;
  ZYNAdmXmlElement child;            // holds one reference on the child's body
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

// Elements with few attributes keep them in one block; past this many they move to a
// sorted list with an index by name, so that a tag with a huge number of attributes
// doesn't cost quadratic time.
static const int S_indexThreshold = 32;

// ---------------------------------------------------------------------------------------
// The block: a reference may hold a million File elements, and a node and a string record
// for each attribute cost several times the text itself. A block holds all attributes of
// an element in one allocation; a value whose units are all below 0x100 is kept there as
// bytes, or as nibbles when it is lower-case hex digits (digests, times), and becomes a
// string only when someone asks for a borrowed view of it.

static const int S_packedMax = ZYNAdmXmlElement::kStoredMaxUnits;  // longer values stay strings
static const int S_inlineBytes = 6;
static const unsigned char S_formInline = 1;   // the text is inside the word
static const unsigned char S_formNibbles = 2;  // two hex digits to a byte
static const char S_hexDigits[] = "0123456789abcdef";
static const unsigned char S_notHex = 0x10;

// The nibble of each lower-case hex digit, S_notHex for every other byte.
struct SNibbleTable {
  unsigned char of[256];
  constexpr SNibbleTable() : of() {
    for (int i = 0; i < 256; ++i) of[i] = S_notHex;
    for (int i = 0; i < 10; ++i) of['0' + i] = static_cast<unsigned char>(i);
    for (int i = 0; i < 6; ++i) of['a' + i] = static_cast<unsigned char>(10 + i);
  }
};
static constexpr SNibbleTable S_nibbles;

// The text and the children, which most elements of a large tree (the files) don't have.
// Owned by the body; the block or list holds the pointer, so that the body needn't.
struct SElementContent {
  DString value;
  ZYNAdmXmlChildNode* firstChild = nullptr;
  ZYNAdmXmlChildNode* lastChild = nullptr;  // the node behind which AddChild appends
};

// A value in the compact form: the text itself when it is short, else its place in the
// block.
struct SPacked {
  unsigned char form;
  unsigned char inlineLength;
  uint16_t length;  // out of line
  uint16_t offset;  // out of line, from the start of the block
  uint16_t spare;
  unsigned char* InlineText() { return reinterpret_cast<unsigned char*>(this) + 2; }
  const unsigned char* InlineText() const { return reinterpret_cast<const unsigned char*>(this) + 2; }
};

struct SAttributeSlot {
  explicit SAttributeSlot(const DString& slotName) : name(slotName) {}
  ~SAttributeSlot() {}  // the value is the block's to destroy: only it knows the form
  SAttributeSlot(const SAttributeSlot&) = delete;
  SAttributeSlot& operator=(const SAttributeSlot&) = delete;

  DString name;
  union Value {
    Value() {}
    ~Value() {}
    DString text;
    SPacked packed;
  } value;
};

// Header, `count` slots, then the out-of-line bytes of the compact values. A block
// belongs to one body: a clone gets a copy, so that a deep clone shares nothing but
// string records, whose counts are safe across threads.
struct SAttributeBlock {
  SElementContent* content;
  uint16_t count;
  uint16_t spare;
  uint32_t packedSlots;  // bit i: slot i holds a compact value

  SAttributeSlot* Slots() { return reinterpret_cast<SAttributeSlot*>(this + 1); }
  const SAttributeSlot* Slots() const { return reinterpret_cast<const SAttributeSlot*>(this + 1); }
  unsigned char* Bytes() { return reinterpret_cast<unsigned char*>(this); }
  const unsigned char* Bytes() const { return reinterpret_cast<const unsigned char*>(this); }
  bool IsPacked(int i) const { return ((packedSlots >> i) & 1u) != 0; }
};

static_assert(sizeof(SPacked) == 8 && sizeof(SAttributeSlot) == 16 && sizeof(SAttributeBlock) == 16,
              "the block's layout is counted in bytes");
static_assert(S_indexThreshold <= 32, "one bit for each slot of a block");

// The form of attributes past the threshold.
struct SAttributeList {
  SElementContent* content = nullptr;
  ZYNAdmXmlAttributeNode* first = nullptr;
  int count = 0;
  SAttributeIndex* index = nullptr;  // null at or below the threshold

  SAttributeList() = default;
  SAttributeList(const SAttributeList&) = delete;
  SAttributeList& operator=(const SAttributeList&) = delete;
  ~SAttributeList();
  void BuildIndex();
};

SAttributeList::~SAttributeList() {
  ZYNAdmXmlAttributeNode* attribute = first;
  while (attribute != nullptr) {
    ZYNAdmXmlAttributeNode* next = attribute->next;
    delete attribute;
    attribute = next;
  }
  delete index;
}

void SAttributeList::BuildIndex() {
  if (index != nullptr || count <= S_indexThreshold) return;
  index = new SAttributeIndex();
  for (ZYNAdmXmlAttributeNode* node = first; node != nullptr; node = node->next) {
    index->emplace_hint(index->end(), node->name, node);
  }
}

// Three words, the least a malloc chunk holds: the text and children hang off the
// attributes, and the destruction queue links bodies through the place of the name.
struct ZYNAdmXmlElementInternal {
  int refCount;
  bool listed;  // attributes are an SAttributeList, else an SAttributeBlock
  union {
    DString name;
    ZYNAdmXmlElementInternal* nextToDestroy;  // once queued, when the name is gone
  };
  void* attributes;  // block or list; null while the element has neither attributes nor content

  ZYNAdmXmlElementInternal() : refCount(1), listed(false), name(), attributes(nullptr) {}
  ~ZYNAdmXmlElementInternal();
  ZYNAdmXmlElementInternal(const ZYNAdmXmlElementInternal&) = delete;
  ZYNAdmXmlElementInternal& operator=(const ZYNAdmXmlElementInternal&) = delete;
  SElementContent* GetContent() const;
  SElementContent& Content();
  ZYNAdmXmlChildNode* FirstChild() const {
    SElementContent* content = GetContent();
    return content == nullptr ? nullptr : content->firstChild;
  }
  SAttributeBlock* Block() const { return listed ? nullptr : static_cast<SAttributeBlock*>(attributes); }
  SAttributeList* List() const { return listed ? static_cast<SAttributeList*>(attributes) : nullptr; }
};

// How a value would be kept in a block.
struct SPlan {
  const uint16_t* units;
  int length;
  bool nibbles;
  int outOfLine;  // bytes behind the slots; 0 when the text fits in the word
};

// Whether `length` units go into the compact form.
static bool sPlanUnits(const uint16_t* units, int length, SPlan& plan) {
  plan.units = units;
  plan.length = length;
  if (length == 0 || length > S_packedMax || units == nullptr) return false;
  // One pass without a branch per unit: any unit of 0x100 or more sets a high bit of
  // `wide`, any unit that isn't a lower-case hex digit the S_notHex bit of `notHex`.
  uint16_t wide = 0;
  unsigned char notHex = 0;
  int i = 0;
#if defined(__SSE2__)
  // Eight units at a time: a unit u is a digit when u - '0', taken modulo 2^16, is at
  // most 9, which the saturating subtraction of 9 turns into 0; letters likewise.
  const __m128i zero = _mm_setzero_si128();
  __m128i wideUnits = zero;
  __m128i hexUnits = _mm_cmpeq_epi16(zero, zero);
  for (; i + 8 <= length; i += 8) {
    const __m128i eight = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + i));
    wideUnits = _mm_or_si128(wideUnits, eight);
    const __m128i digit = _mm_subs_epu16(_mm_sub_epi16(eight, _mm_set1_epi16('0')), _mm_set1_epi16(9));
    const __m128i letter = _mm_subs_epu16(_mm_sub_epi16(eight, _mm_set1_epi16('a')), _mm_set1_epi16(5));
    hexUnits = _mm_and_si128(hexUnits, _mm_or_si128(_mm_cmpeq_epi16(digit, zero), _mm_cmpeq_epi16(letter, zero)));
  }
  const __m128i high = _mm_and_si128(wideUnits, _mm_set1_epi16(static_cast<short>(0xFF00)));
  if (_mm_movemask_epi8(_mm_cmpeq_epi16(high, zero)) != 0xFFFF) return false;
  if (_mm_movemask_epi8(hexUnits) != 0xFFFF) notHex = S_notHex;
#endif
  for (; i < length; ++i) {
    wide = static_cast<uint16_t>(wide | units[i]);
    notHex = static_cast<unsigned char>(notHex | S_nibbles.of[units[i] & 0xFF]);
  }
  if (wide >= 0x100) return false;
  plan.nibbles = (notHex & S_notHex) == 0;
  int bytes = plan.nibbles ? (length + 1) / 2 : length;
  plan.outOfLine = bytes <= S_inlineBytes ? 0 : bytes;
  return true;
}

// Whether `value` goes into the compact form. Packed whether or not others hold the
// record too: a caller that keeps its copy a while (a queue of digests) mustn't cost the
// tree the saving. A record not terminated at its length (the UTF-8 decoder's) is kept
// as it is, so that every reading of it stays the same.
static bool sPlanPacking(const DString& value, SPlan& plan) {
  const uint16_t* units = value.ConvertToUCChar();
  int length = value.Length();
  if (units != nullptr && length > 0 && length <= S_packedMax && units[length] != 0) return false;
  return sPlanUnits(units, length, plan);
}

// `offset`: where the out-of-line bytes go in `block`, which has room for them there.
static SPacked sPack(const SPlan& plan, unsigned char* block, int offset) {
  SPacked word = SPacked();
  unsigned char* out;
  if (plan.outOfLine == 0) {
    word.form = S_formInline;
    word.inlineLength = static_cast<unsigned char>(plan.length);
    out = word.InlineText();
  } else {
    word.length = static_cast<uint16_t>(plan.length);
    word.offset = static_cast<uint16_t>(offset);
    out = block + offset;
  }
  const uint16_t* units = plan.units;
  if (!plan.nibbles) {
    for (int i = 0; i < plan.length; ++i) out[i] = static_cast<unsigned char>(units[i]);
    return word;
  }
  word.form |= S_formNibbles;
  int pairs = plan.length / 2;
  int k = 0;
#if defined(__SSE2__)
  // Sixteen digits to eight bytes. A digit's nibble is its low four bits, plus 9 for a
  // letter (bit 6 set); each 32-bit lane then holds a pair, high digit first.
  const __m128i low = _mm_set1_epi16(0xF);
  const __m128i nine = _mm_set1_epi16(9);
  for (; k + 8 <= pairs; k += 8) {
    __m128i pair[2];
    for (int half = 0; half < 2; ++half) {
      const __m128i eight = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + 2 * k + 8 * half));
      const __m128i nibble = _mm_add_epi16(_mm_and_si128(eight, low), _mm_mullo_epi16(_mm_srli_epi16(eight, 6), nine));
      pair[half] =
          _mm_and_si128(_mm_or_si128(_mm_slli_epi32(nibble, 4), _mm_srli_epi32(nibble, 16)), _mm_set1_epi32(0xFF));
    }
    const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(pair[0], pair[1]), _mm_setzero_si128());
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + k), bytes);
  }
#endif
  for (; k < pairs; ++k) {
    out[k] =
        static_cast<unsigned char>((S_nibbles.of[units[2 * k] & 0xFF] << 4) | S_nibbles.of[units[2 * k + 1] & 0xFF]);
  }
  if ((plan.length & 1) != 0) out[pairs] = static_cast<unsigned char>(S_nibbles.of[units[plan.length - 1] & 0xFF] << 4);
  return word;
}

static int sOutOfLineBytes(const SPacked& word) {
  if ((word.form & S_formInline) != 0) return 0;
  return (word.form & S_formNibbles) != 0 ? (word.length + 1) / 2 : word.length;
}

// The units of a compact value, from its bytes; `out` has room for `length` units.
static void sUnpackBytes(const unsigned char* in, int length, bool nibbles, uint16_t* out) {
  if (!nibbles) {
    for (int i = 0; i < length; ++i) out[i] = in[i];
    return;
  }
  for (int k = 0; k < length / 2; ++k) {
    out[2 * k] = static_cast<uint16_t>(S_hexDigits[in[k] >> 4]);
    out[2 * k + 1] = static_cast<uint16_t>(S_hexDigits[in[k] & 0xF]);
  }
  if ((length & 1) != 0) out[length - 1] = static_cast<uint16_t>(S_hexDigits[in[length / 2] >> 4]);
}

// Gives the length; `out` has room for S_packedMax units.
static int sUnpack(const SAttributeBlock* block, const SPacked& word, uint16_t* out) {
  bool inlined = (word.form & S_formInline) != 0;
  int length = inlined ? word.inlineLength : word.length;
  const unsigned char* in = inlined ? word.InlineText() : block->Bytes() + word.offset;
  sUnpackBytes(in, length, (word.form & S_formNibbles) != 0, out);
  return length;
}

static void sReleaseBlock(SAttributeBlock* block) {
  if (block == nullptr) return;
  SAttributeSlot* slots = block->Slots();
  for (int i = 0; i < block->count; ++i) {
    if (!block->IsPacked(i)) slots[i].value.text.~DString();
    slots[i].~SAttributeSlot();
  }
  ::operator delete(block);
}

// A new block with the slots of `from` (null: none), source slot `skip` left out and an
// unset slot opened at new index `gap` (each -1 for none), and `extra` bytes reserved
// behind the copied ones, at `extraOffset`. The caller sets the gap's name and value.
static SAttributeBlock* sRebuild(const SAttributeBlock* from, int skip, int gap, int extra, int& extraOffset) {
  int sourceCount = from == nullptr ? 0 : from->count;
  int count = sourceCount - (skip >= 0 ? 1 : 0) + (gap >= 0 ? 1 : 0);
  int bytes = extra;
  for (int i = 0; i < sourceCount; ++i) {
    if (i != skip && from->IsPacked(i)) bytes += sOutOfLineBytes(from->Slots()[i].value.packed);
  }
  int slotsEnd = static_cast<int>(sizeof(SAttributeBlock) + static_cast<size_t>(count) * sizeof(SAttributeSlot));
  SAttributeBlock* block = static_cast<SAttributeBlock*>(::operator new(static_cast<size_t>(slotsEnd + bytes)));
  block->content = from == nullptr ? nullptr : from->content;
  block->count = static_cast<uint16_t>(count);
  block->spare = 0;
  block->packedSlots = 0;
  int cursor = slotsEnd;
  int target = 0;
  for (int i = 0; i < sourceCount; ++i) {
    if (i == skip) continue;
    if (target == gap) ++target;
    const SAttributeSlot& source = from->Slots()[i];
    SAttributeSlot* slot = new (block->Slots() + target) SAttributeSlot(source.name);
    if (!from->IsPacked(i)) {
      new (&slot->value.text) DString(source.value.text);
    } else {
      slot->value.packed = source.value.packed;
      int size = sOutOfLineBytes(source.value.packed);
      if (size > 0) {
        std::memcpy(block->Bytes() + cursor, from->Bytes() + source.value.packed.offset, static_cast<size_t>(size));
        slot->value.packed.offset = static_cast<uint16_t>(cursor);
        cursor += size;
      }
      block->packedSlots |= 1u << target;
    }
    ++target;
  }
  extraOffset = cursor;
  return block;
}

SElementContent* ZYNAdmXmlElementInternal::GetContent() const {
  if (attributes == nullptr) return nullptr;
  return listed ? List()->content : Block()->content;
}

// An element with content but no attributes has a block of no slots.
SElementContent& ZYNAdmXmlElementInternal::Content() {
  if (attributes == nullptr) {
    int unused = 0;
    attributes = sRebuild(nullptr, -1, -1, 0, unused);
  }
  SElementContent*& content = listed ? List()->content : Block()->content;
  if (content == nullptr) content = new SElementContent();
  return *content;
}

// Fills the value of a slot that has none yet.
static void sStoreValue(SAttributeBlock* block, int i, const DString& value, bool packed, const SPlan& plan,
                        int offset) {
  SAttributeSlot& slot = block->Slots()[i];
  if (!packed) {
    new (&slot.value.text) DString(value);
    block->packedSlots &= ~(1u << i);
    return;
  }
  slot.value.packed = sPack(plan, block->Bytes(), offset);
  block->packedSlots |= 1u << i;
}

static DString sValueCopy(const SAttributeBlock* block, int i) {
  const SAttributeSlot& slot = block->Slots()[i];
  if (!block->IsPacked(i)) return slot.value.text;
  uint16_t units[S_packedMax];
  int length = sUnpack(block, slot.value.packed, units);
  return DString(units, length);
}

// The source of every empty result given by reference. Built on first use: DString's own
// empty record may not exist yet when static constructors run.
static const DString& sEmpty() {
  static const DString S_empty;
  return S_empty;
}

// A borrowed view: the compact value becomes a string for good. Without memory for it
// the value stays as it is and the view is empty.
static const DString& sValueView(const SAttributeBlock* constBlock, int i) {
  SAttributeBlock* block = const_cast<SAttributeBlock*>(constBlock);
  SAttributeSlot& slot = block->Slots()[i];
  if (!block->IsPacked(i)) return slot.value.text;
  uint16_t units[S_packedMax];
  int length = sUnpack(block, slot.value.packed, units);
  DString text(units, length);
  if (text.Length() != length) return sEmpty();
  new (&slot.value.text) DString(text);
  block->packedSlots &= ~(1u << i);
  return slot.value.text;
}

// Index of `name` in the block, or of the first greater name (count when none); `equal`
// tells which.
static int sFindSlot(const SAttributeBlock* block, const DString& name, bool& equal) {
  equal = false;
  int count = block == nullptr ? 0 : block->count;
  for (int i = 0; i < count; ++i) {
    int order = DString::Compare(&block->Slots()[i].name, &name);
    if (order == 0) equal = true;
    if (order >= 0) return i;
  }
  return count;
}

static SAttributeList* sToList(const SAttributeBlock* block) {
  SAttributeList* list = new SAttributeList();
  ZYNAdmXmlAttributeNode** link = &list->first;
  for (int i = 0; i < block->count; ++i) {
    *link = new ZYNAdmXmlAttributeNode{nullptr, block->Slots()[i].name, sValueCopy(block, i)};
    link = &(*link)->next;
  }
  list->count = block->count;
  list->content = block->content;
  return list;
}

// Releasing a body may release its children and so on down a tree of any depth. Bodies
// whose count falls to 0 are queued and destroyed by the outermost release, so a deeply
// nested document can't exhaust the call stack.
static thread_local ZYNAdmXmlElementInternal* S_destroyQueue = nullptr;
static thread_local bool S_destroying = false;

static void sDestroyBody(ZYNAdmXmlElementInternal* body) {
  body->name.~DString();
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
// The name went when the body was queued.
ZYNAdmXmlElementInternal::~ZYNAdmXmlElementInternal() {
  refCount = 0;
  if (SElementContent* content = GetContent()) {
    ZYNAdmXmlChildNode* child = content->firstChild;
    while (child != nullptr) {
      ZYNAdmXmlChildNode* next = child->next;
      delete child;
      child = next;
    }
    content->firstChild = nullptr;
    content->lastChild = nullptr;
    delete content;
  }
  delete List();
  sReleaseBlock(Block());
  attributes = nullptr;
}

ZYNAdmXmlElement ZYNAdmXmlElement::_orphan;

// Walks the sorted list up to `name`. Gives the node holding it, or null when a greater
// name (or the end) shows that it is absent.
static ZYNAdmXmlAttributeNode* sFindAttribute(const SAttributeList* list, const DString& name) {
  if (list == nullptr) return nullptr;
  if (list->index != nullptr) {
    SAttributeIndex::const_iterator it = list->index->find(name);
    return it == list->index->end() ? nullptr : it->second;
  }
  for (ZYNAdmXmlAttributeNode* node = list->first; node != nullptr; node = node->next) {
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

static void sCopyAttributes(const ZYNAdmXmlElementInternal* source, ZYNAdmXmlElementInternal* body) {
  if (const SAttributeBlock* block = source->Block()) {
    int unused = 0;
    SAttributeBlock* copy = sRebuild(block, -1, -1, 0, unused);
    copy->content = nullptr;  // the clone builds its own
    body->attributes = copy;
    return;
  }
  const SAttributeList* from = source->List();
  if (from == nullptr) return;
  SAttributeList* list = new SAttributeList();
  ZYNAdmXmlAttributeNode** link = &list->first;
  for (ZYNAdmXmlAttributeNode* node = from->first; node != nullptr; node = node->next) {
    *link = new ZYNAdmXmlAttributeNode{nullptr, node->name, node->value};
    link = &(*link)->next;
  }
  list->count = from->count;
  list->BuildIndex();
  body->attributes = list;
  body->listed = true;
}

static void sCopyBody(const ZYNAdmXmlElementInternal* source, ZYNAdmXmlElementInternal* body, bool deep,
                      std::vector<std::pair<const ZYNAdmXmlElementInternal*, ZYNAdmXmlElementInternal*> >& work) {
  sCopyAttributes(source, body);  // first: the content hangs off the attributes
  body->name = source->name;
  SElementContent* content = source->GetContent();
  const DString& text = content == nullptr ? sEmpty() : content->value;
  if (!text.IsEmpty()) body->Content().value = text;
  for (ZYNAdmXmlChildNode* from = source->FirstChild(); from != nullptr; from = from->next) {
    ZYNAdmXmlChildNode* node = new ZYNAdmXmlChildNode{nullptr, ZYNAdmXmlElement(), body};
    if (!deep) {
      node->child = from->child;
    } else if (const ZYNAdmXmlElementInternal* grandSource = ZYNAdmXmlElement::_BodyOf(from->child)) {
      ZYNAdmXmlElementInternal* fresh = new ZYNAdmXmlElementInternal();
      ZYNAdmXmlElement::_AdoptBody(node->child, fresh);
      work.emplace_back(grandSource, fresh);
    }
    SElementContent& own = body->Content();
    if (own.lastChild == nullptr) {
      own.firstChild = node;
    } else {
      own.lastChild->next = node;
    }
    own.lastChild = node;
  }
}

int ZYNAdmXmlElement::AddChild(const ZYNAdmXmlElement& child) {
  if (child.IsOrphan()) return 0;
  return AddChild(ZYNAdmXmlElement(child));
}

int ZYNAdmXmlElement::AddChild(ZYNAdmXmlElement&& child) {
  if (child.IsOrphan() || !_EnsureBody()) return 0;
  ZYNAdmXmlChildNode* node = new ZYNAdmXmlChildNode{nullptr, std::move(child), _p};
  SElementContent& content = _p->Content();
  if (content.lastChild == nullptr) {
    content.firstChild = node;
  } else {
    content.lastChild->next = node;
  }
  content.lastChild = node;
  return 1;
}

int ZYNAdmXmlElement::AddChildren(std::vector<ZYNAdmXmlElement>& children) {
  if (children.empty() || !_EnsureBody()) return 0;
  // Each range's nodes are made and linked on its thread; the chains are joined here.
  struct Chain {
    ZYNAdmXmlChildNode* first = nullptr;
    ZYNAdmXmlChildNode* last = nullptr;
    int count = 0;
  };
  size_t const S_range = 4096;
  std::vector<Chain> chains((children.size() + S_range - 1) / S_range);
  std::atomic<bool> failed{false};
  ZYNAdmXmlElementInternal* parent = _p;
  QRTForEachRange("xml children", chains.size(), 1, [&](size_t first, size_t last) {
    for (size_t range = first; range < last; ++range) {
      Chain& chain = chains[range];
      size_t end = std::min(children.size(), (range + 1) * S_range);
      try {
        for (size_t i = range * S_range; i < end; ++i) {
          ZYNAdmXmlChildNode* node = new ZYNAdmXmlChildNode{nullptr, ZYNAdmXmlElement(), parent};
          node->child = std::move(children[i]);
          (chain.last == nullptr ? chain.first : chain.last->next) = node;
          chain.last = node;
          ++chain.count;
        }
      } catch (std::bad_alloc const&) {
        failed.store(true);  // what was linked stays; the rest is dropped
      }
    }
  });
  int added = 0;
  SElementContent& content = _p->Content();
  for (Chain const& chain : chains) {
    if (chain.first == nullptr) continue;
    (content.lastChild == nullptr ? content.firstChild : content.lastChild->next) = chain.first;
    content.lastChild = chain.last;
    added += chain.count;
  }
  children.clear();
  if (failed.load()) throw std::bad_alloc();
  return added;
}

void ZYNAdmXmlElement::RemoveChild(const ZYNAdmXmlElement& child) {
  if (child.IsOrphan() || IsOrphan() || _p == nullptr || _p->GetContent() == nullptr) return;
  SElementContent& content = *_p->GetContent();
  ZYNAdmXmlChildNode* previous = nullptr;
  ZYNAdmXmlChildNode* node = content.firstChild;
  while (node != nullptr && node->child._p != child._p) {
    previous = node;
    node = node->next;
  }
  if (node == nullptr) return;
  if (previous == nullptr) {
    content.firstChild = node->next;
  } else {
    previous->next = node->next;
  }
  if (content.lastChild == node) content.lastChild = previous;
  // `child` may be the very handle in the node; it must not be read after this.
  delete node;
}

void* ZYNAdmXmlElement::GetChildren() const { return _p == nullptr ? nullptr : _p->FirstChild(); }

const ZYNAdmXmlElement& ZYNAdmXmlElement::GetChild(void*& iterator) const {
  ZYNAdmXmlChildNode* node = static_cast<ZYNAdmXmlChildNode*>(iterator);
  if (_p == nullptr || _p->FirstChild() == nullptr || node == nullptr || node->parent != _p) {
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

const DString& ZYNAdmXmlElement::GetNameRef() const { return _p == nullptr ? sEmpty() : _p->name; }

const DString& ZYNAdmXmlElement::GetValueRef() const {
  SElementContent* content = _p == nullptr ? nullptr : _p->GetContent();
  return content == nullptr ? sEmpty() : content->value;
}

DString ZYNAdmXmlElement::GetName() const { return _p == nullptr ? DString() : _p->name; }

int ZYNAdmXmlElement::SetValue(const DString& value) {
  if (!_EnsureBody()) return 0;
  if (_p->GetContent() == nullptr && value.IsEmpty()) return 1;  // no text is what it holds
  DString& stored = _p->Content().value;
  stored = value;
  return stored == value ? 1 : 0;
}

DString ZYNAdmXmlElement::GetValue() const { return GetValueRef(); }

static void sSetListed(SAttributeList* list, const DString& name, const DString& value) {
  ZYNAdmXmlAttributeNode** link = &list->first;
  SAttributeIndex* index = list->index;
  if (index != nullptr) {
    SAttributeIndex::iterator at = index->lower_bound(name);
    if (at != index->end() && DString::Compare(&at->first, &name) == 0) {
      at->second->value = value;
      return;
    }
    if (at != index->begin()) link = &std::prev(at)->second->next;
    *link = new ZYNAdmXmlAttributeNode{*link, name, value};
    index->emplace_hint(at, name, *link);
    ++list->count;
    return;
  }
  for (; *link != nullptr; link = &(*link)->next) {
    int order = DString::Compare(&(*link)->name, &name);
    if (order == 0) {
      (*link)->value = value;
      return;
    }
    if (order > 0) break;
  }
  *link = new ZYNAdmXmlAttributeNode{*link, name, value};
  ++list->count;
  list->BuildIndex();
}

// A new value for slot `i` where it needs no bytes behind the slots. `value` may be the slot's own text, so it is read
// before that goes.
static void sReplaceInPlace(SAttributeBlock* block, int i, const DString& value, bool packed, const SPlan& plan) {
  SAttributeSlot& slot = block->Slots()[i];
  if (!packed) {
    if (block->IsPacked(i)) {
      new (&slot.value.text) DString(value);
      block->packedSlots &= ~(1u << i);
    } else {
      slot.value.text = value;
    }
    return;
  }
  SPacked word = sPack(plan, block->Bytes(), 0);
  if (!block->IsPacked(i)) slot.value.text.~DString();
  slot.value.packed = word;
  block->packedSlots |= 1u << i;
}

int ZYNAdmXmlElement::SetAttributeValue(const DString& name, const DString& value) {
  if (name.IsEmpty() || !_EnsureBody()) return 0;
  if (SAttributeList* list = _p->List()) {
    sSetListed(list, name, value);
    return 1;
  }
  SAttributeBlock* block = _p->Block();
  bool equal = false;
  int at = sFindSlot(block, name, equal);
  if (!equal && block != nullptr && block->count >= S_indexThreshold) {
    _p->attributes = sToList(block);
    _p->listed = true;
    sReleaseBlock(block);
    sSetListed(_p->List(), name, value);
    return 1;
  }
  SPlan plan;
  bool packed = sPlanPacking(value, plan);
  int extra = packed ? plan.outOfLine : 0;
  if (equal && extra == 0) {
    sReplaceInPlace(block, at, value, packed, plan);
    return 1;
  }
  int offset = 0;
  SAttributeBlock* fresh = sRebuild(block, equal ? at : -1, at, extra, offset);
  new (fresh->Slots() + at) SAttributeSlot(equal ? block->Slots()[at].name : name);
  sStoreValue(fresh, at, value, packed, plan, offset);
  _p->attributes = fresh;
  sReleaseBlock(block);
  return 1;
}

// Gives the value of `name` in `found`; false where there is no such attribute.
static bool sLookUp(const ZYNAdmXmlElementInternal* body, const DString& name, DString& found) {
  if (body == nullptr) return false;
  if (const SAttributeList* list = body->List()) {
    ZYNAdmXmlAttributeNode* node = sFindAttribute(list, name);
    if (node == nullptr) return false;
    found = node->value;
    return true;
  }
  bool equal = false;
  int at = sFindSlot(body->Block(), name, equal);
  if (!equal) return false;
  found = sValueCopy(body->Block(), at);
  return true;
}

DString ZYNAdmXmlElement::GetAttributeValue(const DString& name) const {
  DString value;
  sLookUp(_p, name, value);
  return value;
}

DString ZYNAdmXmlElement::GetAttributeValue(const DString& name, const DString& defaultValue) const {
  DString value;
  return sLookUp(_p, name, value) ? value : defaultValue;
}

DString ZYNAdmXmlElement::GetAttributeValue(const DString& name, const DString& defaultValue,
                                            unsigned char& found) const {
  found = 0;
  DString value;
  if (!sLookUp(_p, name, value)) return defaultValue;
  found = 1;
  return value;
}

const DString& ZYNAdmXmlElement::GetAttributeValueRef(const DString& name) const {
  if (_p == nullptr) return sEmpty();
  if (const SAttributeList* list = _p->List()) {
    ZYNAdmXmlAttributeNode* node = sFindAttribute(list, name);
    return node == nullptr ? sEmpty() : node->value;
  }
  bool equal = false;
  int at = sFindSlot(_p->Block(), name, equal);
  return equal ? sValueView(_p->Block(), at) : sEmpty();
}

static void sRemoveListed(SAttributeList* list, const DString& name) {
  ZYNAdmXmlAttributeNode** link = &list->first;
  SAttributeIndex* index = list->index;
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
  --list->count;
}

void ZYNAdmXmlElement::RemoveAttribute(const DString& name) {
  if (IsOrphan() || _p == nullptr) return;
  if (SAttributeList* list = _p->List()) {
    sRemoveListed(list, name);
    return;
  }
  SAttributeBlock* block = _p->Block();
  bool equal = false;
  int at = sFindSlot(block, name, equal);
  if (!equal) return;
  int unused = 0;
  bool last = block->count == 1 && block->content == nullptr;
  _p->attributes = last ? nullptr : sRebuild(block, at, -1, 0, unused);
  sReleaseBlock(block);
}

void* ZYNAdmXmlElement::GetAttributes() const {
  if (_p == nullptr) return nullptr;
  if (const SAttributeList* list = _p->List()) return list->first;
  SAttributeBlock* block = _p->Block();
  return block == nullptr || block->count == 0 ? nullptr : block->Slots();
}

// Index of the slot at `iterator`, or -1 when it isn't one of this block's.
static int sSlotIndex(const SAttributeBlock* block, const void* iterator) {
  if (block == nullptr || iterator == nullptr) return -1;
  uintptr_t first = reinterpret_cast<uintptr_t>(block->Slots());
  uintptr_t at = reinterpret_cast<uintptr_t>(iterator);
  if (at < first || (at - first) % sizeof(SAttributeSlot) != 0) return -1;
  uintptr_t index = (at - first) / sizeof(SAttributeSlot);
  return index < block->count ? static_cast<int>(index) : -1;
}

static void* sNextSlot(const SAttributeBlock* block, int index) {
  return index + 1 < block->count ? const_cast<SAttributeSlot*>(block->Slots() + index + 1) : nullptr;
}

DString ZYNAdmXmlElement::GetAttributeName(void*& iterator) const {
  void* wanted = iterator;
  iterator = nullptr;
  if (_p == nullptr || wanted == nullptr) return DString();
  if (const SAttributeList* list = _p->List()) {
    // An iterator of another element must not be followed: it may be stale.
    for (ZYNAdmXmlAttributeNode* node = list->first; node != nullptr; node = node->next) {
      if (node != wanted) continue;
      iterator = node->next;
      return node->name;
    }
    return DString();
  }
  const SAttributeBlock* block = _p->Block();
  int index = sSlotIndex(block, wanted);
  if (index < 0) return DString();
  iterator = sNextSlot(block, index);
  return block->Slots()[index].name;
}

const DString* ZYNAdmXmlElement::NextAttribute(void*& iterator, const DString*& value) const {
  if (_p == nullptr || iterator == nullptr) {
    iterator = nullptr;
    return nullptr;
  }
  if (_p->listed) {
    ZYNAdmXmlAttributeNode* node = static_cast<ZYNAdmXmlAttributeNode*>(iterator);
    iterator = node->next;
    value = &node->value;
    return &node->name;
  }
  const SAttributeBlock* block = _p->Block();
  int index = static_cast<int>(static_cast<SAttributeSlot*>(iterator) - block->Slots());
  iterator = sNextSlot(block, index);
  value = &sValueView(block, index);
  return &block->Slots()[index].name;
}

void ZYNAdmXmlElement::DecodeStored(const StoredValue& value, unsigned short* out) {
  sUnpackBytes(value.bytes, value.length, value.nibbles, out);
}

const DString* ZYNAdmXmlElement::NextStoredAttribute(void*& iterator, StoredValue& value) const {
  if (_p == nullptr || iterator == nullptr) {
    iterator = nullptr;
    return nullptr;
  }
  const DString* text;
  const DString* name;
  if (_p->listed) {
    ZYNAdmXmlAttributeNode* node = static_cast<ZYNAdmXmlAttributeNode*>(iterator);
    iterator = node->next;
    text = &node->value;
    name = &node->name;
  } else {
    const SAttributeBlock* block = _p->Block();
    int index = static_cast<int>(static_cast<SAttributeSlot*>(iterator) - block->Slots());
    iterator = sNextSlot(block, index);
    const SAttributeSlot& slot = block->Slots()[index];
    name = &slot.name;
    if (block->IsPacked(index)) {
      const SPacked& word = slot.value.packed;
      bool inlined = (word.form & S_formInline) != 0;
      value.units = nullptr;
      value.bytes = inlined ? word.InlineText() : block->Bytes() + word.offset;
      value.nibbles = (word.form & S_formNibbles) != 0;
      value.length = inlined ? word.inlineLength : word.length;
      return name;
    }
    text = &slot.value.text;
  }
  value.units = text->ConvertToUCChar();
  value.bytes = nullptr;
  value.nibbles = false;
  value.length = text->Length();
  return name;
}

int ZYNAdmXmlElement::SetAttributes(const AttributeUnits* attributes, int count) {
  if (IsOrphan()) return 0;
  const SAttributeBlock* old = _p == nullptr ? nullptr : _p->Block();
  bool bare = _p == nullptr || (!_p->listed && (old == nullptr || old->count == 0));
  if (!bare || count > S_indexThreshold) {
    int all = 1;
    for (int i = 0; i < count; ++i) {
      const AttributeUnits& attribute = attributes[i];
      if (SetAttributeValue(*attribute.name, DString(attribute.units, attribute.length)) == 0) all = 0;
    }
    return all;
  }
  // The slots in the order the block will hold them, found as SetAttributeValue finds
  // them one by one: an equal name keeps the first one's record and takes the new value.
  int nameOf[S_indexThreshold];
  int valueOf[S_indexThreshold];
  int slots = 0;
  int all = 1;
  for (int i = 0; i < count; ++i) {
    const DString& name = *attributes[i].name;
    if (name.IsEmpty()) {
      all = 0;
      continue;
    }
    int at = slots;
    // Names mostly come in order: one comparison with the last settles those.
    if (slots > 0 && DString::Compare(attributes[nameOf[slots - 1]].name, &name) >= 0) {
      for (at = 0; at < slots; ++at) {
        if (DString::Compare(attributes[nameOf[at]].name, &name) >= 0) break;
      }
      if (DString::Compare(attributes[nameOf[at]].name, &name) == 0) {
        valueOf[at] = i;
        continue;
      }
    }
    for (int k = slots; k > at; --k) {
      nameOf[k] = nameOf[k - 1];
      valueOf[k] = valueOf[k - 1];
    }
    nameOf[at] = i;
    valueOf[at] = i;
    ++slots;
  }
  if (slots == 0 || !_EnsureBody()) return all;
  SPlan plans[S_indexThreshold];
  uint32_t packedSlots = 0;
  int slotsEnd = static_cast<int>(sizeof(SAttributeBlock) + static_cast<size_t>(slots) * sizeof(SAttributeSlot));
  int bytes = slotsEnd;
  for (int k = 0; k < slots; ++k) {
    const AttributeUnits& attribute = attributes[valueOf[k]];
    if (!sPlanUnits(attribute.units, attribute.length, plans[k])) continue;
    packedSlots |= 1u << k;
    bytes += plans[k].outOfLine;
  }
  SAttributeBlock* block = static_cast<SAttributeBlock*>(::operator new(static_cast<size_t>(bytes)));
  block->content = old == nullptr ? nullptr : old->content;
  block->count = static_cast<uint16_t>(slots);
  block->spare = 0;
  block->packedSlots = packedSlots;
  int cursor = slotsEnd;
  for (int k = 0; k < slots; ++k) {
    SAttributeSlot* slot = new (block->Slots() + k) SAttributeSlot(*attributes[nameOf[k]].name);
    if (!block->IsPacked(k)) {
      const AttributeUnits& attribute = attributes[valueOf[k]];
      new (&slot->value.text) DString(attribute.units, attribute.length);
      continue;
    }
    slot->value.packed = sPack(plans[k], block->Bytes(), cursor);
    cursor += plans[k].outOfLine;
  }
  _p->attributes = block;
  sReleaseBlock(const_cast<SAttributeBlock*>(old));
  return all;
}
