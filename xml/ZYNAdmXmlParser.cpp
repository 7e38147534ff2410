// ZYNAdmXmlParser.cpp - ZYNAdmXmlParser::Parse: a byte stream to an element tree.
#include "ZYNAdmXmlParser.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <new>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "QRTSpinLock.h"
#include "QRTThreads.h"
#include "QRTWorkers.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmInputStream.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNInsSerialShare.h"
#include "ZYNSysSemaphore.h"

// The former string pool is gone: names are interned per Parse call now.
void ZYNStringPoolSetForCurrentThrd() {}
void ZYNStringPoolDisable() {}
int ZYNStringPoolFlush() { return 0; }

namespace {

const int S_initialCapacity = 4096;    // units of the read buffer
const int S_sharedCapacity = 1 << 16;  // once leaves are read in place by other threads
const int S_blockSize = 4096;          // bytes asked of the stream per Read
const int S_initialStackCapacity = 20;
const int S_initialPoolBuckets = 128;  // a power of 2: a bucket is a mask away
const int S_directSearchLimit = 256;   // units of a tag searched without the partner index
// Leaf tags read in this thread before the others are asked to help, and per batch.
const int S_leavesAlone = 4096;
const size_t S_leafBatch = 1024;

// One interned name: the units as they stand in the file and their decoded form.
struct PooledEntry {
  PooledEntry(const unsigned short* units, int length, PooledEntry* nextEntry);

  DString raw;
  DString decoded;
  PooledEntry* next;
  unsigned int hash;  // kept so that growing the table needn't hash again
};

// Names of a reference file are few and repeated ten thousand times: each is decoded once
// and all its copies share one record. The table grows so that a file of many distinct
// names (garbage, or a hostile one) stays linear.
class NamePool {
 public:
  NamePool() : _buckets(S_initialPoolBuckets, nullptr), _count(0) {}
  ~NamePool();
  NamePool(const NamePool&) = delete;
  NamePool& operator=(const NamePool&) = delete;

  // The record stays with the pool until it is destroyed.
  const DString& Get(const unsigned short* units, int length);

 private:
  void _Grow();

  std::vector<PooledEntry*> _buckets;
  size_t _count;
};

// For one tag: where each unit occurs next. Built only when an attribute's first delimiter
// has no partner in a long rest of the tag, so that a tag of many unmatched units costs
// one pass, not one per unit.
class PartnerIndex {
 public:
  PartnerIndex() : _stamp(0), _tag(nullptr) {}
  void Invalidate() { _tag = nullptr; }
  bool IsBuiltFor(const unsigned short* tag) const { return _tag == tag; }
  void Build(const unsigned short* tag, int length);
  int NextOf(int index) const { return _next[static_cast<size_t>(index)]; }

 private:
  std::vector<int> _next;
  std::vector<unsigned int> _seenStamp;  // per unit value; stamps spare a clear per tag
  std::vector<int> _seenAt;
  unsigned int _stamp;
  const unsigned short* _tag;
};

class SLeafReaders;

// The parser's working state; everything is released on every exit of Parse.
struct ParseData {
  ParseData() : buffer(nullptr), capacity(0), end(0), top(-1), stack(S_initialStackCapacity) {}
  ~ParseData();
  ParseData(const ParseData&) = delete;
  ParseData& operator=(const ParseData&) = delete;

  unsigned short* buffer;
  int capacity;
  int end;  // units of data in the buffer
  int top;  // index of the open element, -1 when none is open
  std::vector<ZYNAdmXmlElement> stack;
  NamePool pool;
  PartnerIndex partners;
  std::vector<unsigned short> work;  // decoded text or attribute values
  // The attributes of the tag at hand; a value decoded into `work` has a null `units`
  // and its offset there in `inWork` until the tag is read to its end.
  std::vector<ZYNAdmXmlElement::AttributeUnits> attributes;
  std::vector<int> inWork;
  // Past S_leavesAlone leaf tags, other threads read their names and attributes.
  int leaves = 0;
  bool leavesInBuffer = false;  // whether a batch still points into `buffer`
  std::unique_ptr<SLeafReaders> readers;
};

// The self-closing tags of a long document, a batch at a time, read on worker threads
// into elements that this thread made and placed in the tree. A leaf's content (its text
// and children) is never touched again by the parse, so the two threads never write the
// same fields of it; its handles, and so its count, stay with this thread. The tags are
// read where they lie in the parse's buffers: a buffer left behind by the parse is kept
// until every batch that points into it is read, then used again.
class SLeafReaders {
 public:
  SLeafReaders();
  ~SLeafReaders();
  SLeafReaders(const SLeafReaders&) = delete;
  SLeafReaders& operator=(const SLeafReaders&) = delete;

