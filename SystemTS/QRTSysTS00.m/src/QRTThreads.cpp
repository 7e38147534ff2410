// QRTThreads.cpp - threads: start, end, join, and the record each thread holds.
#include "QRTThreads.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "QRTListThreads.h"
#include "QRTMutex.h"
#include "QRTSysCallOnFirstThread.h"
#include "QRTSysMTGlobalMutex.h"
#include "QRTSysUsableCpus.h"
#include "QRTThrTrace.h"
#include "QRTThreadsRecord.h"
#include "QRTWaitingPoint.h"
#include "ZYNSysContext.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

typedef QRTThreadsRecord Rec;

static pthread_once_t S_keyOnce = PTHREAD_ONCE_INIT;
static pthread_key_t S_threadKey;
// No record can exist before the key, so the waits of a process without threads skip it.
static std::atomic<bool> S_keyMade{false};

static std::atomic<int> S_MultiThreadingAllowed{1};
static std::atomic<QRTThreads*> S_mainThread{nullptr};
static std::atomic<bool> S_firstConstructionDone{false};
static bool S_firstConstructionStarted = false;  // under the global mutex

static void sMakeKey() {
  pthread_key_create(&S_threadKey, nullptr);
  S_keyMade.store(true, std::memory_order_release);
}

pthread_key_t QRTSysMTGetTheKey() {
  pthread_once(&S_keyOnce, sMakeKey);
  return S_threadKey;
}

QRTThreadsRecord* QRTSysMTCurrentRecord() {
  if (!S_keyMade.load(std::memory_order_acquire)) return nullptr;
  return static_cast<QRTThreadsRecord*>(pthread_getspecific(S_threadKey));
}

void QRTSysMTMarkBlocked(QRTThreadsRecord* record, bool blocked) {
  if (record == nullptr) return;
  if (blocked) {
    record->status.fetch_or(Rec::kBlocked);
  } else {
    record->status.fetch_and(~Rec::kBlocked);
  }
}

namespace {
// Holds a record's mutex for a scope; a thread that exits or is cancelled unwinds it too.
class RecordLock {
 public:
  explicit RecordLock(QRTThreadsRecord* record) : _mutex(record->mutex) { _mutex->Lock(); }
  ~RecordLock() { _mutex->Unlock(); }

 private:
  QRTMutex* _mutex;
};

// AddressSanitizer marks stack frames and clears the marks as functions return. A thread
// that is cancelled or exits is unwound by force, past those returns, and the marks left
// behind trip the sanitizer's own clean-up of the thread; they are cleared on the way out.
class StackMarksCleaner {
#if defined(__SANITIZE_ADDRESS__)
 public:
  StackMarksCleaner() : _low(nullptr) {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
    void* low = nullptr;
    size_t size = 0;
    pthread_attr_getstack(&attributes, &low, &size);
    pthread_attr_destroy(&attributes);
    _low = static_cast<char*>(low);
  }
  ~StackMarksCleaner() {
    char* frame = static_cast<char*>(__builtin_frame_address(0));
    if (_low != nullptr && _low < frame) __asan_unpoison_memory_region(_low, static_cast<size_t>(frame - _low));
  }

 private:
  char* _low;
#endif
};
}  // namespace

// Clears and sets status bits in one step, keeping a concurrent change of the blocked bit.
static int32_t sChangeStatus(QRTThreadsRecord* record, int32_t clear, int32_t set) {
  int32_t old = record->status.load();
  while (!record->status.compare_exchange_weak(old, (old & ~clear) | set)) {
  }
  return old;
}

static bool sHasId(pthread_t id) { return id != pthread_t(); }

// On the first construction in the process. The global mutex is recursive, so making the
// main thread's object from here finds the block already started.
static void sFirstConstruction() {
  if (S_firstConstructionDone.load(std::memory_order_acquire)) return;
  QRTMutex* global = GetMyGlobalMutex();
  global->Lock();
  if (!S_firstConstructionStarted) {
    S_firstConstructionStarted = true;
    QRTThreads::IsMultiThreadingAllowed();
    QRTSysMTGetTheKey();
    ListOfThreads.CreateMutex();
    QRTThreads::GetMainThread();
    QRTSysCallRegisteredFunctionsOnFirstThread();
    S_firstConstructionDone.store(true, std::memory_order_release);
  }
  global->Unlock();
}

