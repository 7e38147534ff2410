// ZYNInsDigestPool.cpp - worker threads of the system layer digesting files ahead of the
// walk; the walk takes the results in its own order.
#include "ZYNInsDigestPool.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "QRTMutex.h"
#include "QRTThreads.h"
#include "ZYNAdmError.h"
#include "ZYNAdmSHA256.h"
#include "ZYNInsEntryInputFile.h"
#include "ZYNSysSemaphore.h"

// Files taken at a time by a worker: enough to keep the shared counter cold, few enough
// that the walk rarely waits at the start or behind a slow file.
static size_t const S_chunkSize = 8;

ZYNInsDigestFolder::~ZYNInsDigestFolder() {
  int descriptor = fd.exchange(-1);
  if (descriptor >= 0) close(descriptor);
}

ZYNInsDigestPool::ZYNInsDigestPool(std::vector<ZYNInsDigestJob>& jobs)
    : _jobs(jobs), _chunkCount((jobs.size() + S_chunkSize - 1) / S_chunkSize) {
  int processors = QRTThreads::GetProcessorsNumber();
  if (processors < 2 || _chunkCount < 2) return;

  _chunkDone.reset(new std::atomic<bool>[_chunkCount]);
  for (size_t chunk = 0; chunk < _chunkCount; ++chunk) _chunkDone[chunk].store(false, std::memory_order_relaxed);
  _chunkFinished.reset(ZYNSysSemaphore::ZYNSysCreateSemaphore(-1, 0, 0));
  _reopen.reset(new QRTMutex(0, 0, 0));
  if (!_chunkFinished) return;

  for (int i = 0; i < processors; ++i) {
    std::unique_ptr<QRTThreads> worker(new QRTThreads("digest", this, 1, 0, 0));
    worker->SetFunction(&ZYNInsDigestPool::_WorkerMain);
    // A thread that could not be created has no id; joining it would wait for ever.
    worker->Run(0);
    if (worker->GetThreadId() == pthread_t()) break;
    _workers.push_back(std::move(worker));
  }
}

ZYNInsDigestPool::~ZYNInsDigestPool() {
  _stop.store(true, std::memory_order_release);
  for (std::unique_ptr<QRTThreads>& worker : _workers) worker->Join();
}

int ZYNInsDigestPool::_WorkerMain(void* pool) {
  static_cast<ZYNInsDigestPool*>(pool)->_Work();
  return 0;
}

void ZYNInsDigestPool::_Work() {
  while (!_stop.load(std::memory_order_acquire)) {
    size_t chunk = _nextChunk.fetch_add(1, std::memory_order_relaxed);
    if (chunk >= _chunkCount) return;
    size_t end = std::min(_jobs.size(), (chunk + 1) * S_chunkSize);
    for (size_t index = chunk * S_chunkSize; index < end; ++index) _Digest(_jobs[index]);
    _chunkDone[chunk].store(true, std::memory_order_release);
    _chunkFinished->Signal();
  }
}

int ZYNInsDigestPool::_FolderFd(ZYNInsDigestFolder& folder) {
  int fd = folder.fd.load(std::memory_order_acquire);
  if (fd >= 0 || folder.narrowPath.empty()) return fd;
  if (!_reopen) return open(folder.narrowPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  _reopen->Lock();
  fd = folder.fd.load(std::memory_order_acquire);
  if (fd < 0) {
    fd = open(folder.narrowPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    folder.fd.store(fd, std::memory_order_release);
  }
  _reopen->Unlock();
  return fd;
}

void ZYNInsDigestPool::_Digest(ZYNInsDigestJob& job) {
  ZYNInsDigestFolder& folder = *job.folder;
  int fd = _FolderFd(folder);
  {
    ZYNInsEntryInputFile input(fd, job.name);
    job.hash = ZYNAdmSHA256::GetHash(input);
    job.lastWriteTime = input.GetLastWriteTime();
  }
  // Without workers the reason stays where the digest put it, on the walk's own stack.
  if (job.hash.IsEmpty() && !_workers.empty() && !ZYNAdmError::IsStackEmpty()) {
    job.failure.reset(new ZYNInsDigestJob::Failure{ZYNAdmError::GetError(0), ZYNAdmError::GetErrorType(0),
                                                   ZYNAdmError::GetHRESULT(0), ZYNAdmError::GetErrorCode(0)});
    ZYNAdmError::Pop();
  }
  if (folder.pending.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  int last = folder.fd.exchange(-1);
  if (last >= 0) close(last);
}

ZYNInsDigestJob const& ZYNInsDigestPool::Take(size_t index) {
  if (_workers.empty()) {
    _Digest(_jobs[index]);
    return _jobs[index];
  }
  size_t chunk = index / S_chunkSize;
  while (!_chunkDone[chunk].load(std::memory_order_acquire)) {
    // Behind the workers' claims, the walk waits; ahead of them, it does the work itself.
    if (_nextChunk.load(std::memory_order_relaxed) <= chunk) {
      size_t mine = _nextChunk.fetch_add(1, std::memory_order_relaxed);
      if (mine < _chunkCount) {
        size_t end = std::min(_jobs.size(), (mine + 1) * S_chunkSize);
        for (size_t i = mine * S_chunkSize; i < end; ++i) _Digest(_jobs[i]);
        _chunkDone[mine].store(true, std::memory_order_release);
        continue;
      }
    }
    _chunkFinished->Wait();
  }
  ZYNInsDigestJob& job = _jobs[index];
  if (job.failure) {
    ZYNInsDigestJob::Failure const& failure = *job.failure;
    ZYNAdmError::Push(failure.message, static_cast<ZYNAdmErrorType>(failure.type), failure.hresult, failure.errorCode);
  }
  return job;
}
