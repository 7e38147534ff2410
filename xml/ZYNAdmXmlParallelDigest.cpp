// ZYNAdmXmlParallelDigest.cpp - large child lists written by worker threads, range by
// range, and digested in document order between the parts of the tree around them.
#include "ZYNAdmXmlParallelDigest.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "QRTThreads.h"
#include "QRTWorkers.h"
#include "ZYNAdmOutputStream.h"
#include "ZYNAdmSHA256.h"
#include "ZYNAdmStringOutput.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlOutputFormatter.h"
#include "ZYNAdmXmlParser.h"
#include "ZYNInsSerialShare.h"
#include "ZYNSysSemaphore.h"

namespace {

// A list this long is cut into ranges; a tree with fewer such children in all is written
// by one thread.
const size_t S_bigList = 4096;
const size_t S_worthIt = 8192;
static_assert(S_worthIt >= S_bigList, "a list counted up to S_worthIt is known to be long or not");
const size_t S_rangeSize = 2048;
const int S_maxDepth = 64;
// Ranges written ahead of the digest, per worker: keeps the memory bounded.
const size_t S_aheadPerWorker = 4;
const wchar_t S_SlotName[] = L"ZYNAdmXmlParallelDigestSlot";
const char S_Slot[] = "<ZYNAdmXmlParallelDigestSlot/>";

// The children of `element`, counted up to `most`: past it, only that a list is long
// matters, and a volume's list of a million would be gone through once more for nothing.
size_t sChildCount(const ZYNAdmXmlElement& element, size_t most) {
  size_t count = 0;
  void* it = element.GetChildren();
  while (it != nullptr && count < most) {
    element.GetChild(it);
    ++count;
  }
  return count;
}

// A new element with the name, text and attributes of `element` and no children.
ZYNAdmXmlElement sBareCopy(const ZYNAdmXmlElement& element) {
  ZYNAdmXmlElement copy(element.GetNameRef());
  if (!element.GetValueRef().IsEmpty()) copy.SetValue(element.GetValueRef());
  void* it = element.GetAttributes();
  const DString* value = nullptr;
  while (const DString* name = element.NextAttribute(it, value)) copy.SetAttributeValue(*name, *value);
  return copy;
}

// The tree with each long child list replaced by one slot; `lists` gets those lists in
// document order, `cut` their children (each list counted up to S_worthIt). Parts with no
// long list below them are shared, not copied.
ZYNAdmXmlElement sSkeleton(const ZYNAdmXmlElement& element, int depth, std::vector<const ZYNAdmXmlElement*>& lists,
                           size_t& cut) {
  if (element.IsEmpty() || depth > S_maxDepth) return element;
  size_t count = sChildCount(element, S_worthIt);
  if (count >= S_bigList) {
    ZYNAdmXmlElement stand = sBareCopy(element);
    stand.AddChild(ZYNAdmXmlElement(DString(S_SlotName)));
    lists.push_back(&element);
    cut += count;
    return stand;
  }
  std::vector<ZYNAdmXmlElement> children;
  bool changed = false;
  void* it = element.GetChildren();
  while (it != nullptr) {
    const ZYNAdmXmlElement& child = element.GetChild(it);
    children.push_back(sSkeleton(child, depth + 1, lists, cut));
    changed = changed || ZYNAdmXmlElement::_BodyOf(children.back()) != ZYNAdmXmlElement::_BodyOf(child);
  }
  if (!changed) return element;
  ZYNAdmXmlElement copy = sBareCopy(element);
  for (const ZYNAdmXmlElement& child : children) copy.AddChild(child);
  return copy;
}

// The ranges of all long lists, written by the workers and by the digesting thread.
class SRanges {
 public:
  typedef ZYNAdmXmlOutputFormatter::State Layout;
  // With `layout`, each range is also laid out on its writing thread, from the state of
  // `assumed` for its list: a range starts with a `<` behind the `>` of what came before,
  // at the depth of its list.
  SRanges(std::vector<const ZYNAdmXmlElement*> const& lists, int workers, bool throwOnMemory,
          ZYNAdmXmlOutputFormatter* layout = nullptr, std::vector<Layout> const& assumed = std::vector<Layout>());
  ~SRanges();
  // Digests the ranges of list `list` in order; false when one can't be written.
  bool Digest(size_t list, ZYNAdmOutputStream& digest);

 private:
  struct Range {
    size_t list;
    size_t first;
    size_t count;
    std::string bytes;
    std::string laid;  // `bytes` laid out from the state assumed for the list
    Layout laidEnd{0, 0, 0};
    bool written = false;
    bool outOfMemory = false;
    std::atomic<bool> done{false};
  };

  static int sWorkerMain(void* ranges);
  bool _Feed(Range& range, ZYNAdmOutputStream& digest);
  void _Work();
  bool _Claim(size_t& index, bool wait);
  void _Write(Range& range);
  void _LayOut(Range& range);