static QRTWaitingPoint* sMakeResetPoint() {
  QRTWaitingPoint* point = new QRTWaitingPoint(0, -1);
  point->Reset();
  return point;
}

QRTThreads::QRTThreads(char const* name, void* userArgument, int joinable, int, int alreadyRunning) : _record(nullptr) {
  sFirstConstruction();
  QRTThreadsRecord* record = new QRTThreadsRecord();
  record->owner = this;
  record->startArgs = new QRTThreadsStartArgs{nullptr, userArgument, this};
  record->status.store(Rec::kCreated);
  record->returnCode = 1;
  record->mutex = new QRTMutex(0, 1, 0);
  record->startPoint = sMakeResetPoint();
  if (joinable == 0) record->endPoint = sMakeResetPoint();
  pthread_attr_init(&record->attributes);
  _record = record;
  ListOfThreads.AddThread(this);
  if (QRTThrTraceIsOn()) {
    if (name != nullptr) {
      thread_trace("evt=tcreat | thr=0x%x | nam=%s\n", QRTThrTraceAddr(this), name);
    } else {
      thread_trace("evt=tcreat | thr=0x%x | nam='anonymous'\n", QRTThrTraceAddr(this));
    }
  }
  if (alreadyRunning != 0) {
    fputs(
        " Argument IThreadAlreadyRunning in QRTThreads constructor should never be used ! "
        "Please contact QRTThreads responsible.",
        stdout);
    RecordLock lock(record);
    record->status.fetch_or(Rec::kRunning);
    pthread_setspecific(QRTSysMTGetTheKey(), record);
    record->threadId = pthread_self();
  }
  if (joinable != 0) record->status.fetch_or(Rec::kJoinable);
  record->context = ZYNSysContextGetCurrentContext();
}

QRTThreads::~QRTThreads() {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return;
  // Off the list before taking the record's mutex: FindThread takes them the other way round.
  ListOfThreads.RemoveThread(this);
  QRTMutex* mutex = record->mutex;
  mutex->Lock();
  if (QRTThrTraceIsOn()) thread_trace("evt=tdel | thr=0x%x\n", QRTThrTraceAddr(this));
  pthread_attr_destroy(&record->attributes);
  delete record->startArgs;
  delete record->startPoint;
  delete record->endPoint;
  if (QRTSysMTCurrentRecord() == record) pthread_setspecific(QRTSysMTGetTheKey(), nullptr);
  mutex->Unlock();
  delete mutex;
  delete record;
  _record = nullptr;
}

int QRTThreads::Run(unsigned long) {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return 1;
  RecordLock lock(record);
  int32_t old = sChangeStatus(record, Rec::kStartRequested | Rec::kEnded | Rec::kJoinRequested, Rec::kStartRequested);
  if ((old & (Rec::kStartRequested | Rec::kRunning)) != 0) return 1;
  bool joinable = (old & Rec::kJoinable) != 0;
  pthread_attr_setdetachstate(&record->attributes, joinable ? PTHREAD_CREATE_JOINABLE : PTHREAD_CREATE_DETACHED);
  pthread_t id;
  if (pthread_create(&id, &record->attributes, InitThreads, record->startArgs) != 0) {
    fputs("Thread not created !\n", stderr);
    fflush(stderr);
    return 0;
  }
  record->threadId = id;
  return 0;
}

// Set on a thread of ours once its function has returned: End returns to the thread's
// start instead of exiting.
static thread_local bool S_endByReturn = false;

// The last stop of a thread's exceptions: the pools hand theirs to the thread that waits
// for the work. Memory that ran out anywhere else, the thread's own records included,
// ends the run as it would on the first thread, rather than in std::terminate.
void* QRTThreads::InitThreads(void* arguments) {
  try {
    return _RunThread(arguments);
  } catch (std::bad_alloc const&) {
    static char const S_message[] = "\n\nError\nInternal error\n\n";
    fflush(stdout);
    if (write(STDOUT_FILENO, S_message, sizeof(S_message) - 1) < 0) _exit(2);
    _exit(2);
  }
}

