#ifndef ZYN_MEDIA_ZYNINSDIGESTPOOL_H
#define ZYN_MEDIA_ZYNINSDIGESTPOOL_H

// ZYNInsDigestPool.h - the digests of a volume's files, computed on every core and taken
// back one by one in the order of the walk.

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "DString.h"

class QRTMutex;
class QRTThreads;
class ZYNSysSemaphore;

// A folder whose files wait for their digest. Its descriptor is closed by whoever
// digests its last file; a folder listed without keeping one is opened again by path.
struct ZYNInsDigestFolder {
  ZYNInsDigestFolder() = default;
  ~ZYNInsDigestFolder();
  ZYNInsDigestFolder(ZYNInsDigestFolder const&) = delete;
  ZYNInsDigestFolder& operator=(ZYNInsDigestFolder const&) = delete;

  std::atomic<int> fd{-1};
  std::atomic<int> pending{0};  // files of the folder not digested yet
  std::string narrowPath;       // set where `fd` was not kept
};

// One file: its folder and name in, its digest out.
struct ZYNInsDigestJob {
  // The reason a worker pushed, kept whole to be pushed again by the walk.
  struct Failure {
    DString message;
    int type;
    int hresult;
    int errorCode;
  };

  ZYNInsDigestFolder* folder = nullptr;
  char const* name = nullptr;  // in the folder's listing, which outlives the pool
  DString hash;                // empty on failure
  long long lastWriteTime = 0;  // as the open file gave it
  std::unique_ptr<Failure> failure;
};

// Workers take the jobs in order, a few at a time; Take hands each result to the walk
// in that same order. With one processor (or QRTSysMultiThreading=FALSE) no thread is
// started and Take digests the file itself, exactly when the walk reaches it.
class ZYNInsDigestPool {
 public:
  // The jobs must stay where they are until the pool is destroyed.
  explicit ZYNInsDigestPool(std::vector<ZYNInsDigestJob>& jobs);
  // Stops the workers, dropping whatever was digested ahead, and waits for them.
  ~ZYNInsDigestPool();

  // Job `index` once digested; its hash is empty on failure, and the reason the
  // digesting thread pushed is then pushed, unchanged, on the calling thread's stack.
  ZYNInsDigestJob const& Take(size_t index);

  int GetWorkerCount() const { return static_cast<int>(_workers.size()); }

 private:
  ZYNInsDigestPool(ZYNInsDigestPool const&) = delete;
  ZYNInsDigestPool& operator=(ZYNInsDigestPool const&) = delete;

  static int _WorkerMain(void* pool);
  void _Work();
  void _Digest(ZYNInsDigestJob& job);
  int _FolderFd(ZYNInsDigestFolder& folder);

  std::vector<ZYNInsDigestJob>& _jobs;
  size_t _chunkCount;
  std::unique_ptr<std::atomic<bool>[]> _chunkDone;
  std::atomic<size_t> _nextChunk{0};
  std::atomic<bool> _stop{false};
  std::unique_ptr<ZYNSysSemaphore> _chunkFinished;  // one signal for each chunk done
  std::unique_ptr<QRTMutex> _reopen;                // folders opened again by path
  std::vector<std::unique_ptr<QRTThreads>> _workers;
};

#endif
