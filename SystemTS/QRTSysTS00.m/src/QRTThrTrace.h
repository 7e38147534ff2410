#ifndef ZYN_SYSTEMTS_QRTTHRTRACE_H
#define ZYN_SYSTEMTS_QRTTHRTRACE_H

#include <atomic>
#include <cstdint>

// The diagnostic channel of the locks and threads. It depends on nothing else in the
// system because the first mutex of the process initialises it.

// Switches: null until thread_trace_init has run; the int is -1 when on, 0 when off.
extern std::atomic<int*> QRTThrDebugOn;
extern std::atomic<int*> QRTSckDebugOn;

// Destination: 0 none, 1 stdout, 2 stderr, 3 socket. Fixed once the switches are published.
extern std::atomic<int> thr_out;
extern std::atomic<int> debug_fd;
extern std::atomic<int> thr_inf;

int thread_trace_init();
int thread_cnx(char const* host, short port);
void thread_trace(char const* format, ...) __attribute__((format(printf, 1, 2)));
void socket_trace(char const* format, ...) __attribute__((format(printf, 1, 2)));
void thread_error(char const* format, ...) __attribute__((format(printf, 1, 2)));
void socket_error(char const* format, ...) __attribute__((format(printf, 1, 2)));
void thread_traceIt(char const* unused, ...);
void thread_trace_end();

// The cheap test every event site makes before it formats anything.
inline bool QRTThrTraceIsOn() {
  int* on = QRTThrDebugOn.load(std::memory_order_acquire);
  return on != nullptr && *on != 0;
}

// Addresses appear in the events through "%x": the low 32 bits of the pointer.
inline unsigned int QRTThrTraceAddr(void const* address) {
  return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(address));
}

#endif