  bool IsStarted() const { return !_workers.empty(); }
  // The tag of `length` units (its closing `/` left out) to be read into `element`.
  void Add(const ZYNAdmXmlElement& element, const unsigned short* tag, int length);
  // Waits until every leaf is read; throws what a reader threw.
  void Finish();
  // Takes `buffer`, of `capacity` units, which the tags added so far may point into.
  // False, the buffer not taken, where memory is short.
  bool Retire(unsigned short* buffer, int capacity);
  // A buffer of `capacity` units that every batch is done with, or null.
  unsigned short* Spare(int capacity);

 private:
  struct Leaf {
    const unsigned short* tag;
    int length;
  };
  struct Batch {
    std::vector<Leaf> leaves;
    std::vector<ZYNAdmXmlElement> elements;
    std::exception_ptr thrown;
    std::atomic<bool> read{false};
  };
  struct Retired {
    unsigned short* buffer;
    int capacity;
    size_t lastBatch;  // index in `_all` of the last batch that may point into it
  };

  static int sWorkerMain(void* readers);
  void _Submit();
  Batch* _Claim();
  void _Read(Batch& batch, ParseData& scratch);

  std::vector<std::unique_ptr<Batch>> _all;  // this thread's only
  std::unique_ptr<Batch> _filling;
  std::deque<Retired> _retired;  // this thread's only, oldest first
  size_t _readUpTo = 0;          // batches of `_all` known to be read, from the first
  QRTSpinLock _lock;
  std::vector<Batch*> _waiting;  // first in, first out, from `_taken` on
  size_t _taken = 0;
  std::atomic<size_t> _unread{0};
  std::atomic<bool> _stop{false};
  std::unique_ptr<ZYNSysSemaphore> _queued;  // one count for each batch queued
  std::unique_ptr<ZYNSysSemaphore> _read;    // one count for each batch a worker read
  std::unique_ptr<ParseData> _scratch;       // for the batches this thread reads itself
  std::vector<std::unique_ptr<QRTThreads>> _workers;
};

// The readers stop before the buffer their tags may point into goes.
ParseData::~ParseData() {
  readers.reset();
  delete[] buffer;
}

// Index of the first `unit` in [from, end), or -1. Values and quoted runs are searched
// eight units at a time where the machine has the instructions.
int sFindUnit(const unsigned short* units, int from, int end, unsigned short unit) {
  int i = from;
#if defined(__SSE2__)
  const __m128i wanted = _mm_set1_epi16(static_cast<short>(unit));
  for (; i + 8 <= end; i += 8) {
    const __m128i eight = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + i));
    const int mask = _mm_movemask_epi8(_mm_cmpeq_epi16(eight, wanted));
    if (mask != 0) return i + __builtin_ctz(static_cast<unsigned int>(mask)) / 2;
  }
#endif
  for (; i < end; ++i) {
    if (units[i] == unit) return i;
  }
  return -1;
}

// Widens the bytes below 0x80 from `block[i]` on into `out`, sixteen or eight at a time;
// gives the index of the first other byte, or `end`. The caller then takes the UTF-8 rules.
int sWidenAscii(const unsigned char* block, int i, int end, unsigned short* out) {
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  for (; i + 16 <= end; i += 16, out += 16) {
    const __m128i sixteen = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i));
    if (_mm_movemask_epi8(sixteen) != 0) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(sixteen, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(sixteen, zero));
  }
#endif
  for (; i + 8 <= end; i += 8, out += 8) {
    uint64_t eight;
    std::memcpy(&eight, block + i, 8);
    if ((eight & 0x8080808080808080ull) != 0) break;
    for (int k = 0; k < 8; ++k) out[k] = block[i + k];
  }
  for (; i < end && block[i] < 0x80; ++i) *out++ = block[i];
  return i;
}