void* QRTThreads::_RunThread(void* arguments) {
  QRTThreadsStartArgs* start = static_cast<QRTThreadsStartArgs*>(arguments);
  if (start == nullptr || start->owner == nullptr || start->owner->_record == nullptr) return nullptr;
  QRTThreads* owner = start->owner;
  QRTThreadsRecord* record = owner->_record;
  [[maybe_unused]] StackMarksCleaner cleaner;
  pthread_setspecific(QRTSysMTGetTheKey(), record);
  if (QRTThrTraceIsOn()) thread_trace("evt=trun \n");
  {
    RecordLock lock(record);
    sChangeStatus(record, Rec::kStartRequested | Rec::kRunning, Rec::kRunning);
    record->startPoint->Broadcast();
    ZYNSysContextSetCurrentContext(record->context);
  }
  int result = owner->Begin(start->userArgument);
  // End exits the thread; only a subclass that overrides it comes back here. Called from
  // here, it lets the thread return instead: pthread_exit loads the unwinder, which
  // aborts the process where memory is short.
  S_endByReturn = true;
  owner->End(result);
  {
    RecordLock lock(record);
    ZYNSysContextSetCurrentContext(nullptr);
  }
  return reinterpret_cast<void*>(static_cast<intptr_t>(result));
}

int QRTThreads::Begin(void* argument) {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return -1;
  int (*function)(void*) = nullptr;
  {
    RecordLock lock(record);
    function = record->startArgs->function;
  }
  if (function == nullptr) return 0;
  return function(argument);
}

int QRTThreads::SetFunction(int (*function)(void*)) {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return -1;
  RecordLock lock(record);
  record->startArgs->function = function;
  return 0;
}

// The status of an ended thread. End keeps the code; Kill leaves the code as it was.
void QRTThreads::_EndStatus(int code, bool storeCode) {
  sChangeStatus(_record, Rec::kRunning | Rec::kEnded, Rec::kEnded);
  if (storeCode) _record->returnCode = code;
}

int QRTThreads::End(int code) {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return 0;
  pthread_t id;
  {
    RecordLock lock(record);
    if ((record->status.load() & Rec::kRunning) == 0) return 0;
    _EndStatus(code, true);
    id = record->threadId;
    if (QRTThrTraceIsOn()) {
      thread_trace("evt=tend | thr=0x%x | tid=%-d \n", QRTThrTraceAddr(this), static_cast<int>(id));
    }
    if (record->endPoint != nullptr) {
      record->endPoint->Broadcast();
    } else if (QRTThrTraceIsOn()) {
      thread_trace("evt=tend_no_bcasr | thr=0x%x \n", QRTThrTraceAddr(this));
    }
  }
  // The record may be gone from here on: a joiner woken by the end point can delete it.
  if (pthread_equal(id, pthread_self())) {
    if (S_endByReturn) return 0;
    pthread_exit(reinterpret_cast<void*>(static_cast<intptr_t>(code)));
  }
  pthread_cancel(id);
  return 0;
}

int QRTThreads::Kill(int) {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return 0;
  pthread_t id;
  {
    RecordLock lock(record);
    if ((record->status.load() & Rec::kRunning) == 0) return 0;
    _EndStatus(0, false);
    if (record->endPoint != nullptr) record->endPoint->Broadcast();
    id = record->threadId;
  }
  pthread_cancel(id);
  return 0;
}

int QRTThreads::Join() {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return -1;
  QRTWaitingPoint* startPoint = nullptr;
  QRTWaitingPoint* endPoint = nullptr;
  int32_t old = 0;
  pthread_t id;
  {
    RecordLock lock(record);
    startPoint = record->startPoint;
    endPoint = record->endPoint;
    old = sChangeStatus(record, 0, Rec::kJoinRequested);
    id = record->threadId;
  }
  // Joined before and neither starting nor running: nothing to wait for.
  if ((old & Rec::kJoinRequested) != 0 && (old & (Rec::kStartRequested | Rec::kRunning)) == 0) return 0;
  bool traced = QRTThrTraceIsOn();
  if (traced) thread_trace("evt=tjoin | thr=0x%x\n", QRTThrTraceAddr(this));
  int result = 0;
  if (endPoint != nullptr) {
    endPoint->Wait(-1);
    // Written on every join through an end point, error form and all.
    if (traced)
      thread_trace("evt=err_endwp | rtn=join |thr=0x%x | tgt=%d \n", QRTThrTraceAddr(this), static_cast<int>(id));
  } else {
    if ((old & Rec::kStartRequested) != 0) startPoint->Wait(-1);
    // A thread that was never created has no id to join.
    result = sHasId(id) ? pthread_join(id, nullptr) : ESRCH;
    if (result != 0 && traced) {
      thread_trace("evt=err | rtn=join |thr=0x%x | tgt=%d | rc=%d\n", QRTThrTraceAddr(this), static_cast<int>(id),
                   result);
    }
  }
  if (traced) thread_trace("evt=ejoin | thr=0x%x\n", QRTThrTraceAddr(this));
  return result;
}

