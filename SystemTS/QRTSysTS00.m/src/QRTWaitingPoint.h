#ifndef ZYN_SYSTEMTS_QRTWAITINGPOINT_H
#define ZYN_SYSTEMTS_QRTWAITINGPOINT_H

struct QRTWaitingPointData;

// An event threads wait on until it is broadcast. A signalled point doesn't block; an
// auto-reset point lets go only those waiting at the moment of the broadcast.
class QRTWaitingPoint {
 public:
  QRTWaitingPoint(int autoReset, int notSignalled);
  ~QRTWaitingPoint();

  // -1 waits without limit. 0 when released or already signalled, -1 on timeout.
  int Wait(int timeoutMs);
  int Broadcast();
  int Reset();

 private:
  QRTWaitingPoint(QRTWaitingPoint const&) = delete;
  QRTWaitingPoint& operator=(QRTWaitingPoint const&) = delete;

  int _WaitWithoutLimit(QRTWaitingPointData* data);
  int _WaitWithLimit(QRTWaitingPointData* data, int timeoutMs);

  QRTWaitingPointData* _data;
};

#endif