bool sIsHexDigit(unsigned short unit) {
  return (unit >= '0' && unit <= '9') || (unit >= 'a' && unit <= 'f') || (unit >= 'A' && unit <= 'F');
}

unsigned short sHexValue(unsigned short unit) {
  if (unit <= '9') return static_cast<unsigned short>(unit - '0');
  if (unit <= 'F') return static_cast<unsigned short>(unit - 'A' + 10);
  return static_cast<unsigned short>(unit - 'a' + 10);
}

// Undoes the writer's `_xHHHH_` escapes, which make any text a legal name.
DString sDecodeName(const unsigned short* units, int length) {
  std::vector<unsigned short> out;
  out.reserve(static_cast<size_t>(length));
  for (int i = 0; i < length; ++i) {
    const unsigned short* at = units + i;
    if (at[0] == '_' && i + 6 < length && at[1] == 'x' && at[6] == '_' && sIsHexDigit(at[2]) && sIsHexDigit(at[3]) &&
        sIsHexDigit(at[4]) && sIsHexDigit(at[5])) {
      out.push_back(static_cast<unsigned short>((sHexValue(at[2]) << 12) | (sHexValue(at[3]) << 8) |
                                                (sHexValue(at[4]) << 4) | sHexValue(at[5])));
      i += 6;
      continue;
    }
    out.push_back(at[0]);
  }
  return DString(out.data(), static_cast<int>(out.size()));
}

unsigned int sHashUnits(const unsigned short* units, int length) {
  unsigned int hash = 0;
  for (int i = 0; i < length; ++i) hash = hash * 31 + units[i];
  // The low bits pick the bucket: they are made to depend on every unit.
  hash *= 0x9E3779B1u;
  return hash ^ (hash >> 16);
}

PooledEntry::PooledEntry(const unsigned short* units, int length, PooledEntry* nextEntry)
    : raw(units, length), decoded(), next(nextEntry), hash(sHashUnits(units, length)) {
  bool escaped = false;
  for (int i = 0; i < length && !escaped; ++i) escaped = units[i] == '_';
  decoded = escaped ? sDecodeName(units, length) : raw;
}

NamePool::~NamePool() {
  for (PooledEntry* entry : _buckets) {
    while (entry != nullptr) {
      PooledEntry* next = entry->next;
      delete entry;
      entry = next;
    }
  }
}

const DString& NamePool::Get(const unsigned short* units, int length) {
  const unsigned int hash = sHashUnits(units, length);
  const size_t bucket = hash & (_buckets.size() - 1);
  for (PooledEntry* entry = _buckets[bucket]; entry != nullptr; entry = entry->next) {
    if (entry->raw.Length() != length) continue;
    const unsigned short* raw = entry->raw.ConvertToUCChar();
    int same = 0;
    while (same < length && raw[same] == units[same]) ++same;
    if (same == length) return entry->decoded;
  }
  PooledEntry* entry = new PooledEntry(units, length, _buckets[bucket]);
  _buckets[bucket] = entry;
  if (++_count > 2 * _buckets.size()) _Grow();
  return entry->decoded;
}

void NamePool::_Grow() {
  std::vector<PooledEntry*> grown(2 * _buckets.size(), nullptr);
  for (PooledEntry* entry : _buckets) {
    while (entry != nullptr) {
      PooledEntry* next = entry->next;
      const size_t bucket = entry->hash & (grown.size() - 1);
      entry->next = grown[bucket];
      grown[bucket] = entry;
      entry = next;
    }
  }
  _buckets.swap(grown);
}

void PartnerIndex::Build(const unsigned short* tag, int length) {
  if (_seenStamp.empty()) {
    _seenStamp.assign(65536, 0);
    _seenAt.assign(65536, 0);
  }
  if (++_stamp == 0) {  // wrapped: old stamps would read as current
    std::fill(_seenStamp.begin(), _seenStamp.end(), 0);
    _stamp = 1;
  }
  _next.resize(static_cast<size_t>(length));
  for (int i = length - 1; i >= 0; --i) {
    const unsigned short unit = tag[i];
    _next[static_cast<size_t>(i)] = _seenStamp[unit] == _stamp ? _seenAt[unit] : -1;
    _seenStamp[unit] = _stamp;
    _seenAt[unit] = i;
  }
  _tag = tag;
}

