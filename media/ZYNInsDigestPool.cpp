// ZYNInsDigestPool.cpp - worker threads of the system layer digesting files while the
// volume is listed and walked; the walk takes the results in its own order.
#include "ZYNInsDigestPool.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "QRTThreads.h"
#include "QRTWorkers.h"
#include "ZYNAdmError.h"
#include "ZYNAdmSHA256.h"
#include "ZYNInsEntryInputFile.h"
#include "ZYNInsRunFault.h"
#include "ZYNInsSerialShare.h"
#include "ZYNSysSemaphore.h"

// Files queued at a time: enough to keep the queue cold, few enough that the walk rarely
// waits behind a slow file.
static size_t const S_chunkSize = 8;
// What a worker's elements and listings come to for a volume of some 100,000 files on 16 cores.
static size_t const S_heapWidening = 8 << 20;

ZYNInsDigestJob::Failure ZYNInsDigestJob::Failure::At(int index) {
  return Failure{ZYNAdmError::GetError(index), ZYNAdmError::GetErrorType(index), ZYNAdmError::GetHRESULT(index),
                 ZYNAdmError::GetErrorCode(index)};
}

void ZYNInsDigestJob::Failure::PushAgain() const {
  ZYNAdmError::Push(message, static_cast<ZYNAdmErrorType>(type), hresult, errorCode);
}

ZYNInsDigestFolder::ZYNInsDigestFolder()
    : serial([] {
        static std::atomic<unsigned long long> S_made{0};
        return S_made.fetch_add(1, std::memory_order_relaxed) + 1;
      }()) {}

ZYNInsDigestPool::ZYNInsDigestPool() {
  int processors = QRTThreads::GetProcessorsNumber();
  if (processors < 2) return;
  _queued.reset(ZYNSysSemaphore::ZYNSysCreateSemaphore(-1, 0, 0));
  _finished.reset(ZYNSysSemaphore::ZYNSysCreateSemaphore(-1, 0, 0));
  if (!_queued || !_finished) return;
  _processors = processors;
  // The walk's thread digests too: one worker for each processor would leave a thread
  // waiting for a core, often one that holds a lock the others want.
  _threaded = QRTStartWorkers("digest", &ZYNInsDigestPool::_WorkerMain, this, processors - 1, _workers) > 0;
}

void ZYNInsDigestPool::AllowColdReaders(bool allowed) {
  _coldAllowed = allowed && _threaded && !QRTThreads::IsProcessorsNumberSet();
}

// A page here and there out of memory (or marked for read-ahead, which a read that must
// not wait also refuses) is no cold device: one chunk in sixteen, and a few, is.
bool ZYNInsDigestPool::_IsCold() const {
  int misses = _misses.load(std::memory_order_relaxed);
  return misses >= 4 && misses * 16 >= _probes.load(std::memory_order_relaxed);
}

// Started by the listing's or the walk's thread, the only one that touches the list of workers.
void ZYNInsDigestPool::JoinColdReaders() {
  if (_coldJoined || !_coldAllowed || !_IsCold()) return;
  _coldJoined = true;
  int more = GetMostWorkers() - static_cast<int>(_workers.size());
  if (more > 0) QRTStartWorkers("read", &ZYNInsDigestPool::_WorkerMain, this, more, _workers);
}

ZYNInsDigestPool::~ZYNInsDigestPool() {
  if (!_threaded) return;
  _stop.store(true, std::memory_order_release);
  for (size_t i = 0; i < _workers.size(); ++i) _queued->Signal();
  // What is left in the queue is dropped with the jobs, which are not ours.
  for (std::unique_ptr<QRTThreads>& worker : _workers) worker->Join();
}

void ZYNInsDigestPool::Add(ZYNInsDigestJob* jobs, size_t count) {
  if (!_threaded || count == 0) return;
  size_t chunks = (count + S_chunkSize - 1) / S_chunkSize;
  size_t number = _chunksAdded.fetch_add(chunks, std::memory_order_relaxed);
  ZYNInsDigestJob* last = nullptr;
  for (size_t at = 0; at < count; at += S_chunkSize, ++number) {
    ZYNInsDigestJob& lead = jobs[at];
    lead.chunk = static_cast<unsigned>(std::min(S_chunkSize, count - at));
    // The first batches, then one in sixteen: enough to see a cold device soon, at a
    // call per 128 files once the volume has shown itself warm.
    lead.probe = number < 64 || number % 16 == 0;
    lead.nextChunk = nullptr;
    if (last != nullptr) last->nextChunk = &lead;
    last = &lead;
  }
  {
    QRTSpinLockScope queue(_queueLock);
    if (_last != nullptr) {
      _last->nextChunk = jobs;
    } else {
      _first = jobs;
    }
    _last = last;
  }
  Wake(chunks);
}

void ZYNInsDigestPool::Wake(size_t count) {
  if (!_threaded) return;
  for (size_t i = 0; i < count; ++i) _queued->Signal();
}