  std::vector<std::vector<const ZYNAdmXmlElement*>> _children;  // of each list
  std::unique_ptr<Range[]> _ranges;
  size_t _count = 0;
  std::atomic<size_t> _next{0};
  std::atomic<size_t> _fed{0};
  std::atomic<bool> _stop{false};
  size_t _ahead;
  bool _throwOnMemory;  // a range that ran out of memory is thrown, not a failed write
  ZYNAdmXmlOutputFormatter* _layout;
  std::vector<Layout> _assumed;
  std::unique_ptr<ZYNSysSemaphore> _written;  // one count for each range a worker wrote
  std::unique_ptr<ZYNSysSemaphore> _room;     // one count for each range digested
  std::vector<std::unique_ptr<QRTThreads>> _workers;
};

SRanges::SRanges(std::vector<const ZYNAdmXmlElement*> const& lists, int workers, bool throwOnMemory,
                 ZYNAdmXmlOutputFormatter* layout, std::vector<Layout> const& assumed)
    : _ahead(S_aheadPerWorker * static_cast<size_t>(workers)),
      _throwOnMemory(throwOnMemory),
      _layout(layout),
      _assumed(assumed) {
  std::vector<size_t> firsts;
  for (const ZYNAdmXmlElement* list : lists) {
    std::vector<const ZYNAdmXmlElement*> children;
    void* it = list->GetChildren();
    while (it != nullptr) children.push_back(&list->GetChild(it));
    _count += (children.size() + S_rangeSize - 1) / S_rangeSize;
    _children.push_back(std::move(children));
  }
  _ranges.reset(new Range[_count]);
  size_t at = 0;
  for (size_t list = 0; list < _children.size(); ++list) {
    for (size_t first = 0; first < _children[list].size(); first += S_rangeSize, ++at) {
      _ranges[at].list = list;
      _ranges[at].first = first;
      _ranges[at].count = std::min(S_rangeSize, _children[list].size() - first);
    }
  }
  _written.reset(ZYNSysSemaphore::ZYNSysCreateSemaphore(-1, 0, 0));
  _room.reset(ZYNSysSemaphore::ZYNSysCreateSemaphore(-1, 0, 0));
  if (!_written || !_room) return;
  QRTStartWorkers("xml digest", &SRanges::sWorkerMain, this, workers, _workers);
}

SRanges::~SRanges() {
  _stop.store(true, std::memory_order_release);
  for (size_t i = 0; i < _workers.size(); ++i) _room->Signal();
  for (std::unique_ptr<QRTThreads>& worker : _workers) worker->Join();
}

int SRanges::sWorkerMain(void* ranges) {
  static_cast<SRanges*>(ranges)->_Work();
  return 0;
}

// The next range to write, unless it lies too far ahead of the digest: a worker then
// waits for room, the digesting thread never does.
bool SRanges::_Claim(size_t& index, bool wait) {
  for (;;) {
    if (_stop.load(std::memory_order_acquire)) return false;
    size_t next = _next.load(std::memory_order_relaxed);
    if (next >= _count) return false;
    if (wait && next >= _fed.load(std::memory_order_acquire) + _ahead) {
      _room->Wait();
      continue;
    }
    if (_next.compare_exchange_weak(next, next + 1, std::memory_order_relaxed)) {
      index = next;
      return true;
    }
  }
}

void SRanges::_Work() {
  size_t index = 0;
  while (_Claim(index, true)) {
    _Write(_ranges[index]);
    _written->Signal();
  }
}

// The children of one range inside a stand-in element, whose own bytes are cut off.
void SRanges::_Write(Range& range) {
  // A range that ran out of memory is not written, and the seal fails.
  try {
    ZYNAdmStringOutput out;
    if (ZYNAdmXmlParser::GetXmlOfEach(&_children[range.list][range.first], range.count, out) != 0) {
      range.bytes.swap(out.bytes);
      range.written = true;
    }
  } catch (std::bad_alloc const&) {
    range.written = false;
    range.outOfMemory = true;
  }
  if (range.written && _layout != nullptr && !range.bytes.empty() && range.bytes[0] == '<') _LayOut(range);
  range.done.store(true, std::memory_order_release);
}

// A range laid out ahead; without the memory for it, the formatter lays it out in turn.
void SRanges::_LayOut(Range& range) {
  try {
    ZYNAdmStringOutput laid;
    ZYNAdmXmlOutputFormatter formatter(laid);
    formatter.SetState(_assumed[range.list]);
    int size = static_cast<int>(range.bytes.size());
    if (formatter.Write(reinterpret_cast<unsigned char*>(&range.bytes[0]), size) == size) {
      range.laid.swap(laid.bytes);
      range.laidEnd = formatter.GetState();
    }
  } catch (std::bad_alloc const&) {
    std::string().swap(range.laid);
  }
}

bool SRanges::Digest(size_t list, ZYNAdmOutputStream& digest) {
  for (size_t index = _fed.load(); index < _count && _ranges[index].list == list; index = _fed.load()) {
    Range& range = _ranges[index];
    while (!range.done.load(std::memory_order_acquire)) {
      // Rather than wait for a worker's range, write one nobody has taken yet, no further
      // ahead than a worker may go: on few cores this thread is half the writers.
      size_t mine = 0;
      if (_next.load(std::memory_order_relaxed) < index + _ahead && _Claim(mine, false)) {
        long long started = ZYNInsSerialShare::Start();
        _Write(_ranges[mine]);
        ZYNInsSerialShare::AddShareableSince(started);
        continue;
      }
      _written->Wait();
    }
    if (!range.written) {
      if (range.outOfMemory && _throwOnMemory) throw std::bad_alloc();
      return false;
    }
    if (!_Feed(range, digest)) return false;
    std::string().swap(range.bytes);
    std::string().swap(range.laid);
    _fed.fetch_add(1, std::memory_order_release);
    _room->Signal();
  }
  return true;
}

// A range laid out ahead goes to the target as it is where the layout stands where it
// was assumed to: the depth, and a `>` last. What came before that `>` plays no part, as
// the range opens with a `<`.
bool SRanges::_Feed(Range& range, ZYNAdmOutputStream& digest) {
  if (_layout != nullptr && !range.laid.empty()) {
    Layout now = _layout->GetState();
    Layout assumed = _assumed[range.list];
    if (now.lastByte == assumed.lastByte && now.depth == assumed.depth) {
      int size = static_cast<int>(range.laid.size());
      if (_layout->GetTarget().Write(reinterpret_cast<unsigned char*>(&range.laid[0]), size) != size) return false;
      _layout->SetState(range.laidEnd);
      return true;
    }
  }
  int size = static_cast<int>(range.bytes.size());
  return size == 0 || digest.Write(reinterpret_cast<unsigned char*>(&range.bytes[0]), size) == size;
}

// The layout at each slot of `frame`, as far as the frame alone tells: what a list
// between two slots does to it is taken to be nothing.
std::vector<SRanges::Layout> sLayoutsAtSlots(std::string const& frame, std::vector<size_t> const& slots) {
  std::vector<SRanges::Layout> layouts;
  ZYNAdmStringOutput scratch;
  ZYNAdmXmlOutputFormatter formatter(scratch);
  formatter.Open();
  size_t from = 0;
  for (size_t slot : slots) {
    std::string part = frame.substr(from, slot - from);
    if (!part.empty()) formatter.Write(reinterpret_cast<unsigned char*>(&part[0]), static_cast<int>(part.size()));
    scratch.bytes.clear();
    layouts.push_back(formatter.GetState());
    from = slot + std::strlen(S_Slot);
  }
  return layouts;
}

}  // namespace