// Stores up to `count` units decoded from the stream's bytes, taken as UTF-8 whatever the
// declaration says. A sequence cut by the end of a block fetches all its missing bytes, so
// it decodes whole wherever the block ends; one cut by the end of the input is dropped.
// Gives the units stored, -1 for none at the end of the input, -2 on a read fault.
int sFillBuffer(unsigned short* destination, int count, ZYNAdmInputStream& stream) {
  if (count <= 0) return -1;
  // Room behind the block for the missing bytes of a cut sequence.
  unsigned char block[S_blockSize + 8];
  int stored = 0;
  while (stored < count) {
    const int wanted = count - stored < S_blockSize ? count - stored : S_blockSize;
    int got = stream.Read(block, wanted);
    if (got < 0) return -2;
    if (got == 0) break;
    if (got > wanted) got = wanted;
    for (int i = 0; i < got; ++i) {
      const int plain = sWidenAscii(block, i, got, destination + stored);
      stored += plain - i;
      i = plain;
      if (i == got) break;
      const unsigned int lead = block[i];
      if (lead < 0xC0) {
        destination[stored++] = static_cast<unsigned short>(lead);
        continue;
      }
      const int extra = ZYNbytesFromUTF8[lead];
      const int last = i + extra;
      while (last >= got) {
        const int asked = last + 1 - got;
        const int more = stream.Read(block + got, asked);
        if (more < 0) return -2;
        if (more == 0) return stored > 0 ? stored : -1;
        got += more < asked ? more : asked;
      }
      unsigned int code = 0;
      for (int k = 0; k < extra; ++k) code = (code + block[i + k]) << 6;
      code += block[last];
      code -= ZYNoffsetsFromUTF8[extra];
      destination[stored++] = code > 0xFFFF ? 0x3F : static_cast<unsigned short>(code);
      i = last;
    }
  }
  return stored > 0 ? stored : -1;
}

// Keeps the units from `keepFrom` on, at the buffer's start, and fills the room behind
// them. The buffer doubles only when they take more than half of it, so moves stay cheap
// and growth is amortised. Gives the shift of every index, -1 at the end of the input, or
// -2 when memory or the stream fails.
int sRefill(ParseData& data, int keepFrom, ZYNAdmInputStream& stream) {
  const int remaining = data.end - keepFrom;
  const bool shared = data.leavesInBuffer;  // the tags in it are still to be read elsewhere
  if (remaining > data.capacity / 2 || shared) {
    long long grown = remaining > data.capacity / 2 ? 2LL * data.capacity : data.capacity;
    if (shared && grown < S_sharedCapacity) grown = S_sharedCapacity;
    if (grown > 0x3FFFFFFF) return -2;  // beyond what an int index can hold
    unsigned short* buffer = shared ? data.readers->Spare(static_cast<int>(grown)) : nullptr;
    if (buffer == nullptr) buffer = new (std::nothrow) unsigned short[static_cast<size_t>(grown)];
    if (buffer == nullptr) return -2;
    std::memcpy(buffer, data.buffer + keepFrom, static_cast<size_t>(remaining) * 2);
    if (!shared) {
      delete[] data.buffer;
    } else if (!data.readers->Retire(data.buffer, data.capacity)) {
      delete[] buffer;
      return -2;
    }
    data.buffer = buffer;
    data.capacity = static_cast<int>(grown);
    data.leavesInBuffer = false;
  } else if (keepFrom > 0) {
    std::memmove(data.buffer, data.buffer + keepFrom, static_cast<size_t>(remaining) * 2);
  }
  data.partners.Invalidate();
  data.end = remaining;
  const int got = sFillBuffer(data.buffer + remaining, data.capacity - remaining, stream);
  if (got < 0) return got == -1 ? -1 : -2;
  data.end += got;
  return keepFrom;
}

struct Entity {
  const char* text;
  int length;
  unsigned short unit;
};

const Entity S_textEntities[] = {{"&gt;", 4, '>'}, {"&lt;", 4, '<'}, {"&amp;", 5, '&'}, {"&quot;", 6, '"'}};
const Entity S_attributeEntities[] = {{"&gt;", 4, '>'},   {"&lt;", 4, '<'}, {"&amp;", 5, '&'},
                                      {"&quot;", 6, '"'}, {"&#x9;", 5, 9},  {"&#xA;", 5, 10},
                                      {"&#xa;", 5, 10},   {"&#xD;", 5, 13}, {"&#xd;", 5, 13}};