int QRTThreads::IsRunning() {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return 0;
  return (record->status.load() & Rec::kRunning) != 0 ? 1 : 0;
}

int QRTThreads::GetStatus() {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return 0;
  return record->status.load();
}

pthread_t QRTThreads::GetThreadId() {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return static_cast<pthread_t>(-1);
  RecordLock lock(record);
  return record->threadId;
}

int QRTThreads::GetThreadReturnCode() {
  QRTThreadsRecord* record = _record;
  if (record == nullptr) return 1;
  RecordLock lock(record);
  if ((record->status.load() & Rec::kRunning) != 0) return 1;
  return record->returnCode;
}

int QRTThreads::EmitTrace(char const* message) {
  if (QRTThrTraceIsOn()) thread_trace("evt=msg | thr=0x%x | msg=%s\n", QRTThrTraceAddr(this), message);
  return 0;
}

pthread_t QRTThreads::GetCurrentThreadId() { return pthread_self(); }

int QRTThreads::CompareThreadId(pthread_t const& left, pthread_t const& right) { return pthread_equal(left, right); }

QRTThreads* QRTThreads::GetCurrentThread() {
  QRTThreadsRecord* record = QRTSysMTCurrentRecord();
  return record != nullptr ? record->owner : nullptr;
}

QRTThreads* QRTThreads::GetMainThread() {
  QRTThreads* main = S_mainThread.load(std::memory_order_acquire);
  if (main != nullptr) return main;
  sFirstConstruction();
  QRTMutex* global = GetMyGlobalMutex();
  global->Lock();
  main = S_mainThread.load(std::memory_order_acquire);
  if (main == nullptr) {
    main = new QRTThreads("MainThread", nullptr, 0, 0, 0);
    QRTThreadsRecord* record = main->_record;
    {
      RecordLock lock(record);
      record->status.fetch_or(Rec::kRunning);
      record->threadId = pthread_self();
      pthread_setspecific(QRTSysMTGetTheKey(), record);
    }
    S_mainThread.store(main, std::memory_order_release);
  }
  global->Unlock();
  return main;
}

int QRTThreads::IsMultiThreadingAllowed() {
  int allowed = S_MultiThreadingAllowed.load(std::memory_order_acquire);
  if (allowed != 1) return allowed;
  char const* value = getenv("QRTSysMultiThreading");
  allowed = value != nullptr && strcmp(value, "FALSE") == 0 ? 0 : -1;
  S_MultiThreadingAllowed.store(allowed, std::memory_order_release);
  return allowed;
}

// The count QRTSysThreads gives (1 to 1024), or 0. Taken once: every pool of the run is
// sized alike.
static int sThreadsWanted() {
  static int const S_wanted = [] {
    char const* value = getenv("QRTSysThreads");
    if (value == nullptr || *value == '\0') return 0;
    char* end = nullptr;
    long wanted = strtol(value, &end, 10);
    return *end == '\0' && wanted >= 1 && wanted <= 1024 ? static_cast<int>(wanted) : 0;
  }();
  return S_wanted;
}

// QRTSysThreads=n sets the count for a run; otherwise the processors this process may use.
int QRTThreads::GetProcessorsNumber() {
  if (IsMultiThreadingAllowed() == 0) return 1;
  static int const S_count = sThreadsWanted() > 0 ? sThreadsWanted() : QRTSysUsableCpus();
  return S_count;
}

bool QRTThreads::IsProcessorsNumberSet() { return IsMultiThreadingAllowed() == 0 || sThreadsWanted() > 0; }
