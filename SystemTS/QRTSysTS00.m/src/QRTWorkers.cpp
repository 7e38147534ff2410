// QRTWorkers.cpp - joinable threads started together for one piece of work.
#include "QRTWorkers.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <mutex>

#include "ZYNInsSerialShare.h"

int QRTStartWorkers(char const* name, int (*function)(void*), void* argument, int count,
                    std::vector<std::unique_ptr<QRTThreads>>& workers) {
  int started = 0;
  for (; started < count; ++started) {
    std::unique_ptr<QRTThreads> worker(new QRTThreads(name, argument, 1, 0, 0));
    worker->SetFunction(function);
    worker->Run(0);
    // A thread that could not be created has no id; joining it would wait for ever.
    if (worker->GetThreadId() == pthread_t()) break;
    workers.push_back(std::move(worker));
  }
  return started;
}

// A thread's heap other than the first grows by the page, and each growth changes the
// protection of its memory under the lock of the whole address space: with many threads
// allocating, their page faults queue behind those calls. Grown once by the megabyte, the
// heap keeps its size's protection when the blocks are freed (only their pages go back),
// and later growth up to it costs no call.
void QRTWidenThreadHeap(size_t bytes) {
  size_t const S_block = 120 * 1024;  // below the size the allocator maps apart
  void* blocks[256];
  size_t count = 0;
  for (; count < sizeof blocks / sizeof blocks[0] && count * S_block < bytes; ++count) {
    blocks[count] = std::malloc(S_block);
    if (blocks[count] == nullptr) break;
  }
  // First to last: the blocks join each other, and only the last joins the heap's top,
  // whose pages then go back at once.
  for (size_t i = 0; i < count; ++i) std::free(blocks[i]);
}

namespace {

struct SRangeWork {
  size_t count;
  size_t rangeSize;
  std::function<void(size_t, size_t)> const* work;
  std::atomic<size_t> next{0};
  std::mutex failedLock;
  std::exception_ptr failed;  // the first exception of any thread, thrown again by the caller

  void Run() {
    try {
      for (size_t first = next.fetch_add(rangeSize); first < count; first = next.fetch_add(rangeSize)) {
        (*work)(first, std::min(count, first + rangeSize));
      }
    } catch (...) {
      next.store(count);  // the others stop at their next range
      std::lock_guard<std::mutex> lock(failedLock);
      if (!failed) failed = std::current_exception();
    }
  }
  static int sWorkerMain(void* self) {
    static_cast<SRangeWork*>(self)->Run();
    return 0;
  }
};

}  // namespace

void QRTForEachRange(char const* name, size_t count, size_t rangeSize,
                     std::function<void(size_t first, size_t last)> const& work) {
  if (rangeSize == 0) rangeSize = 1;
  size_t ranges = (count + rangeSize - 1) / rangeSize;
  size_t helpers = std::min(ranges, static_cast<size_t>(std::max(QRTThreads::GetProcessorsNumber(), 1))) - 1;
  if (ranges <= 1 || helpers == 0) {
    if (count > 0) work(0, count);
    return;
  }
  SRangeWork shared;
  shared.count = count;
  shared.rangeSize = rangeSize;
  shared.work = &work;
  std::vector<std::unique_ptr<QRTThreads>> workers;
  QRTStartWorkers(name, &SRangeWork::sWorkerMain, &shared, static_cast<int>(helpers), workers);
  // The caller's ranges are work shared out like the helpers', not work kept in order.
  long long started = workers.empty() ? -1 : ZYNInsSerialShare::Start();
  shared.Run();
  ZYNInsSerialShare::AddShareableSince(started);
  for (std::unique_ptr<QRTThreads>& worker : workers) worker->Join();
  if (shared.failed) std::rethrow_exception(shared.failed);
}