bool sMatches(const unsigned short* units, int length, const Entity& entity) {
  if (entity.length > length) return false;
  for (int k = 0; k < entity.length; ++k) {
    if (units[k] != static_cast<unsigned char>(entity.text[k])) return false;
  }
  return true;
}

// Replaces the entities of `table` left to right, in one pass, so that "&amp;lt;" gives
// "&lt;"; any other `&` stays as it is.
// Appends units[0, length) to `work` with the entities of `table` decoded; `ampersand`:
// where the first `&` stands.
template <size_t N>
void sAppendDecoded(const unsigned short* units, int length, int ampersand, const Entity (&table)[N],
                    std::vector<unsigned short>& work) {
  work.insert(work.end(), units, units + ampersand);
  for (int i = ampersand; i < length; ++i) {
    unsigned short unit = units[i];
    if (unit == '&') {
      for (const Entity& entity : table) {
        if (!sMatches(units + i, length - i, entity)) continue;
        unit = entity.unit;
        i += entity.length - 1;
        break;
      }
    }
    work.push_back(unit);
  }
}

template <size_t N>
DString sDecodeEntities(const unsigned short* units, int length, const Entity (&table)[N],
                        std::vector<unsigned short>& work) {
  const int found = sFindUnit(units, 0, length, '&');
  if (found < 0) return DString(units, length);
  work.clear();
  sAppendDecoded(units, length, found, table, work);
  return DString(work.data(), static_cast<int>(work.size()));
}

// As sDecodeEntities for an attribute value, but the value stays in the tag where it
// holds no `&`, and is otherwise appended to `work`. Gives the attribute with `units`
// null and the offset in `work` in `offset` in the latter case.
ZYNAdmXmlElement::AttributeUnits sValueUnits(const unsigned short* units, int length, std::vector<unsigned short>& work,
                                             int& offset) {
  ZYNAdmXmlElement::AttributeUnits value = {nullptr, units, length};
  offset = -1;
  const int ampersand = sFindUnit(units, 0, length, '&');
  if (ampersand < 0) return value;
  offset = static_cast<int>(work.size());
  sAppendDecoded(units, length, ampersand, S_attributeEntities, work);
  value.units = nullptr;
  value.length = static_cast<int>(work.size()) - offset;
  return value;
}

// Text that opens with a line end is layout when only tabs and blanks follow; any other
// text, even one opening with a blank or a carriage return, keeps every unit.
DString sDecodeText(const unsigned short* units, int length, std::vector<unsigned short>& work) {
  int first = 0;
  if (units[0] == 10) {
    first = 1;
    while (first < length && (units[first] == 9 || units[first] == 32)) ++first;
    if (first == length) return DString();
  }
  return sDecodeEntities(units + first, length - first, S_textEntities, work);
}

// The closing delimiter of a value whose opening one is searched from `from`: the first
// unit above 0x20 that occurs again further in the tag serves. Gives -1 when none does,
// and then no later attribute of the tag can be read either, since every unit behind this
// `=` (a later `=` included) occurs only once.
int sFindValueEnd(ParseData& data, const unsigned short* tag, int from, int length, int& open) {
  for (open = from; open < length && tag[open] <= 0x20; ++open) {
  }
  if (open >= length) return -1;
  if (!data.partners.IsBuiltFor(tag)) {
    const int close = sFindUnit(tag, open + 1, length, tag[open]);
    if (close >= 0) return close;
    // A short rest is searched directly; the index isn't worth its tables there.
    if (length - open <= S_directSearchLimit) {
      for (++open; open < length; ++open) {
        if (tag[open] <= 0x20) continue;
        const int partner = sFindUnit(tag, open + 1, length, tag[open]);
        if (partner >= 0) return partner;
      }
      return -1;
    }
    data.partners.Build(tag, length);
  }
  for (; open < length; ++open) {
    if (tag[open] > 0x20 && data.partners.NextOf(open) >= 0) return data.partners.NextOf(open);
  }
  return -1;
}

