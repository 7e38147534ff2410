// The scan of a media into its element tree: one CD element per volume, one File element
// per regular file, sorted by path.
//
// Each folder is enumerated once. The walk in the order of the tree needs three
// enumerations of every folder (the count of the volume's files, a probe of each folder
// and the walk itself); their only other effect is the error records they leave, so the
// folder is read once into memory and those records are pushed where the other two
// enumerations would have pushed them.
//
// Folders are opened relative to their parent and kept open, so that each file is
// looked at and read by its name in its folder. As soon as a folder is listed, a pool
// starts digesting its files on every core; the walk, which can only begin once the
// whole volume is listed, takes the digests back in its own order.
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <exception>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "DStrings.h"
#include "QRTSpinLock.h"
#include "QRTThreads.h"
#include "QRTWorkers.h"
#include "ZYNAdmError.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNInsDigestPool.h"
#include "ZYNInsDir.h"
#include "ZYNInsFindFile.h"
#include "ZYNInsFindings.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMediaGeometry.h"
#include "ZYNInsMsg.h"
#include "ZYNInsSerialShare.h"
#include "ZYNInsSignature.h"
#include "ZYNSysSemaphore.h"

typedef ZYNInsMediaCheckerOptions Options;
typedef ZYNInsMediaCheckerServices Services;

namespace {

struct SScanFolder;

// A folder on the path from the volume's root: met again below itself, it is a loop.
struct SFolderId {
  dev_t device;
  ino_t inode;
};

// One entry of a folder as the enumerator gave it: a regular file, or a directory with
// what was read below it.
struct SScanEntry {
  DString name;
  long long lastWriteTime;
  bool hasTime;                         // else the digest's opening of the file gives it
  std::unique_ptr<SScanFolder> folder;  // null for a regular file
  unsigned narrowName;                  // offset of the name in the folder's `narrowNames`
  unsigned job;                         // a file's digest among the folder's `jobs`
  ZYNAdmXmlElement element;             // the File made of it once digested, until handed on in path order
  DString path;                         // that File's path
  SScanFolder* in = nullptr;            // the folder it was listed in
  bool made = false;                    // whether the digest made `element`
};

struct SScanFolder {
  std::vector<SScanEntry> entries;  // in directory order, up to a failure
  DString relativePath;             // as the walk names it below the volume
  std::string narrowNames;          // the entries' names as the system knows them, each ended by 0
  bool failed = false;
  DString failure;  // the enumerator's record, naming this folder by the walk's path
  ZYNInsDigestFolder digest;
  std::unique_ptr<ZYNInsDigestJob[]> jobs;  // one for each file to digest, in directory order
  std::vector<ZYNAdmXmlElement> sorted;     // after the walk: the File elements below, in path order
  // Whether `sorted` is in the order the sort by path keeps, each path against the next,
  // and the paths at its two ends.
  bool inPathOrder = true;
  DString firstPath;
  DString lastPath;

  // While the volume is listed, on any thread.
  SScanFolder* parent = nullptr;  // the way back to the root, for loops
  SFolderId id{};
  std::exception_ptr thrown;                   // a fault of the run, met listing it
  std::vector<ZYNInsDigestJob::Failure> left;  // records its listing left on the stack, oldest first

  // Collected (its elements in `sorted`) on whichever thread settles it last: its listing,
  // each of its files digested, each of its sub-folders collected.
  std::atomic<int> pending{1};
  std::atomic<bool> collected{false};
  // The walk past it, its collection and the letting go of its sub-folders' listings: the
  // last lets go of its own, which holds the sub-folders.
  std::atomic<int> gates{2};
};

// What the reading of one volume keeps track of.
struct SScanReader {
  ZYNInsDigestPool* pool;
  std::atomic<bool> const* cancelled;  // a reading ahead given up: no folder more is opened
};

// What stays the same over one volume.
struct SScanVolume {
  DString root;
  bool generate;
  bool assemblyMedia;
  int number;
  DString cdText;
  DString outerText;
  DString prefix;  // template with /P1 (and /P2 on an Assembly Media)
};

// The names of a File element's parts. One record for each, shared by the elements a
// thread makes: a volume may have a million, and a record shared by all threads would
// have its count passed from processor to processor for every file.
struct SFileNames {
  DString file{L"File"};
  DString hash{L"hash"};
  DString timestamp{L"timestamp"};
  DString path{L"path"};
};

// A folder waiting to be listed.
struct SScanWaiting {
  SScanFolder* folder = nullptr;
  DString path;  // as the walk names it
};

// Entries in a bag of listings before the walk hands it on.
static size_t const S_bagEntries = 2048;

// Listings the walk let go of, their parts moved out whole for another thread to free:
// freeing a folder's strings took the walk as long as the rest of its work.
struct SScanBag {
  std::vector<std::vector<SScanEntry>> entries;
  std::vector<std::string> names;
  std::vector<std::unique_ptr<ZYNInsDigestJob[]>> jobs;
  size_t count = 0;  // entries in all
};

// The folders of one volume listed on every core. The workers of the pool take a folder
// waiting to be listed before any digest, as each folder listed makes more of both; the
// thread that reads the volume lists too, and digests, until every folder is listed.
struct SScanListing : ZYNInsPoolErrands {
  SScanListing() : listed(ZYNSysSemaphore::ZYNSysCreateSemaphore(-1, 0, 0)) {}
  // A folder to list, else a bag to free.
  bool RunOne() override;
  // The File elements of files digested, built on the digesting thread; the files
  // settled in their folder, digested or not.
  void Finish(ZYNInsDigestJob* jobs, unsigned count) override;
  // `count` of the things `folder` waits for are done; the last collects it, and settles
  // it in its parent.
  void Settle(SScanFolder& folder, int count = 1);

  // Queues `folders`, ahead of those waiting already; throws, having queued none, where
  // memory runs out.
  void Queue(std::vector<SScanWaiting>& folders);
  // Queues `bag` for the workers and leaves it empty; freed here where memory is short.
  void Drop(SScanBag& bag);
  // Frees a bag still queued; false where none is left.
  bool FreeBag();

