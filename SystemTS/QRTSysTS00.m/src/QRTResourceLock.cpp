// QRTResourceLock.cpp - a lock on a resource, the handle.
#include "QRTResourceLock.h"

#include "QRTResourceLockImpl.h"

QRTResourceLock::QRTResourceLock(unsigned char) : _p(new QRTResourceLockImpl()) {}

QRTResourceLock::~QRTResourceLock() {
  delete _p;
  _p = nullptr;
}

void QRTResourceLock::ReadLock() {
  if (_p != nullptr) _p->ReadLock();
}

void QRTResourceLock::ReadUnlock() {
  if (_p != nullptr) _p->ReadUnlock();
}

void QRTResourceLock::WriteLock() {
  if (_p != nullptr) _p->WriteLock();
}

void QRTResourceLock::WriteUnlock() {
  if (_p != nullptr) _p->WriteUnlock();
}