// Reads `name=<d>value<d>` pairs where the name ends at `=` or white space, the value
// belongs to the first `=` behind the name, and any unit can delimit it. The unit behind a
// closing delimiter is always skipped. Once no `=` or no delimiter can be found, nothing
// later in the tag can be found either, so the list ends there.
// The attributes are gathered first and given to the element in one go.
void sReadAttributes(ParseData& data, const unsigned short* tag, int position, int length, ZYNAdmXmlElement& element) {
  data.partners.Invalidate();
  data.attributes.clear();
  data.inWork.clear();
  data.work.clear();
  while (position < length) {
    while (position < length && tag[position] <= 0x20) ++position;
    if (position + 1 >= length) break;
    const int nameStart = position;
    int nameEnd = nameStart + 1;
    while (nameEnd < length && tag[nameEnd] != '=' && tag[nameEnd] > 0x20) ++nameEnd;
    const int equals = sFindUnit(tag, nameEnd, length, '=');
    if (equals < 0 || equals == length - 1) break;
    int open = 0;
    const int close = sFindValueEnd(data, tag, equals + 1, length, open);
    if (close < 0) break;
    int offset = -1;
    ZYNAdmXmlElement::AttributeUnits attribute = sValueUnits(tag + open + 1, close - open - 1, data.work, offset);
    attribute.name = &data.pool.Get(tag + nameStart, nameEnd - nameStart);
    data.attributes.push_back(attribute);
    data.inWork.push_back(offset);
    position = close + 2;
  }
  if (data.attributes.empty()) return;
  for (size_t i = 0; i < data.attributes.size(); ++i) {
    if (data.inWork[i] >= 0) data.attributes[i].units = data.work.data() + data.inWork[i];
  }
  element.SetAttributes(data.attributes.data(), static_cast<int>(data.attributes.size()));
}

// The name and attributes of a start tag of `length` units (a closing `/` left out).
void sReadTag(ParseData& data, const unsigned short* tag, int length, ZYNAdmXmlElement& element) {
  int nameEnd = 0;
  while (nameEnd < length && tag[nameEnd] > 0x20) ++nameEnd;
  sReadAttributes(data, tag, nameEnd + 1, length, element);
  element.SetName(data.pool.Get(tag, nameEnd));
}

// Whether the leaf at hand goes to the readers: once enough were read here to make
// threads worth starting, and where they could be.
bool sDeferLeaf(ParseData& data) {
  if (data.leaves > S_leavesAlone) return data.readers != nullptr;
  if (++data.leaves <= S_leavesAlone || QRTThreads::GetProcessorsNumber() < 2) return false;
  data.readers.reset(new SLeafReaders());
  if (!data.readers->IsStarted()) data.readers.reset();
  return data.readers != nullptr;
}

// A start tag of `length` units at `tag`: a new element on the stack, closed at once when
// the tag ends with `/`.
void sStartElement(ParseData& data, const unsigned short* tag, int length) {
  if (data.top + 1 >= static_cast<int>(data.stack.size())) data.stack.resize(2 * data.stack.size());
  const int parent = data.top;
  ZYNAdmXmlElement& element = data.stack[static_cast<size_t>(++data.top)];
  element.Reset();
  const bool selfClosing = length > 0 && tag[length - 1] == '/';
  if (selfClosing) --length;
  if (selfClosing && sDeferLeaf(data)) {
    element.SetName(DString());  // a body of its own, for the reader to fill
    data.readers->Add(element, tag, length);
    data.leavesInBuffer = true;
    if (parent >= 0) data.stack[static_cast<size_t>(parent)].AddChild(element);
    data.top = parent;
    return;
  }
  sReadTag(data, tag, length, element);
  if (!selfClosing) return;
  if (parent >= 0) data.stack[static_cast<size_t>(parent)].AddChild(element);
  data.top = parent;
}

// An element reaches its parent only when it closes. The name isn't compared. A stray end
// tag with nothing open leaves the stack empty rather than reaching below it.
void sEndElement(ParseData& data) {
  if (data.top > 0) {
    data.stack[static_cast<size_t>(data.top - 1)].AddChild(data.stack[static_cast<size_t>(data.top)]);
  }
  if (data.top >= 0) --data.top;
}