static int sWrite(const ZYNAdmXmlElement& element, ZYNAdmOutputStream& digest, bool throwOnMemory,
                  ZYNAdmXmlOutputFormatter* layout = nullptr) {
  int workers = QRTThreads::GetProcessorsNumber() - 1;
  std::vector<const ZYNAdmXmlElement*> lists;
  size_t cut = 0;
  ZYNAdmXmlElement skeleton = workers < 1 ? element : sSkeleton(element, 0, lists, cut);
  if (cut < S_worthIt) return ZYNAdmXmlParser::GetXml(element, digest);

  ZYNAdmStringOutput frame;
  if (ZYNAdmXmlParser::GetXml(skeleton, frame) == 0) return 0;
  // The frame holds one slot for each list, in order; a tree of its own slot elements
  // would hold more, and takes the plain road.
  std::vector<size_t> slots;
  for (size_t at = frame.bytes.find(S_Slot); at != std::string::npos; at = frame.bytes.find(S_Slot, at + 1)) {
    slots.push_back(at);
  }
  if (slots.size() != lists.size()) return ZYNAdmXmlParser::GetXml(element, digest);

  SRanges ranges(lists, workers, throwOnMemory, layout,
                 layout != nullptr ? sLayoutsAtSlots(frame.bytes, slots) : std::vector<SRanges::Layout>());
  if (digest.Open() == 0) return 0;
  unsigned char* bytes = reinterpret_cast<unsigned char*>(&frame.bytes[0]);
  size_t from = 0;
  for (size_t list = 0; list <= lists.size(); ++list) {
    size_t to = list < lists.size() ? slots[list] : frame.bytes.size();
    int size = static_cast<int>(to - from);
    if (size > 0 && digest.Write(bytes + from, size) != size) return 0;
    if (list == lists.size()) break;
    if (!ranges.Digest(list, digest)) return 0;
    from = to + std::strlen(S_Slot);
  }
  return digest.Close() != 0 ? 1 : 0;
}

int ZYNAdmXmlParallelDigest::GetXml(const ZYNAdmXmlElement& element, ZYNAdmSHA256& digest) {
  return sWrite(element, digest, false);
}

int ZYNAdmXmlParallelDigest::Write(const ZYNAdmXmlElement& element, ZYNAdmOutputStream& stream) {
  return sWrite(element, stream, true);
}

int ZYNAdmXmlParallelDigest::Write(const ZYNAdmXmlElement& element, ZYNAdmXmlOutputFormatter& formatter) {
  return sWrite(element, formatter, true, &formatter);
}
