// QRTResourceLockImpl.cpp - a lock on a resource, the body.
#include "QRTResourceLockImpl.h"

#include "QRTThrTrace.h"
#include "QRTThreadsRecord.h"

QRTResourceLockImpl::QRTResourceLockImpl() : _mutex(0, 1, 0), _noReaders(0, -1), _readers(0) {}

QRTResourceLockImpl::~QRTResourceLockImpl() {}

// Under trace every operation counts itself in the calling thread's wait counter. A read
// unlock counts twice and never takes it back; nothing reads the counter.
static void sCount(int delta) {
  QRTThreadsRecord* record = QRTSysMTCurrentRecord();
  if (record != nullptr) record->waitCounter += delta;
}

void QRTResourceLockImpl::ReadLock() {
  bool traced = QRTThrTraceIsOn();
  if (traced) {
    sCount(1);
    thread_trace("evt=readW | m=0x%x \n", QRTThrTraceAddr(this));
  }
  _mutex.Lock();
  _readers++;
  _mutex.Unlock();
  if (traced) {
    thread_trace("evt=readS | m=0x%x \n", QRTThrTraceAddr(this));
    sCount(-1);
  }
}

void QRTResourceLockImpl::ReadUnlock() {
  bool traced = QRTThrTraceIsOn();
  if (traced) sCount(1);
  _mutex.Lock();
  if (_readers-- == 1) _noReaders.Broadcast();
  _mutex.Unlock();
  if (traced) {
    thread_trace("evt=readU | m=0x%x \n", QRTThrTraceAddr(this));
    sCount(1);
  }
}

void QRTResourceLockImpl::WriteLock() {
  bool traced = QRTThrTraceIsOn();
  if (traced) {
    sCount(1);
    thread_trace("evt=writW | m=0x%x \n", QRTThrTraceAddr(this));
  }
  _mutex.Lock();
  while (_readers != 0) {
    // Reset under the mutex: a last reader's broadcast after the unlock still counts.
    _noReaders.Reset();
    _mutex.Unlock();
    _noReaders.Wait(-1);
    _mutex.Lock();
  }
  if (traced) {
    thread_trace("evt=writS | m=0x%x \n", QRTThrTraceAddr(this));
    sCount(-1);
  }
}

void QRTResourceLockImpl::WriteUnlock() {
  bool traced = QRTThrTraceIsOn();
  if (traced) sCount(1);
  _mutex.Unlock();
  _noReaders.Broadcast();
  if (traced) {
    thread_trace("evt=writU | m=0x%x \n", QRTThrTraceAddr(this));
    sCount(-1);
  }
}
