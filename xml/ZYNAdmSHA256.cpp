// ZYNAdmSHA256.cpp - SHA-256 as an output stream, and the digest of a whole input stream.
#include "ZYNAdmSHA256.h"

#include <pthread.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "ZYNAdmError.h"
#include "ZYNAdmInputStream.h"
#include "ZYNAdmSHA256Engine.h"
#include "ZYNResult.h"

// One read of this size is 4096 blocks: whole blocks go to the engine from the read
// buffer without a copy, and the 32-bit bit count of one Update stays far from overflow.
static const int S_readSize = 262144;

namespace {

// One buffer for each thread, kept: a fresh one for each of a million small files would
// cost a mapping and the clearing of its pages every time. It takes a whole huge page:
// the kernel copies a read into 4 KiB pages at several times the cost per byte. Where
// memory is short, an ordinary buffer of one read does; with none, the run can't go on,
// which is no fault of the file. A thread's buffer is freed by a key's destructor when
// the thread ends: a thread_local with a destructor would register it in memory of its
// own, and glibc aborts the process when that can't be had.
static const size_t S_hugePage = 2 << 20;
thread_local unsigned char* S_readBuffer = nullptr;

pthread_key_t sBufferKey() {
  static pthread_key_t const S_key = [] {
    pthread_key_t key;
    pthread_key_create(&key, std::free);
    return key;
  }();
  return S_key;
}

unsigned char* sReadBuffer() {
  if (S_readBuffer != nullptr) return S_readBuffer;
  void* block = nullptr;
  if (posix_memalign(&block, S_hugePage, S_hugePage) == 0) {
    madvise(block, S_hugePage, MADV_HUGEPAGE);
  } else {
    block = std::malloc(S_readSize);
    if (block == nullptr) throw std::bad_alloc();
  }
  pthread_setspecific(sBufferKey(), block);
  S_readBuffer = static_cast<unsigned char*>(block);
  return S_readBuffer;
}

}  // namespace

static const int S_stateNew = 0;
static const int S_stateOpen = 1;
static const int S_stateClosed = 2;

// The caller knows the file and adds its name; this layer only says what went wrong.
static DString sAccessError() {
  ZYNAdmError::Push(DString(L"Access error"), ZYNAdmErrorTypeApplication, ZYN_E_FAIL, 1);
  return DString();
}

ZYNAdmSHA256::ZYNAdmSHA256() : _engine(new (std::nothrow) ZYNAdmSHA256Engine()), _state(S_stateNew), _pendingCount(0) {
  std::memset(_block, 0, sizeof(_block));
}

ZYNAdmSHA256::~ZYNAdmSHA256() { delete _engine; }

int ZYNAdmSHA256::Open() {
  if (_state != S_stateNew || _engine == nullptr) return 0;
  _state = S_stateOpen;
  return 1;
}

int ZYNAdmSHA256::Write(unsigned char* buffer, int count) {
  if (_state != S_stateOpen || buffer == nullptr || count < 0 || _pendingCount > 64 || _engine == nullptr) return -1;
  if (count == 0) return 0;

  const unsigned char* next = buffer;
  unsigned int left = static_cast<unsigned int>(count);
  if (_pendingCount != 0) {
    const unsigned int room = static_cast<unsigned int>(64 - _pendingCount);
    const unsigned int taken = left < room ? left : room;
    std::memcpy(_block + _pendingCount, next, taken);
    _pendingCount += taken;
    if (_pendingCount < 64) return count;
    _engine->Update(_block, 1);
    _pendingCount = 0;
    next += taken;
    left -= taken;
  }

  const unsigned int wholeBlocks = left / 64;
  _engine->Update(next, wholeBlocks);
  next += static_cast<size_t>(wholeBlocks) * 64;
  left -= wholeBlocks * 64;

  std::memcpy(_block, next, left);
  _pendingCount = left;
  return count;
}

int ZYNAdmSHA256::Close() {
  if (_state != S_stateOpen || _engine == nullptr) return 0;
  _state = S_stateClosed;
  _engine->Finalize(_block, static_cast<unsigned int>(_pendingCount));
  return 1;
}

DString ZYNAdmSHA256::GetHash() {
  if (_state != S_stateClosed || _engine == nullptr) return DString();
  return _engine->GetValue();
}

DString ZYNAdmSHA256::GetHash(ZYNAdmInputStream& stream) {
  ZYNAdmSHA256Engine engine;
  if (stream.Open() == 0) return sAccessError();

  unsigned char* buffer = sReadBuffer();

  // A full read means more may follow; anything shorter is the end. A file whose length
  // is a multiple of the read size thus ends with a read of 0 bytes.
  for (;;) {
    const int got = stream.Read(buffer, S_readSize);
    // A failed stream is left open, as it may not be in a state to close. More than
    // was asked for is a broken stream and is not trusted either.
    if (got < 0 || got > S_readSize) return sAccessError();
    if (got < S_readSize) {
      engine.Finalize(buffer, static_cast<unsigned int>(got));
      break;
    }
    engine.Update(buffer, S_readSize / 64);
  }
  if (stream.Close() == 0) return sAccessError();
  return engine.GetValue();
}
