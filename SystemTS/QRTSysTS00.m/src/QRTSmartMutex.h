#ifndef ZYN_SYSTEMTS_QRTSMARTMUTEX_H
#define ZYN_SYSTEMTS_QRTSMARTMUTEX_H

#include "QRTMutex.h"

// A recursive mutex whose body is made on first use when `deferred` is not 0.
class QRTSmartMutex : public QRTMutex {
 public:
  explicit QRTSmartMutex(int deferred) : QRTMutex(0, 1, deferred) {}
};

#endif