// Whether the `>` at `index` ends the tag that starts at `tagStart`. A `<!` tag shorter
// than 5 units swallows the next `>`, and a comment ends only at `-->`.
bool sEndsTag(const unsigned short* buffer, int tagStart, int index) {
  if (buffer[tagStart] != '!') return true;
  if (index - tagStart < 5) return false;
  if (buffer[tagStart + 1] != '-' || buffer[tagStart + 2] != '-') return true;
  return buffer[index - 1] == '-' && buffer[index - 2] == '-';
}

bool sIsComment(const unsigned short* buffer, int tagStart, int index) {
  return index - tagStart >= 3 && buffer[tagStart] == '!' && buffer[tagStart + 1] == '-' && buffer[tagStart + 2] == '-';
}

// Scans from `scan` for the unquoted `>` that ends the tag; quotes mean nothing in a
// comment. `quote` carries an open quote across refills. Gives the index of the `>`, or -1
// when the data ends first.
int sScanTag(const ParseData& data, int tagStart, int scan, unsigned short& quote) {
  const unsigned short* buffer = data.buffer;
  for (; scan < data.end; ++scan) {
    if (quote != 0) {
      scan = sFindUnit(buffer, scan, data.end, quote);
      if (scan < 0) return -1;
      quote = 0;
      continue;
    }
    const unsigned short unit = buffer[scan];
    if (unit == '>') {
      if (sEndsTag(buffer, tagStart, scan)) return scan;
      continue;
    }
    if ((unit == '"' || unit == '\'') && !sIsComment(buffer, tagStart, scan)) quote = unit;
  }
  return -1;
}

SLeafReaders::SLeafReaders()
    : _queued(ZYNSysSemaphore::ZYNSysCreateSemaphore(-1, 0, 0)),
      _read(ZYNSysSemaphore::ZYNSysCreateSemaphore(-1, 0, 0)),
      _scratch(new ParseData()) {
  if (!_queued || !_read) return;
  QRTStartWorkers("xml leaves", &SLeafReaders::sWorkerMain, this, QRTThreads::GetProcessorsNumber() - 1, _workers);
}

SLeafReaders::~SLeafReaders() {
  _stop.store(true, std::memory_order_release);
  for (size_t i = 0; i < _workers.size(); ++i) _queued->Signal();
  for (std::unique_ptr<QRTThreads>& worker : _workers) worker->Join();
  for (Retired& retired : _retired) delete[] retired.buffer;
}

void SLeafReaders::Add(const ZYNAdmXmlElement& element, const unsigned short* tag, int length) {
  if (!_filling) {
    _filling.reset(new Batch());
    _filling->leaves.reserve(S_leafBatch);
    _filling->elements.reserve(S_leafBatch);
  }
  Batch& batch = *_filling;
  batch.leaves.push_back(Leaf{tag, length});
  batch.elements.push_back(element);
  if (batch.elements.size() >= S_leafBatch) _Submit();
}

bool SLeafReaders::Retire(unsigned short* buffer, int capacity) {
  // The batch filling now is the last that may point into it; it gets the next index.
  size_t last = _filling ? _all.size() : (_all.empty() ? 0 : _all.size() - 1);
  try {
    _retired.push_back(Retired{buffer, capacity, last});
  } catch (std::bad_alloc const&) {
    return false;
  }
  return true;
}

unsigned short* SLeafReaders::Spare(int capacity) {
  while (_readUpTo < _all.size() && _all[_readUpTo]->read.load(std::memory_order_acquire)) ++_readUpTo;
  while (!_retired.empty() && _retired.front().lastBatch < _readUpTo) {
    Retired done = _retired.front();
    _retired.pop_front();
    if (done.capacity == capacity) return done.buffer;
    delete[] done.buffer;
  }
  return nullptr;
}

void SLeafReaders::_Submit() {
  if (!_filling) return;
  Batch* batch = _filling.get();
  _all.push_back(std::move(_filling));
  _unread.fetch_add(1, std::memory_order_relaxed);
  size_t backlog;
  {
    QRTSpinLockScope scope(_lock);
    _waiting.push_back(batch);
    backlog = _waiting.size() - _taken;
  }
  _queued->Signal();
  // Readers that fall behind would let the units pile up: this thread reads one too.
  if (backlog <= 2 * _workers.size() + 2) return;
  long long started = ZYNInsSerialShare::Start();
  if (Batch* mine = _Claim()) _Read(*mine, *_scratch);
  ZYNInsSerialShare::AddShareableSince(started);
}

