#ifndef ZYN_SYSTEMTS_QRTWORKERS_H
#define ZYN_SYSTEMTS_QRTWORKERS_H

// QRTWorkers.h - a set of joinable threads running one function on one argument.

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "QRTThreads.h"

// Starts up to `count` joinable threads named `name`, each calling function(argument),
// and adds those that started to `workers`; stops at the first that can't be created.
// Gives the number started.
int QRTStartWorkers(char const* name, int (*function)(void*), void* argument, int count,
                    std::vector<std::unique_ptr<QRTThreads>>& workers);

// Grows the calling thread's heap by `bytes` up front, then gives the memory back: a
// worker that allocates much then grows it without further calls to the system.
void QRTWidenThreadHeap(size_t bytes);

// Calls work(first, last) over [0, count) in ranges of `rangeSize`, taken in turn by the
// calling thread and up to GetProcessorsNumber() - 1 workers; returns when every range is
// done. With one processor (QRTSysMultiThreading=FALSE), or a count of one range, the
// calling thread does it all, in order. `work` must not touch what another range does.
void QRTForEachRange(char const* name, size_t count, size_t rangeSize,
                     std::function<void(size_t first, size_t last)> const& work);

#endif