bool ZYNInsDigestPool::DigestQueued() {
  if (!_threaded) return false;
  long long started = ZYNInsSerialShare::Start();
  bool digested = _DoQueuedChunk(_callerHand);
  if (digested) ZYNInsSerialShare::AddShareableSince(started);
  return digested;
}

int ZYNInsDigestPool::_WorkerMain(void* pool) {
  static_cast<ZYNInsDigestPool*>(pool)->_Work();
  return 0;
}

// Every open and close takes the lock of the table of descriptors it goes through. Shared
// by all threads, that lock is what many cores wait on for small files, so a worker
// takes a table of its own. What the copy holds is the other threads': closed here, so
// that a file they close is closed for good. Where the system refuses, the shared table
// serves as before.
static void sOwnDescriptorTable() {
#if defined(__SANITIZE_THREAD__)
  // ThreadSanitizer knows a descriptor by its number across the process: each worker's
  // own descriptor 4 would be one shared by all, raced for.
  return;
#endif
  if (unshare(CLONE_FILES) == 0) close_range(3, ~0U, 0);
}

void ZYNInsDigestPool::_Work() {
  sOwnDescriptorTable();
  QRTWidenThreadHeap(S_heapWidening);
  FolderAtHand hand;
  for (;;) {
    _queued->Wait();
    if (_stop.load(std::memory_order_acquire)) return;
    ZYNInsPoolErrands* errands = _errands.load(std::memory_order_acquire);
    if (errands != nullptr && errands->RunOne()) continue;
    // The walk may have taken the chunk this count stood for.
    if (_DoQueuedChunk(hand)) _finished->Signal();
  }
}

bool ZYNInsDigestPool::_DoQueuedChunk(FolderAtHand& hand) {
  ZYNInsDigestJob* lead;
  {
    QRTSpinLockScope queue(_queueLock);
    lead = _first;
    if (lead == nullptr) return false;
    _first = lead->nextChunk;
    if (_first == nullptr) _last = nullptr;
  }
  unsigned count = lead->chunk;
  bool probe = lead->probe;
  for (unsigned i = 0; i < count; ++i) {
    ZYNInsDigestJob& job = lead[i];
    // A worker has no one to throw to: the walk throws for it when it takes the job.
    try {
      _Digest(job, i == 0 && probe, hand);
    } catch (...) {
      job.thrown = std::current_exception();
    }
  }
  // The chunk finished at once: its jobs are of one folder, which counts them once.
  _Finish(lead, count);
  for (unsigned i = 0; i < count; ++i) lead[i].done.store(true, std::memory_order_release);
  return true;
}

int ZYNInsDigestPool::FolderAtHand::Fd(ZYNInsDigestFolder const& folder) {
  if (_fd >= 0 && _serial == folder.serial) return _fd;
  Close();
  int fd = open(folder.narrowPath.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    ZYNInsThrowIfRunFault(errno);
    return -1;
  }
  _fd = fd;
  _serial = folder.serial;
  return fd;
}

void ZYNInsDigestPool::FolderAtHand::Close() {
  if (_fd >= 0) close(_fd);
  _fd = -1;
}

void ZYNInsDigestPool::_Digest(ZYNInsDigestJob& job, bool probe, FolderAtHand& hand) {
  {
    ZYNInsEntryInputFile input(hand.Fd(*job.folder), job.name);
    if (probe && _coldAllowed && !_coldJoined.load(std::memory_order_relaxed)) {
      _probes.fetch_add(1, std::memory_order_relaxed);
      input.ProbeMemory(&_misses);
    }
    job.hash = ZYNAdmSHA256::GetHash(input);
    job.lastWriteTime = input.GetLastWriteTime();
    job.bytesRead = input.GetBytesRead();
  }
  // Without workers the reason stays where the digest put it, on the walk's own stack.
  if (job.hash.IsEmpty() && _threaded && !ZYNAdmError::IsStackEmpty()) {
    job.failure.reset(new ZYNInsDigestJob::Failure(ZYNInsDigestJob::Failure::At(0)));
    ZYNAdmError::Pop();
  }
}

void ZYNInsDigestPool::_Finish(ZYNInsDigestJob* jobs, unsigned count) {
  ZYNInsPoolErrands* errands = _errands.load(std::memory_order_acquire);
  if (errands != nullptr) errands->Finish(jobs, count);
}

ZYNInsDigestJob const& ZYNInsDigestPool::Take(ZYNInsDigestJob& job) {
  if (!_threaded) {
    _Digest(job, false, _callerHand);
    _Finish(&job, 1);
    return job;
  }
  JoinColdReaders();
  // Rather than wait, the walk digests what is still queued, the chunk it needs among them.
  while (!job.done.load(std::memory_order_acquire)) {
    if (!DigestQueued()) _finished->Wait();
  }
  if (job.thrown) std::rethrow_exception(job.thrown);
  if (job.failure) job.failure->PushAgain();
  return job;
}