SLeafReaders::Batch* SLeafReaders::_Claim() {
  QRTSpinLockScope scope(_lock);
  if (_taken == _waiting.size()) return nullptr;
  return _waiting[_taken++];
}

void SLeafReaders::_Read(Batch& batch, ParseData& scratch) {
  try {
    for (size_t i = 0; i < batch.elements.size(); ++i) {
      sReadTag(scratch, batch.leaves[i].tag, batch.leaves[i].length, batch.elements[i]);
    }
  } catch (...) {
    batch.thrown = std::current_exception();
  }
  batch.read.store(true, std::memory_order_release);
  _unread.fetch_sub(1, std::memory_order_release);
}

int SLeafReaders::sWorkerMain(void* argument) {
  SLeafReaders& readers = *static_cast<SLeafReaders*>(argument);
  QRTWidenThreadHeap(4 << 20);  // the attributes read
  // A reader without the memory for its own state leaves its batches to the others,
  // the parsing thread last of all.
  std::unique_ptr<ParseData> scratch;
  try {
    scratch.reset(new ParseData());
  } catch (std::bad_alloc const&) {
    return 0;
  }
  for (;;) {
    readers._queued->Wait();
    if (readers._stop.load(std::memory_order_acquire)) return 0;
    if (Batch* batch = readers._Claim()) {
      readers._Read(*batch, *scratch);
      readers._read->Signal();
    }
  }
}

void SLeafReaders::Finish() {
  _Submit();
  long long started = ZYNInsSerialShare::Start();
  while (Batch* mine = _Claim()) _Read(*mine, *_scratch);
  ZYNInsSerialShare::AddShareableSince(started);
  while (_unread.load(std::memory_order_acquire) > 0) _read->Wait();
  for (std::unique_ptr<Batch>& batch : _all) {
    if (batch->thrown) std::rethrow_exception(batch->thrown);
  }
}

void sHandleTag(ParseData& data, int tagStart, int length) {
  const unsigned short* tag = data.buffer + tagStart;
  const unsigned short first = length > 0 ? tag[0] : '>';
  if (first == '?' || first == '!') return;
  if (first == '/') {
    sEndElement(data);
    return;
  }
  sStartElement(data, tag, length);
}

}  // namespace

int ZYNAdmXmlParser::Parse(ZYNAdmInputStream& stream, ZYNAdmXmlElement& root) {
  if (stream.Open() == 0) return 0;
  ParseData data;
  data.buffer = new (std::nothrow) unsigned short[S_initialCapacity];
  if (data.buffer == nullptr) {
    stream.Close();
    return 0;
  }
  data.capacity = S_initialCapacity;
  data.end = sFillBuffer(data.buffer, data.capacity, stream);
  if (data.end < 0) {
    stream.Close();
    return 0;
  }

  int textStart = 0;
  int scan = 0;
  for (;;) {
    while (scan < data.end && data.buffer[scan] != '<') ++scan;
    if (scan == data.end) {
      const int shift = sRefill(data, textStart, stream);
      if (shift == -1) break;
      if (shift < 0) {
        stream.Close();
        return 0;
      }
      textStart -= shift;
      scan -= shift;
      continue;
    }

    // Only the first piece of text that decodes to something becomes the value.
    if (scan > textStart && data.top >= 0 && data.stack[static_cast<size_t>(data.top)].GetValueRef().IsEmpty()) {
      const DString text = sDecodeText(data.buffer + textStart, scan - textStart, data.work);
      if (!text.IsEmpty()) data.stack[static_cast<size_t>(data.top)].SetValue(text);
    }

    int tagStart = scan + 1;
    int tagScan = tagStart;
    unsigned short quote = 0;
    int tagEnd = -1;
    while ((tagEnd = sScanTag(data, tagStart, tagScan, quote)) < 0) {
      tagScan = data.end;  // all the data so far is scanned
      const int shift = sRefill(data, tagStart, stream);
      if (shift < 0) {  // the input ended inside a tag
        stream.Close();
        return 0;
      }
      tagStart -= shift;
      tagScan -= shift;
    }
    sHandleTag(data, tagStart, tagEnd - tagStart);
    textStart = scan = tagEnd + 1;
  }

  if (data.readers) data.readers->Finish();
  root.Assign(data.stack[0]);
  stream.Close();
  return 1;
}
