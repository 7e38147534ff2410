#ifndef ZYN_SYSTEMTS_QRTWORKERS_H
#define ZYN_SYSTEMTS_QRTWORKERS_H

// QRTWorkers.h - a set of joinable threads running one function on one argument.

#include <memory>
#include <vector>

#include "QRTThreads.h"

// Starts up to `count` joinable threads named `name`, each calling function(argument),
// and adds those that started to `workers`; stops at the first that can't be created.
// Gives the number started.
int QRTStartWorkers(char const* name, int (*function)(void*), void* argument, int count,
                    std::vector<std::unique_ptr<QRTThreads>>& workers);

#endif
