// ZYNInsDigestPool.cpp - worker threads of the system layer digesting files while the
// volume is listed and walked; the walk takes the results in its own order.
#include "ZYNInsDigestPool.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "QRTMutex.h"
#include "QRTThreads.h"
#include "QRTWorkers.h"
#include "ZYNAdmError.h"
#include "ZYNAdmSHA256.h"
#include "ZYNInsEntryInputFile.h"
#include "ZYNInsRunFault.h"
#include "ZYNInsSerialShare.h"
#include "ZYNSysSemaphore.h"
#include "ZYNSysTSDataQueue.h"

// Files queued at a time: enough to keep the queue cold, few enough that the walk rarely
// waits behind a slow file.
static size_t const S_chunkSize = 8;

static long long sThreadNanoseconds() {
  struct timespec now;
  if (clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now) != 0) return 0;
  return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

ZYNInsDigestJob::Failure ZYNInsDigestJob::Failure::At(int index) {
  return Failure{ZYNAdmError::GetError(index), ZYNAdmError::GetErrorType(index), ZYNAdmError::GetHRESULT(index),
                 ZYNAdmError::GetErrorCode(index)};
}

void ZYNInsDigestJob::Failure::PushAgain() const {
  ZYNAdmError::Push(message, static_cast<ZYNAdmErrorType>(type), hresult, errorCode);
}

ZYNInsDigestFolder::~ZYNInsDigestFolder() {
  int descriptor = fd.exchange(-1);
  if (descriptor >= 0) close(descriptor);
}

void ZYNInsDigestFolder::Release() {
  if (holds.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  int last = fd.exchange(-1);
  if (last >= 0) close(last);
}

ZYNInsDigestPool::ZYNInsDigestPool() : _reopen(new QRTMutex(0, 0, 0)) {
  int processors = QRTThreads::GetProcessorsNumber();
  if (processors < 2) return;
  _queue.reset(ZYNSysTSDataQueue::CreateEmptyQueue(0, 0));
  _queued.reset(ZYNSysSemaphore::ZYNSysCreateSemaphore(-1, 0, 0));
  _finished.reset(ZYNSysSemaphore::ZYNSysCreateSemaphore(-1, 0, 0));
  if (!_queued || !_finished) return;
  _processors = processors;
  _threaded = QRTStartWorkers("digest", &ZYNInsDigestPool::_WorkerMain, this, processors, _workers) > 0;
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

// Started by the walk's thread, the only one that touches the list of workers.
void ZYNInsDigestPool::_JoinColdReaders() {
  if (_coldJoined || !_coldAllowed || !_IsCold()) return;
  _coldJoined = true;
  int more = GetMostWorkers() - static_cast<int>(_workers.size());
  if (more > 0) QRTStartWorkers("read", &ZYNInsDigestPool::_WorkerMain, this, more, _workers);
}

ZYNInsDigestPool::~ZYNInsDigestPool() {
  if (!_threaded) return;
  _stop.store(true, std::memory_order_release);
  for (size_t i = 0; i < _workers.size(); ++i) _queued->Signal();
  for (std::unique_ptr<QRTThreads>& worker : _workers) worker->Join();
  // What is left in the queue is dropped; the chunks themselves are ours.
  void* item = nullptr;
  while (_queue->PopLast(&item, 0) == 1) {
  }
}

void ZYNInsDigestPool::Add(ZYNInsDigestJob* jobs, size_t count) {
  if (!_threaded) return;
  _JoinColdReaders();
  for (size_t at = 0; at < count; at += S_chunkSize) {
    // The first batches, then one in sixteen: enough to see a cold device soon, at a
    // call per 128 files once the volume has shown itself warm.
    bool probe = _chunks.size() < 64 || _chunks.size() % 16 == 0;
    _chunks.emplace_back(new Chunk{jobs + at, std::min(S_chunkSize, count - at), probe});
    _queue->PushFirst(_chunks.back().get());
    _queued->Signal();
  }
}

int ZYNInsDigestPool::_WorkerMain(void* pool) {
  static_cast<ZYNInsDigestPool*>(pool)->_Work();
  return 0;
}

void ZYNInsDigestPool::_Work() {
  for (;;) {
    _queued->Wait();
    if (_stop.load(std::memory_order_acquire)) return;
    // The walk may have taken the chunk this count stood for.
    if (_DoQueuedChunk()) _finished->Signal();
  }
}

bool ZYNInsDigestPool::_DoQueuedChunk() {
  void* item = nullptr;
  if (_queue->PopLast(&item, 0) != 1) return false;
  Chunk const& chunk = *static_cast<Chunk*>(item);
  for (size_t i = 0; i < chunk.count; ++i) {
    ZYNInsDigestJob& job = chunk.first[i];
    // A worker has no one to throw to: the walk throws for it when it takes the job.
    try {
      _Digest(job, i == 0 && chunk.probe);
    } catch (...) {
      job.thrown = std::current_exception();
      job.folder->Release();
    }
    job.done.store(true, std::memory_order_release);
  }
  return true;
}

int ZYNInsDigestPool::_FolderFd(ZYNInsDigestFolder& folder) {
  int fd = folder.fd.load(std::memory_order_acquire);
  if (fd >= 0 || folder.narrowPath.empty()) return fd;
  // Kept in the folder, so that its last digest closes it, with or without workers.
  _reopen->Lock();
  fd = folder.fd.load(std::memory_order_acquire);
  if (fd < 0) {
    fd = open(folder.narrowPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    folder.fd.store(fd, std::memory_order_release);
  }
  int error = errno;
  _reopen->Unlock();
  if (fd < 0) ZYNInsThrowIfRunFault(error);
  return fd;
}

void ZYNInsDigestPool::_Digest(ZYNInsDigestJob& job, bool probe) {
  ZYNInsDigestFolder& folder = *job.folder;
  {
    ZYNInsEntryInputFile input(_FolderFd(folder), job.name);
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
  folder.Release();
}

ZYNInsDigestJob const& ZYNInsDigestPool::Take(ZYNInsDigestJob& job) {
  if (!_threaded) {
    _Digest(job, false);
    return job;
  }
  _JoinColdReaders();
  // Rather than wait, the walk digests what is still queued, the chunk it needs among them.
  while (!job.done.load(std::memory_order_acquire)) {
    long long started = ZYNInsSerialShare::IsEnabled() ? sThreadNanoseconds() : -1;
    bool digested = _DoQueuedChunk();
    if (started >= 0 && digested) ZYNInsSerialShare::AddShareable(sThreadNanoseconds() - started);
    if (!digested) _finished->Wait();
  }
  if (job.thrown) std::rethrow_exception(job.thrown);
  if (job.failure) job.failure->PushAgain();
  return job;
}
