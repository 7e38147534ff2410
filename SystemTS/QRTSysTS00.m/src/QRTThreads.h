#ifndef ZYN_SYSTEMTS_QRTTHREADS_H
#define ZYN_SYSTEMTS_QRTTHREADS_H

#include <pthread.h>

struct QRTThreadsRecord;

// A thread: a handle with a virtual interface on one heap record. A subclass overrides
// Begin or sets a function; Run starts it, Join waits for it. Every operation on a
// handle without a record is a quiet no-op with the result stated.
class QRTThreads {
 public:
  QRTThreads(char const* name, void* userArgument, int joinable, int ignored, int alreadyRunning);
  virtual ~QRTThreads();

  // 0 after an attempt to start, 1 when already started or running, or without a record.
  virtual int Run(unsigned long unused);
  // Calls the function with the argument: its result, 0 without a function.
  virtual int Begin(void* argument);
  virtual int SetFunction(int (*function)(void*));
  // 0, or the error of pthread_join.
  virtual int Join();
  // Ends the thread with `code`: exits when called on the thread itself, cancels otherwise.
  virtual int End(int code);
  // Cancels a running thread; the return code stays as it was.
  virtual int Kill(int unused);
  virtual int IsRunning();
  virtual int GetStatus();
  virtual pthread_t GetThreadId();
  // 1 while running or without a record, otherwise the code the thread ended with.
  virtual int GetThreadReturnCode();
  virtual int EmitTrace(char const* message);

  static pthread_t GetCurrentThreadId();
  static int CompareThreadId(pthread_t const& left, pthread_t const& right);
  static QRTThreads* GetCurrentThread();
  static QRTThreads* GetMainThread();
  // 0 when QRTSysMultiThreading is "FALSE", -1 otherwise; decided on the first call.
  static int IsMultiThreadingAllowed();
  static int GetProcessorsNumber();
  // True where QRTSysThreads gave the count: the user's number, not to be exceeded.
  static bool IsProcessorsNumberSet();
  static void* InitThreads(void* arguments);

 private:
  static void* _RunThread(void* arguments);
  QRTThreads(QRTThreads const&) = delete;
  QRTThreads& operator=(QRTThreads const&) = delete;

  void _EndStatus(int code, bool storeCode);

  QRTThreadsRecord* _record;
};

// The POSIX key under which each thread holds its record; made once, no destructor.
pthread_key_t QRTSysMTGetTheKey();

#endif
