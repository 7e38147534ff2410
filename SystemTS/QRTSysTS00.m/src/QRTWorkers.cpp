// QRTWorkers.cpp - joinable threads started together for one piece of work.
#include "QRTWorkers.h"

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