  SScanReader reader;
  QRTSpinLock lock;
  std::exception_ptr collectThrown;  // the first fault of a collection, for the walk to throw
  // A set of names for each thread, as far as they go (no storage of a thread's own that
  // the thread's end would have to free: that can fail for want of memory, fatally).
  std::vector<SFileNames> names = std::vector<SFileNames>(32);
  std::vector<SScanWaiting> waiting;        // a stack, so that one thread alone lists in the walk's order
  std::atomic<int> unfinished{0};           // folders queued and not yet listed
  std::unique_ptr<ZYNSysSemaphore> listed;  // a count for each folder listed
  std::vector<SScanBag> bags;               // under `lock`
  std::atomic<size_t> bagged{0};            // their count, read without the lock
};

// The pool digesting the files of one volume, and the listing whose errands it runs,
// which outlives it.
struct SScanDigests {
  std::unique_ptr<SScanListing> listing;
  std::unique_ptr<ZYNInsDigestPool> pool;
};

}  // namespace

static DString sNumber(int value) { return DString::FromNum(value, "%d"); }

// DString's == takes a longer text led by a unit with a low byte of 0 (U+4E00, say) for
// equal to any shorter one; names must match unit for unit.
static bool sIsName(DString const& name, DString const& wanted) {
  return name.Length() == wanted.Length() && name.IsSubStringAt(0, wanted);
}

// The reference and its signature, wherever they stand.
static bool sIsSkippedFile(SScanEntry const& entry) {
  static DString const S_skipped(ZYNInsMediaGeometry::ReferenceName());
  static DString const S_signature(ZYNInsSignature::FileName());
  return !entry.folder && (sIsName(entry.name, S_skipped) || sIsName(entry.name, S_signature));
}

// The descriptors open now, those inherited from the parent among them.
static rlim_t sOpenDescriptors(rlim_t limit) {
  DIR* open = opendir("/proc/self/fd");
  if (open == nullptr) {
    rlim_t count = 0;
    for (rlim_t fd = 0; fd < std::min<rlim_t>(limit, 65536); ++fd) count += fcntl(static_cast<int>(fd), F_GETFD) != -1;
    return count;
  }
  rlim_t count = 0;
  while (struct dirent* entry = readdir(open)) count += entry->d_name[0] != '.';
  closedir(open);
  return count > 0 ? count - 1 : 0;  // the listing's own
}

