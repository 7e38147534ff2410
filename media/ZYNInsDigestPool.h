#ifndef ZYN_MEDIA_ZYNINSDIGESTPOOL_H
#define ZYN_MEDIA_ZYNINSDIGESTPOOL_H

// ZYNInsDigestPool.h - the digests of a volume's files, computed on every core while the
// volume is still being listed, and taken back one by one in the order of the walk.

#include <atomic>
#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "DString.h"
#include "QRTSpinLock.h"

class QRTThreads;
class ZYNSysSemaphore;

// A folder whose files wait for their digest. Each thread that digests some of them opens
// the folder itself, by path: no descriptor passes from one thread to another, so each
// worker may keep a table of descriptors of its own.
struct ZYNInsDigestFolder {
  ZYNInsDigestFolder();
  ZYNInsDigestFolder(ZYNInsDigestFolder const&) = delete;
  ZYNInsDigestFolder& operator=(ZYNInsDigestFolder const&) = delete;

  std::string narrowPath;
  // Unique in the run: a folder kept open by a thread is not taken for a later one that
  // came to lie at the same address.
  unsigned long long const serial;
};

// One file: its folder and name in, its digest out.
struct ZYNInsDigestJob {
  // The reason a worker pushed, kept whole to be pushed again by the walk.
  struct Failure {
    // The record at `index` of this thread's stack (0 the top), and the same pushed again
    // on the calling thread's.
    static Failure At(int index);
    void PushAgain() const;

    DString message;
    int type;
    int hresult;
    int errorCode;
  };

  ZYNInsDigestFolder* folder = nullptr;
  char const* name = nullptr;   // in the folder's listing, which outlives the pool
  void* owner = nullptr;        // whose file it is: the errands' to know, for Finish
  DString hash;                 // empty on failure
  long long lastWriteTime = 0;  // as the open file gave it
  long long bytesRead = 0;
  std::unique_ptr<Failure> failure;
  std::exception_ptr thrown;  // a fault of the run on the digesting thread, for Take to throw
  std::atomic<bool> done{false};
  // Where the job leads a chunk of the queue: the jobs in it, whether its first file is
  // probed for a cold device, and the chunk queued after it.
  unsigned chunk = 0;
  bool probe = false;
  ZYNInsDigestJob* nextChunk = nullptr;
};

// Work that goes before the digests because it makes more of them (the listing of a
// volume's folders): a worker woken runs a piece of it, where one is waiting, before it
// takes a digest.
class ZYNInsPoolErrands {
 public:
  virtual ~ZYNInsPoolErrands() = default;
  // Runs one piece; false where none is waiting.
  virtual bool RunOne() = 0;
  // What digests done go on to make, on the thread that digested them, before the walk
  // may take them: called for every job, failed (its hash empty) or thrown included, a
  // chunk of one folder's jobs at a time. It throws nothing: a fault goes into the job,
  // for the walk to throw.
  virtual void Finish(ZYNInsDigestJob* jobs, unsigned count) {
    (void)jobs;
    (void)count;
  }
};

// Workers (threads of the system layer) take the jobs from a data queue, a folder's few
// files at a time, in the order they are added; Take hands each result to the walk in its
// own order. With one processor (or QRTSysMultiThreading=FALSE) no thread is started and
// Take digests the file itself, exactly when the walk reaches it. Where the files turn
// out not to be in memory (a device read cold), more readers join, so that the device
// has many reads in flight while the processors wait for it.
class ZYNInsDigestPool {
 public:
  ZYNInsDigestPool();
  // Stops the workers, dropping whatever was digested ahead, and waits for them.
  ~ZYNInsDigestPool();

  // Queues `count` jobs, which stay where they are until the pool is destroyed. Any
  // thread may add.
  void Add(ZYNInsDigestJob* jobs, size_t count);
  // Errands the workers run before digests; they must outlive the pool.
  void SetErrands(ZYNInsPoolErrands* errands) { _errands.store(errands, std::memory_order_release); }
  // Wakes a worker for each of `count` errands just queued.
  void Wake(size_t count);
  // One queued chunk digested by the calling thread; false where none was waiting (or
  // there are no workers).
  bool DigestQueued();
  // Starts the readers for a cold device once the probes have shown one. Only the
  // thread that lists or walks the volume calls it.
  void JoinColdReaders();
  // `job` once digested and finished; its hash is empty on failure (or once Finish took
  // it), and the reason the digesting thread pushed is then pushed, unchanged, on the
  // calling thread's stack. What the
  // digest of the job threw on any thread (memory, descriptors) is thrown here, on the walk's.
  ZYNInsDigestJob const& Take(ZYNInsDigestJob& job);

  // The threads the pool may come to have, the readers for a cold device included.
  int GetMostWorkers() const { return _threaded ? (_processors > S_coldReaders ? _processors : S_coldReaders) : 0; }
  // Readers for a cold device are started only while `allowed` (descriptors to spare),
  // and never beyond a count of threads the user set.
  void AllowColdReaders(bool allowed);

  // Threads in all, for the cold device: as many reads in flight as a fast device serves well.
  static int const S_coldReaders = 16;

 private:
  ZYNInsDigestPool(ZYNInsDigestPool const&) = delete;
  ZYNInsDigestPool& operator=(ZYNInsDigestPool const&) = delete;

  // The folder whose files a thread digests, open on that thread alone, kept for the
  // next chunk of the same folder.
  class FolderAtHand {
   public:
    FolderAtHand() = default;
    ~FolderAtHand() { Close(); }
    FolderAtHand(FolderAtHand const&) = delete;
    FolderAtHand& operator=(FolderAtHand const&) = delete;
    // The folder's descriptor, opened where another was at hand; -1 where it can't be
    // opened (a fault of the run is thrown).
    int Fd(ZYNInsDigestFolder const& folder);
    void Close();

   private:
    unsigned long long _serial = 0;
    int _fd = -1;
  };

  static int _WorkerMain(void* pool);
  void _Work();
  bool _DoQueuedChunk(FolderAtHand& hand);
  void _Digest(ZYNInsDigestJob& job, bool probe, FolderAtHand& hand);
  void _Finish(ZYNInsDigestJob* jobs, unsigned count);
  bool _IsCold() const;

  // The chunks queued, first in first out, linked through their leading jobs: queuing
  // allocates nothing.
  QRTSpinLock _queueLock;
  ZYNInsDigestJob* _first = nullptr;
  ZYNInsDigestJob* _last = nullptr;
  std::atomic<size_t> _chunksAdded{0};
  std::unique_ptr<ZYNSysSemaphore> _queued;    // one count for each chunk queued
  std::unique_ptr<ZYNSysSemaphore> _finished;  // one count for each chunk digested
  std::atomic<bool> _stop{false};
  std::atomic<ZYNInsPoolErrands*> _errands{nullptr};
  // Chunks whose first file was probed, and those of them not in memory.
  std::atomic<int> _probes{0};
  std::atomic<int> _misses{0};
  bool _threaded = false;
  bool _coldAllowed = false;
  std::atomic<bool> _coldJoined{false};  // readers started, by the walk's thread, once
  int _processors = 0;
  std::vector<std::unique_ptr<QRTThreads>> _workers;
  // The listing's or the walk's thread (one at a time, sharing the process's table).
  FolderAtHand _callerHand;
};

#endif
