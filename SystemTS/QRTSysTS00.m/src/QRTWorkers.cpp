// QRTWorkers.cpp - joinable threads started together for one piece of work.
#include "QRTWorkers.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>

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
  shared.Run();
  for (std::unique_ptr<QRTThreads>& worker : workers) worker->Join();
  if (shared.failed) std::rethrow_exception(shared.failed);
}