// The open-file limit, raised once to what the system allows: readers for a cold device
// each hold a file open, and where the system refuses the workers tables of their own
// they share this one. The kernel grows a process's table of descriptors by doubling it, and
// where the process has threads each growth waits for every processor to pass a
// quiescent point: some milliseconds in which every thread that opens a file waits too.
// So the table is grown once here as well, to what the budget may come to, before any
// worker starts.
static rlim_t sDescriptorLimit() {
  static rlim_t const S_limit = [] {
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return rlim_t(0);
    if (limit.rlim_cur < limit.rlim_max) {
      struct rlimit raised = limit;
      raised.rlim_cur = limit.rlim_max;
      if (setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
    }
    rlim_t total = limit.rlim_cur == RLIM_INFINITY ? 131072 : limit.rlim_cur;
    int any = total >= 2 ? open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    if (any >= 0) {
      int high = fcntl(any, F_DUPFD_CLOEXEC, static_cast<int>(std::min<rlim_t>(total, 65536) - 1));
      if (high >= 0) close(high);
      close(any);
    }
    return total;
  }();
  return S_limit;
}

// The descriptors the readers for a cold device may take: half of what is free, the other
// half, and a reserve for each worker's file and folder, staying for the rest of the run.
static int sDescriptorBudget(int workers) {
  rlim_t total = sDescriptorLimit();
  if (total == 0) return 0;
  rlim_t used = sOpenDescriptors(total) + 2 * static_cast<rlim_t>(workers) + 32;
  rlim_t usable = total > used ? (total - used) / 2 : 0;
  return static_cast<int>(std::min<rlim_t>(usable, 65536));
}

static bool sIsAncestor(SScanFolder const& folder, dev_t device, ino_t inode) {
  for (SScanFolder const* above = folder.parent; above != nullptr; above = above->parent) {
    if (above->id.device == device && above->id.inode == inode) return true;
  }
  return false;
}

// Lists one folder, opened by `path`, with the enumerator that the walk would use. Its
// failure record is taken off the stack and kept with the folder. False where it couldn't
// be opened or leads back into a folder above it; `id` is its identity.
static bool sListFolder(DString const& path, SScanFolder& folder, SFolderId& id) {
  ZYNInsFindFile finder(path, 3);
  finder.SetTypesFromListing(true);
  bool opened = finder.Open() == 1 && finder.GetFolderId(id.device, id.inode);
  if (opened && sIsAncestor(folder, id.device, id.inode)) {
    finder.FailAsLoop();
    opened = false;
  }
  for (int step = finder.GetNextFile(); step != 0; step = finder.GetNextFile()) {
    if (step != 1) {
      folder.failed = true;
      folder.failure = ZYNAdmError::Pop();
      break;
    }
    SScanEntry entry;
    entry.name = finder.GetName();
    entry.lastWriteTime = static_cast<long long>(finder.GetLastWriteTime());
    entry.hasTime = finder.HasTimes();
    entry.narrowName = static_cast<unsigned>(folder.narrowNames.size());
    folder.narrowNames.append(finder.GetNarrowName()).push_back('\0');
    if (finder.GetType() == 1) entry.folder.reset(new SScanFolder());
    folder.entries.push_back(std::move(entry));
  }
  return opened;
}

// Hands the files of a folder just listed to the pool, which opens the folder again by
// path on each thread that digests them.
static void sQueueDigests(SScanReader& reader, DString const& path, SScanFolder& folder) {
  size_t count = 0;
  for (SScanEntry& entry : folder.entries) {
    if (!entry.folder && !sIsSkippedFile(entry)) entry.job = static_cast<unsigned>(count++);
  }
  if (count == 0) return;
  ZYNAdmNarrowText narrow(path);
  if (!narrow.IsNull()) folder.digest.narrowPath = narrow.Get();
  folder.jobs.reset(new ZYNInsDigestJob[count]);
  for (SScanEntry& entry : folder.entries) {
    if (entry.folder || sIsSkippedFile(entry)) continue;
    ZYNInsDigestJob& job = folder.jobs[entry.job];
    job.folder = &folder.digest;
    job.name = folder.narrowNames.c_str() + entry.narrowName;
    job.owner = &entry;
    entry.in = &folder;
  }
  folder.pending.fetch_add(static_cast<int>(count), std::memory_order_relaxed);
  reader.pool->Add(folder.jobs.get(), count);
}

// Lists `waiting` alone, hands its files to the pool and queues its sub-folders.
static void sReadFolder(SScanListing& listing, SScanWaiting const& waiting) {
  SScanFolder& folder = *waiting.folder;
  SFolderId id{};
  if (!sListFolder(waiting.path, folder, id)) return;  // nothing was listed
  folder.id = id;
  sQueueDigests(listing.reader, waiting.path, folder);
  std::vector<SScanWaiting> below;
  // The last queued is the next taken: a single thread lists in the order of the walk.
  for (auto entry = folder.entries.rbegin(); entry != folder.entries.rend(); ++entry) {
    if (!entry->folder) continue;
    entry->folder->parent = &folder;
    entry->folder->relativePath = folder.relativePath + L"/" + entry->name;
    below.push_back(SScanWaiting{entry->folder.get(), waiting.path + L"/" + entry->name});
  }
  folder.pending.fetch_add(static_cast<int>(below.size()), std::memory_order_relaxed);
  folder.gates.fetch_add(static_cast<int>(below.size()), std::memory_order_relaxed);
  listing.Queue(below);
}

// Takes the records a listing left on this thread's stack above `depth` into `folder`,
// to be pushed again in the order of a listing on one thread.
static void sKeepLeftRecords(SScanFolder& folder, int depth) {
  int left = ZYNAdmError::GetStackSize() - depth;
  try {
    for (int i = left - 1; i >= 0; --i) folder.left.push_back(ZYNInsDigestJob::Failure::At(i));
  } catch (...) {
    if (!folder.thrown) folder.thrown = std::current_exception();
  }
  for (int i = 0; i < left; ++i) ZYNAdmError::Pop();
}

void SScanListing::Queue(std::vector<SScanWaiting>& folders) {
  if (folders.empty()) return;
  {
    QRTSpinLockScope scope(lock);
    waiting.reserve(waiting.size() + folders.size());
    unfinished.fetch_add(static_cast<int>(folders.size()), std::memory_order_relaxed);
    for (SScanWaiting& folder : folders) waiting.push_back(std::move(folder));
  }
  reader.pool->Wake(folders.size());
}

void SScanListing::Drop(SScanBag& bag) {
  if (bag.count == 0 && bag.entries.empty()) return;
  bool queued = false;
  try {
    QRTSpinLockScope scope(lock);
    bags.push_back(std::move(bag));
    bagged.store(bags.size(), std::memory_order_relaxed);
    queued = true;
  } catch (std::bad_alloc const&) {
  }
  bag = SScanBag();
  if (queued) reader.pool->Wake(1);
}

bool SScanListing::FreeBag() {
  // Every worker asks before each digest: no lock while there is nothing to free.
  if (bagged.load(std::memory_order_relaxed) == 0) return false;
  SScanBag bag;
  QRTSpinLockScope scope(lock);
  if (bags.empty()) return false;
  bag = std::move(bags.back());
  bags.pop_back();
  bagged.store(bags.size(), std::memory_order_relaxed);
  return true;  // freed on the way out, the lock let go of first
}

bool SScanListing::RunOne() {
  SScanWaiting next;
  if (unfinished.load(std::memory_order_acquire) != 0) {
    QRTSpinLockScope scope(lock);
    if (!waiting.empty()) {
      next = std::move(waiting.back());
      waiting.pop_back();
    }
  }
  if (next.folder == nullptr) return FreeBag();

  SScanFolder& folder = *next.folder;
  if (!reader.cancelled->load(std::memory_order_relaxed)) {
    int depth = ZYNAdmError::GetStackSize();
    // A fault of the run is thrown where a listing on one thread would have met it.
    try {
      sReadFolder(*this, next);
    } catch (...) {
      folder.thrown = std::current_exception();
    }
    sKeepLeftRecords(folder, depth);
  }
  Settle(folder);
  unfinished.fetch_sub(1, std::memory_order_acq_rel);
  listed->Signal();
  return true;
}

// What the listing of `folder` and everything below it left, in the order a listing on
// one thread would have: its records pushed again, its fault thrown.
static void sReplayListing(SScanFolder& folder) {
  for (ZYNInsDigestJob::Failure const& record : folder.left) record.PushAgain();
  std::vector<ZYNInsDigestJob::Failure>().swap(folder.left);
  if (folder.thrown) std::rethrow_exception(folder.thrown);
  for (SScanEntry& entry : folder.entries) {
    if (entry.folder) sReplayListing(*entry.folder);
  }
}

// The record as an enumeration of `listPath` instead of `walkPath` would have worded it:
// the enumerator puts its path right behind the opening quote.
static DString sRenamedFailure(DString const& failure, DString const& walkPath, DString const& listPath) {
  DString quoted = DString(L"\"") + walkPath;
  if (!failure.IsSubStringAt(0, quoted)) return failure;
  DString renamed = DString(L"\"") + listPath;
  renamed.Append(failure, quoted.Length(), failure.Length());
  return renamed;
}

// What ZYNInsDir::List(listPath, names, false, true) does: counts the regular files and
// leaves one record for each folder that fails, in the order of its recursion.
static int sCountAsListed(SScanFolder const& folder, DString const& walkPath, DString const& listPath) {
  int count = 0;
  for (SScanEntry const& entry : folder.entries) {
    if (!entry.folder) {
      ++count;
      continue;
    }
    DString walkChild = walkPath + L"/" + entry.name;
    DString listChild = listPath + L"/" + entry.name;
    count += sCountAsListed(*entry.folder, walkChild, listChild);
  }
  if (folder.failed) ZYNAdmError::Push(sRenamedFailure(folder.failure, walkPath, listPath));
  return count;
}

static DString sFolderPath(DString const& root, DString const& relativePath) {
  DString folder(root);
  folder.Append(DString(L"/"), relativePath);
  return folder;
}

// The percentage in single precision, converted as the x86 instruction does: a value that
// doesn't fit, infinity included, gives the integer indefinite value.
static int sPercent(int fileCount, int totalFiles) {
  float value = static_cast<float>(fileCount) / (static_cast<float>(totalFiles) + -1.0f) * 100.0f;
  if (!(value >= -2147483648.0f && value < 2147483648.0f)) return INT_MIN;
  return static_cast<int>(value);
}

static DString sProgress(int percent) {
  DString text(L"(");
  if (percent <= 9) {
    text += L"  ";
  } else if (percent <= 99) {
    text += L" ";
  }
  text.Append(sNumber(percent), DString(L"%)"));
  return text;
}

// The parameters of a message: the volume numbers of the prefix, then `more`.
static DStrings sParameters(SScanVolume const& volume, DStrings const& more) {
  DStrings parameters;
  if (volume.assemblyMedia) parameters.PutBack(volume.outerText);
  parameters.PutBack(volume.cdText);
  parameters.PutBack(more);
  return parameters;
}

// What one walk of a volume carries from folder to folder.
struct SScanWalk {
  SScanVolume volume;
  SScanDigests& digests;
  DString& errors;
  int& fileCount;
  int totalFiles;
  SScanFolder const* tree;
  SScanBag bag;  // listings let go of, until there are enough to hand on
};

// What "%lld" makes of `value`, without a format read for each of a million files.
static DString sDecimal(long long value) {
  unsigned short units[24];
  int at = 24;
  unsigned long long magnitude =
      value < 0 ? 0ULL - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
  do {
    units[--at] = static_cast<unsigned short>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  if (value < 0) units[--at] = '-';
  return DString(units + at, 24 - at);
}

// This thread's place among the sets of names.
static size_t sThreadSlot() {
  static std::atomic<size_t> S_next{0};
  thread_local size_t slot = S_next.fetch_add(1, std::memory_order_relaxed);
  return slot;
}

// The File element of a file digested.
static void sMakeFile(ZYNInsDigestJob& job, SScanEntry& entry, SFileNames const& names) {
  DString timestamp = sDecimal(entry.hasTime ? entry.lastWriteTime : job.lastWriteTime);
  // The three attributes in one block, rather than a block rebuilt for each.
  ZYNAdmXmlElement file(names.file);
  ZYNAdmXmlElement::AttributeUnits const attributes[] = {
      {&names.hash, job.hash.ConvertToUCChar(), job.hash.Length()},
      {&names.timestamp, timestamp.ConvertToUCChar(), timestamp.Length()},
      {&names.path, entry.path.ConvertToUCChar(), entry.path.Length()},
  };
  file.SetAttributes(attributes, 3);
  entry.element = file;
  entry.made = true;
  // Let go of where it was made, unless the walk shows it: another thread's free would
  // wait for this one's heap.
  if (!ZYNInsMsg::IsTraceShown()) job.hash = DString();
}

void SScanListing::Finish(ZYNInsDigestJob* jobs, unsigned count) {
  static DString const S_slash(L"/");
  SFileNames const& own = names[sThreadSlot() % names.size()];
  for (unsigned i = 0; i < count; ++i) {
    ZYNInsDigestJob& job = jobs[i];
    if (job.thrown) continue;
    SScanEntry& entry = *static_cast<SScanEntry*>(job.owner);
    // Made here, not with the listing: a volume listed whole before its walk (one
    // thread) would hold every path at once.
    try {
      entry.path = entry.in->relativePath;
      entry.path.Append(S_slash, entry.name);
      if (!job.hash.IsEmpty()) sMakeFile(job, entry, own);
    } catch (...) {
      job.thrown = std::current_exception();
    }
  }
  if (count > 0) Settle(*static_cast<SScanEntry*>(jobs[0].owner)->in, static_cast<int>(count));
}

// Step of one regular file: a ZYNInsWalkResult. Its element was made where it was
// digested, unless the file failed, and goes on to the folder's collection from there.
static int sScanFile(SScanWalk& walk, SScanFolder& folder, SScanEntry& entry) {
  SScanVolume const& volume = walk.volume;
  ++walk.fileCount;

  // The file read is the entry listed, whatever a backslash in its name would make of
  // its path.
  ZYNInsDigestJob const& digest = walk.digests.pool->Take(folder.jobs[entry.job]);
  if (!entry.made) {
    DString reason = ZYNAdmError::Pop();
    DString label = volume.prefix + sProgress(sPercent(walk.fileCount, walk.totalFiles));
    DString pattern = label + (volume.assemblyMedia ? L"\n\"/P3\" /P4\n" : L"\n\"/P2\" /P3\n");
    DString finding = ZYNInsMsg::BuildMsg(pattern, sParameters(volume, DStrings(entry.path, reason)));
    walk.errors += finding;
    ZYNInsFindings::Add(ZYNInsFindingUnreadable, volume.number, entry.path, finding);
    return volume.generate ? ZYNInsWalkStopped : ZYNInsWalkDone;
  }
  ZYNInsFindings::FileRead(volume.number, digest.bytesRead);

  if (!ZYNInsMsg::IsTraceShown()) return ZYNInsWalkDone;
  if (volume.generate) {
    DString timestamp = sDecimal(entry.hasTime ? entry.lastWriteTime : digest.lastWriteTime);
    ZYNInsMsg::TracePrint(ZYNInsMsg::BuildMsg(DString(L"[CD/P1]\ttimestamp=/P2\thash=/P3\tpath=/P4\n"),
                                              DStrings(volume.cdText, timestamp, digest.hash, entry.path)));
    return ZYNInsWalkDone;
  }
  DString label = volume.prefix + sProgress(sPercent(walk.fileCount, walk.totalFiles));
  DString pattern = label + (volume.assemblyMedia ? L"\t/P3\n" : L"\t/P2\n");
  ZYNInsMsg::TracePrint(ZYNInsMsg::BuildMsg(pattern, sParameters(volume, DStrings(entry.path))));
  return ZYNInsWalkDone;
}

// The order of two entries of one folder by the paths below them: a folder's files all
// have its name and a slash in their path, so a folder sorts as its name with a slash,
// and everything below it comes together at that place.
static bool sPathOrderLess(SScanEntry const* a, SScanEntry const* b) {
  unsigned short const* aUnits = a->name.ConvertToUCChar();
  unsigned short const* bUnits = b->name.ConvertToUCChar();
  int aLength = a->name.Length();
  int bLength = b->name.Length();
  for (int i = 0;; ++i) {
    unsigned aUnit = i < aLength ? aUnits[i] : (i == aLength && a->folder ? '/' : 0);
    unsigned bUnit = i < bLength ? bUnits[i] : (i == bLength && b->folder ? '/' : 0);
    if (aUnit != bUnit) return aUnit < bUnit;
    if (aUnit == 0) return false;
  }
}

// Hands the elements made below `folder` to `sorted` in the order of their paths, which
// the sort of the volume would give them.
static void sCollectInPathOrder(SScanFolder& folder, std::vector<ZYNAdmXmlElement>& sorted) {
  std::vector<SScanEntry*> order;
  for (SScanEntry& entry : folder.entries) {
    if (entry.folder ? !entry.folder->sorted.empty() : !entry.element.IsEmpty()) order.push_back(&entry);
  }
  std::stable_sort(order.begin(), order.end(), sPathOrderLess);
  // Each piece's first path against the path before it, with the comparison the sort by
  // path makes: a quirk of it that the order of names missed shows here. The two ends
  // are kept once the folder is done, not for every piece.
  DString const* last = nullptr;
  for (SScanEntry* entry : order) {
    DString const& first = entry->folder ? entry->folder->firstPath : entry->path;
    if (last != nullptr && DString::Compare(last, &first) > 0) folder.inPathOrder = false;
    if (entry->folder && !entry->folder->inPathOrder) folder.inPathOrder = false;
    last = entry->folder ? &entry->folder->lastPath : &entry->path;
  }
  if (!order.empty()) {
    folder.firstPath = order.front()->folder ? order.front()->folder->firstPath : order.front()->path;
    folder.lastPath = *last;
  }
  // Room for all at once (grown by doubling, a volume's list was allocated anew some
  // twenty times on the thread that settled its root): a first sub-folder's list that
  // has the room is taken over whole, else the list is sized once.
  size_t total = sorted.size();
  for (SScanEntry* entry : order) total += entry->folder ? entry->folder->sorted.size() : 1;
  SScanFolder* first = order.empty() ? nullptr : order.front()->folder.get();
  if (sorted.empty() && first != nullptr && first->sorted.capacity() >= total) {
    sorted.swap(first->sorted);
  } else {
    sorted.reserve(total);
  }
  for (SScanEntry* entry : order) {
    if (!entry->folder) {
      sorted.push_back(std::move(entry->element));
      continue;
    }
    std::vector<ZYNAdmXmlElement>& below = entry->folder->sorted;
    sorted.insert(sorted.end(), std::make_move_iterator(below.begin()), std::make_move_iterator(below.end()));
    below.clear();
  }
}

static int sWalk(SScanWalk& walk, DString const& relativePath, SScanFolder& folder);

// What a folder walked to its end and collected no longer needs: only its elements stay.
static void sReleaseListing(SScanFolder& folder) {
  std::vector<SScanEntry>().swap(folder.entries);
  std::string().swap(folder.narrowNames);
  folder.jobs.reset();
}

// One of those that must be done with a folder's listing is: whether it was the last.
static bool sPassGate(SScanFolder& folder) { return folder.gates.fetch_sub(1, std::memory_order_acq_rel) == 1; }

// Room for one more in `list`, grown by doubling: a reserve of one more each time would
// move the whole list at every folder.
template <class T>
static void sRoomForOne(std::vector<T>& list) {
  if (list.size() == list.capacity()) list.reserve(2 * list.size() + 16);
}

// Moves a folder's listing into `bag`; where memory is short, leaves it to be freed here.
static void sBag(SScanFolder& folder, SScanBag& bag) {
  try {
    sRoomForOne(bag.entries);
    sRoomForOne(bag.names);
    sRoomForOne(bag.jobs);
  } catch (std::bad_alloc const&) {
    return;
  }
  bag.count += folder.entries.size();
  bag.entries.push_back(std::move(folder.entries));
  bag.names.push_back(std::move(folder.narrowNames));
  bag.jobs.push_back(std::move(folder.jobs));
}

// Lets go of a folder's listing, and of its parent's where it was the last the parent
// waited for; into `bag`, where given, rather than freed here.
static void sLetGoOf(SScanFolder& folder, SScanBag* bag = nullptr) {
  for (SScanFolder* at = &folder; at != nullptr;) {
    SScanFolder* parent = at->parent;
    if (bag != nullptr) sBag(*at, *bag);
    sReleaseListing(*at);
    at = parent != nullptr && sPassGate(*parent) ? parent : nullptr;
  }
}

// On any thread: the collection of a folder settled, its elements put in path order and
// it settled in its parent. A fault (memory) is kept for the walk; the rest goes on, so
// that the volume is still collected to its root.
void SScanListing::Settle(SScanFolder& folder, int count) {
  if (folder.pending.fetch_sub(count, std::memory_order_acq_rel) != count) return;
  try {
    sCollectInPathOrder(folder, folder.sorted);
  } catch (...) {
    QRTSpinLockScope scope(lock);
    if (!collectThrown) collectThrown = std::current_exception();
  }
  folder.collected.store(true, std::memory_order_release);
  SScanFolder* parent = folder.parent;
  if (sPassGate(folder)) sLetGoOf(folder);
  if (parent != nullptr) Settle(*parent);
}

// One folder, already read. Pushes and pops the enumerator's records where the walk of
// the folder itself would have. The folder's elements end in its `sorted`.
static int sWalkFolder(SScanWalk& walk, DString const& relativePath, SScanFolder& folder) {
  SScanVolume const& volume = walk.volume;
  // The probe listing of the folder, kept for the record it leaves on the stack.
  if (folder.failed) ZYNAdmError::Push(folder.failure);
  if (relativePath.IsEmpty()) {
    DString pattern =
        volume.assemblyMedia ? L"<AssemblyMedia Volume /P1 - Media Volume /P2>\n" : L"<Media Volume /P1>\n";
    DStrings parameters = volume.assemblyMedia ? DStrings(volume.outerText, volume.cdText) : DStrings(volume.cdText);
    ZYNInsMsg::TracePrint(ZYNInsMsg::BuildMsg(pattern, parameters));
  }

  for (SScanEntry& entry : folder.entries) {
    if (entry.folder) {
      DString childPath = relativePath + L"/" + entry.name;
      int result = sWalk(walk, childPath, *entry.folder);
      if (result == ZYNInsWalkStopped && volume.generate) return ZYNInsWalkStopped;
      continue;
    }
    if (sIsSkippedFile(entry)) continue;
    if (sScanFile(walk, folder, entry) == ZYNInsWalkStopped) return ZYNInsWalkStopped;
  }
  if (!folder.failed) return ZYNInsWalkDone;

  // The enumerator's record would be pushed here and popped at once.
  DString pattern = volume.prefix + (volume.assemblyMedia ? L"\n/P3" : L"\n/P2");
  DString finding = ZYNInsMsg::BuildMsg(pattern, sParameters(volume, DStrings(folder.failure)));
  walk.errors += finding;
  ZYNInsFindings::Add(ZYNInsFindingUnreadable, volume.number, relativePath.IsEmpty() ? DString(L"/") : relativePath,
                      finding);
  return ZYNInsWalkStopped;
}

// Walks `folder`; its elements are collected in path order where the last of its
// digests or sub-folders settles.
static int sWalk(SScanWalk& walk, DString const& relativePath, SScanFolder& folder) {
  int result = sWalkFolder(walk, relativePath, folder);
  // A generation stopped leaves digests untaken; anything else has taken them all.
  if ((result != ZYNInsWalkStopped || !walk.volume.generate) && sPassGate(folder)) {
    // Without workers, nobody else would free it sooner.
    bool handed = walk.digests.listing && walk.digests.pool && walk.digests.pool->GetMostWorkers() > 0;
    sLetGoOf(folder, handed ? &walk.bag : nullptr);
    if (walk.bag.count >= S_bagEntries && handed) walk.digests.listing->Drop(walk.bag);
  }
  return result;
}

static SScanVolume sVolume(DString const& root, int cdIndex) {
  SScanVolume volume;
  volume.root = root;
  volume.number = cdIndex;
  volume.generate = Options::IsGenerateMode();
  volume.assemblyMedia = Options::IsAM();
  volume.cdText = sNumber(cdIndex);
  volume.outerText = ZYNInsMediaGeometry::OuterVolumeText(cdIndex);
  volume.prefix = volume.assemblyMedia ? L"[AMCD/P1-CD/P2]" : L"[CD/P1]";
  return volume;
}

// Reads the tree below `path`, the digests of its files started on the way.
static void sReadTree(DString const& path, DString const& relativePath, SScanFolder& tree, SScanDigests& digests,
                      std::atomic<bool> const* cancelled = nullptr) {
  static std::atomic<bool> const S_never{false};
  digests.listing.reset(new SScanListing());
  sDescriptorLimit();
  digests.pool.reset(new ZYNInsDigestPool());
  SScanListing& listing = *digests.listing;
  ZYNInsDigestPool& pool = *digests.pool;
  SScanReader& reader = listing.reader;
  reader.pool = &pool;
  reader.cancelled = cancelled != nullptr ? cancelled : &S_never;
  // Readers for a cold device only where descriptors are plenty: each holds a file open.
  pool.AllowColdReaders(sDescriptorBudget(pool.GetMostWorkers()) >= 1024);
  if (!listing.listed) throw std::bad_alloc();

  pool.SetErrands(&listing);
  tree.relativePath = relativePath;
  std::vector<SScanWaiting> root{SScanWaiting{&tree, path}};
  listing.Queue(root);
  while (listing.unfinished.load(std::memory_order_acquire) > 0) {
    long long started = ZYNInsSerialShare::Start();
    bool ran = listing.RunOne();
    if (ran) ZYNInsSerialShare::AddShareableSince(started);
    pool.JoinColdReaders();
    if (!ran && !pool.DigestQueued()) listing.listed->Wait();
  }
  sReplayListing(tree);
}

// Walks and digests the tree already read, lets the pool go before the tree whose
// folders it reads, and adds the File elements to `cdElement` in the order of their
// paths.
static int sWalkTree(SScanVolume const& volume, SScanFolder& tree, SScanDigests& digests, DString const& relativePath,
                     ZYNAdmXmlElement& cdElement, DString& errors, int& fileCount, int totalFiles) {
  SScanWalk walk{volume, digests, errors, fileCount, totalFiles, &tree, {}};
  int result = sWalk(walk, relativePath, tree);
  if (digests.listing) {
    digests.listing->Drop(walk.bag);
    // What the workers have not taken yet is freed here while they free the rest: no
    // thread is started for it.
    long long started = ZYNInsSerialShare::Start();
    while (digests.listing->FreeBag()) {
    }
    ZYNInsSerialShare::AddShareableSince(started);
  }
  digests.pool.reset();
  if (result == ZYNInsWalkStopped && volume.generate) return result;
  // Each folder was collected before the walk took the last of its digests, or before
  // the listing was done: by now the whole volume is, unless it was never listed.
  if (digests.listing && digests.listing->collectThrown) std::rethrow_exception(digests.listing->collectThrown);
  if (!tree.collected.load(std::memory_order_acquire)) return result;
  cdElement.AddChildren(tree.sorted);
  return result;
}

int ZYNInsMediaCheckerServices::GetCDElt(DString root, DString relativePath, int cdIndex, ZYNAdmXmlElement& cdElement,
                                         DString& errors, int& fileCount, int totalFiles) {
  SScanFolder folder;
  SScanDigests digests;
  sReadTree(sFolderPath(root, relativePath), relativePath, folder, digests);
  return sWalkTree(sVolume(root, cdIndex), folder, digests, relativePath, cdElement, errors, fileCount, totalFiles);
}

// ---------------------------------------------------------------------------------------
// The media

static void sDebug(wchar_t const* text, DString const& value = DString()) {
  if (!ZYNInsMsg::IsDebug()) return;
  ZYNInsMsg::Debug(DString(L"{ZYNInsMediaCheckerServices::GetMediaXmlView}") + text + value);
}

// The path of a volume whose path nobody has given: ZYNInsScanDone, or ZYNInsScanCancelled.
static int sComputeCDPath(int cdIndex, DString& cdPath) {
  sDebug(L" no path has been save for the volume ", sNumber(cdIndex) + L", try to compute it.");
  if (Options::IsPhysicalCD()) {
    if (cdIndex > 1 && Services::AskForCD(cdIndex, DString(), cdPath) == ZYNInsAnswerStop) return ZYNInsScanCancelled;
    return ZYNInsScanDone;
  }
  cdPath = ZYNInsMediaGeometry::FileTreeVolumePath(cdIndex);
  Options::SetCDPath(cdIndex, cdPath);
  return ZYNInsScanDone;
}

namespace {

// Volume 1 of a file tree read on its own thread (its digests on the pool's) while the
// check reads, proves and identifies the reference: those steps no longer leave the
// other processors idle. Only reading is done ahead; what the reading leaves (records,
// a fault of the run) reaches the walk's thread where the scan itself would have read.
struct SReadAhead {
  DString walkRoot;
  SScanFolder tree;
  SScanDigests digests;
  std::atomic<bool> cancelled{false};
  std::exception_ptr thrown;
  std::vector<ZYNInsDigestJob::Failure> records;  // left on the reading thread's stack, oldest first
  std::vector<std::unique_ptr<QRTThreads>> reader;
};

std::unique_ptr<SReadAhead> S_readAhead;  // the walk's thread only

int sReadAheadMain(void* argument) {
  SReadAhead& ahead = *static_cast<SReadAhead*>(argument);
  try {
    sReadTree(ahead.walkRoot, DString(), ahead.tree, ahead.digests, &ahead.cancelled);
  } catch (...) {
    ahead.thrown = std::current_exception();
  }
  for (int i = ZYNAdmError::GetStackSize() - 1; i >= 0; --i) {
    ahead.records.push_back(ZYNInsDigestJob::Failure::At(i));
  }
  ZYNAdmError::FlushStack();
  return 0;
}

void sJoinReadAhead(SReadAhead& ahead) {
  for (std::unique_ptr<QRTThreads>& thread : ahead.reader) thread->Join();
  ahead.reader.clear();
}

}  // namespace

// A check that names its volumes (-cds) leaves the others out.
static bool sIsLeftOut(int cdIndex) {
  DStrings toCheck = Options::GetCDsToCheck();
  return !Options::IsGenerateMode() && !toCheck.IsEmpty() && toCheck.Find(sNumber(cdIndex), 0) < 0;
}

void ZYNInsMediaCheckerServices::StartReadAhead() {
  StopReadAhead();
  if (Options::IsPhysicalCD() || sIsLeftOut(1) || QRTThreads::GetProcessorsNumber() < 2) return;
  // The path the scan will read, unless the volume is found elsewhere on the way.
  DString cdPath = Options::GetCDPath(1);
  if (cdPath.IsEmpty()) cdPath = ZYNInsMediaGeometry::FileTreeVolumePath(1);
  if (cdPath.IsEmpty()) return;
  // Grown by the reading thread, the table of descriptors waited for every processor to
  // pass a quiescent point, as another thread shared it: 17 to 30 ms on two cores. Grown
  // while this thread is the only one, it waits for none.
  sDescriptorLimit();
  std::unique_ptr<SReadAhead> ahead(new SReadAhead());
  ahead->walkRoot = sFolderPath(cdPath, DString());
  if (QRTStartWorkers("read ahead", &sReadAheadMain, ahead.get(), 1, ahead->reader) != 1) return;
  S_readAhead = std::move(ahead);
}

// The pool goes before the tree whose folders it reads.
void ZYNInsMediaCheckerServices::StopReadAhead() {
  if (!S_readAhead) return;
  S_readAhead->cancelled.store(true, std::memory_order_relaxed);
  sJoinReadAhead(*S_readAhead);
  S_readAhead->digests.pool.reset();
  S_readAhead.reset();
}

// The volume read ahead, where it is the one at `walkRoot`; else it is dropped.
static SReadAhead* sTakeReadAhead(DString const& walkRoot) {
  if (!S_readAhead) return nullptr;
  if (!sIsName(S_readAhead->walkRoot, walkRoot)) {
    Services::StopReadAhead();
    return nullptr;
  }
  SReadAhead& ahead = *S_readAhead;
  sJoinReadAhead(ahead);
  for (ZYNInsDigestJob::Failure const& record : ahead.records) {
    record.PushAgain();
  }
  ahead.records.clear();
  if (ahead.thrown) std::rethrow_exception(ahead.thrown);
  return &ahead;
}

// Reads, counts, walks and sorts one volume into `cd`; the result of the walk.
static int sScanVolume(int cdIndex, DString const& cdPath, ZYNAdmXmlElement& cd, DString& errors) {
  SScanFolder ownTree;
  SScanDigests ownDigests;
  ZYNInsFindings::StartVolume(cdIndex);
  DString walkRoot = sFolderPath(cdPath, DString());
  SReadAhead* ahead = cdPath.IsEmpty() ? nullptr : sTakeReadAhead(walkRoot);
  SScanFolder& tree = ahead != nullptr ? ahead->tree : ownTree;
  SScanDigests& digests = ahead != nullptr ? ahead->digests : ownDigests;
  if (ahead == nullptr && !cdPath.IsEmpty())
    sReadTree(walkRoot, DString(), tree, digests);  // an empty path would be the root

  int totalFiles = 0;
  if (cdPath.IsEmpty()) {
    ZYNAdmError::Push(DString(L"Input path is empty\n"));
  } else {
    totalFiles = sCountAsListed(tree, walkRoot, cdPath);
  }
  sDebug(L" CD filetree size : ", sNumber(totalFiles));

  int fileCount = 0;
  int result = sWalkTree(sVolume(cdPath, cdIndex), tree, digests, DString(), cd, errors, fileCount, totalFiles);
  bool inPathOrder = tree.inPathOrder;
  if (ahead != nullptr) Services::StopReadAhead();
  sDebug(L"sorting Xml tree...");
  // The walk hands its elements over in path order, confirmed as it went: the sort would
  // give them back as they are.
  if (!inPathOrder) Services::XmlEltSort(Services::CompareEltsByPathAttr, cd);
  return result;
}

// What the scan takes from the reference (check mode) or the folders (generate mode)
// before it builds its own tree.
struct SMediaPlan {
  int count = 0;  // volumes
  DString refHash;
  DString relText;
  ZYNAdmXmlElement relData;
};

// Step 3: the count of volumes and, in check mode, what each volume is checked against.
static int sPlan(ZYNAdmXmlElement& media, DStrings const& list, SMediaPlan& plan, DString& errors) {
  if (Options::IsGenerateMode()) {
    plan.count = list.GetLength() == 0 ? 1 : list.GetLength();
    plan.relData = ZYNAdmXmlElement(DString(L"RelData"));
    return ZYNInsScanDone;
  }
  plan.count = ZYNInsMediaGeometry::VolumeCount(media);
  if (plan.count < 0) {
    errors += L"Internal error";
    return ZYNInsScanFailed;
  }
  plan.refHash = ZYNAdmXmlHash::GetHash(media);
  Services::GetRelData(media, plan.relText);
  // A copy: the reference's content goes with the reset of step 5.
  ZYNAdmXmlElement reference;
  Services::GetFirstElement(media, DString(L"RelData"), reference);
  plan.relData = reference.Clone(1);
  return ZYNInsScanDone;
}

// Steps 4 and 5: `media` becomes the empty view; gives its CDs element.
static ZYNAdmXmlElement sResetToView(ZYNAdmXmlElement& media, ZYNAdmXmlElement const& relData) {
  media.Reset();
  media.SetName(DString(L"Media"));
  ZYNAdmXmlElement cds(DString(L"CDs"));
  media.SetAttributeValue(DString(L"cdid"), DString(L"1"));
  media.SetAttributeValue(DString(L"checkerVersion"), DString(L"1.1"));
  media.AddChild(relData);
  media.AddChild(cds);
  return cds;
}

// Step 6 for volume `i`: its path, its identification in check mode, its scan. A
// ZYNInsScanResult; a volume left out of -cds is done without a CD element.
static int sVolumeStep(int i, SMediaPlan const& plan, ZYNAdmXmlElement& cds, DString& errors) {
  bool generate = Options::IsGenerateMode();
  sDebug(L" process CD [", sNumber(i - 1) + L"]");
  if (sIsLeftOut(i)) return ZYNInsScanDone;

  ZYNAdmXmlElement cd(DString(L"CD"));
  DString cdPath = Options::GetCDPath(i);
  if (cdPath.IsEmpty() && sComputeCDPath(i, cdPath) == ZYNInsScanCancelled) return ZYNInsScanCancelled;
  sDebug(L" CD path : ", cdPath);

  if (!generate) {
    sDebug(L" not in generation mode : check if the current Volume is the right one.");
    ZYNAdmError::FlushStack();
    int identified = Services::CheckIfCorrectCD(i, plan.refHash, plan.relText);
    if (identified != ZYNInsVolumeRight) {
      if (ZYNAdmError::GetStackSize() != 0) {
        DString reason = ZYNAdmError::Pop();
        errors += reason;
        if (identified == ZYNInsVolumeFailed) ZYNInsFindings::Add(ZYNInsFindingUnidentified, i, DString(), reason);
      }
      sDebug(L" Volume check failed !");
      return identified;  // ZYNInsVolumeFailed and ZYNInsVolumeCancelled are the scan's 2 and 3
    }
    cdPath = Options::GetCDPath(i);
    sDebug(L" CD path after check : ", cdPath);
  }

  if (cdPath.IsEmpty() && generate) {
    errors += L"Internal error";
    return ZYNInsScanFailed;
  }
  int walked = sScanVolume(i, cdPath, cd, errors);
  if (walked == ZYNInsWalkStopped && generate) return ZYNInsScanFailed;
  cds.AddChild(cd);  // in check mode also after a failed walk, with what was found
  return ZYNInsScanDone;
}

int ZYNInsMediaCheckerServices::GetMediaXmlView(ZYNAdmXmlElement& media, DString& errors) {
  sDebug(L" start to build media's xml tree...");
  DStrings list;
  if (!Options::IsPhysicalCD() && GetCDsList(list) != 1) {
    errors += ZYNAdmError::Pop();
    return ZYNInsScanFailed;
  }
  SMediaPlan plan;
  int planned = sPlan(media, list, plan, errors);
  if (planned != ZYNInsScanDone) return planned;
  ZYNAdmXmlElement cds = sResetToView(media, plan.relData);
  for (int i = 1; i <= plan.count; ++i) {
    int result = sVolumeStep(i, plan, cds, errors);
    if (result != ZYNInsScanDone) return result;
  }
  return ZYNInsScanDone;
}
