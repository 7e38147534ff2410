// QRTSysCallOnFirstThread.cpp - functions registered to run when the first thread object is made.
#include "QRTSysCallOnFirstThread.h"

#include <cstdlib>
#include <cstring>

#include "ZYNResult.h"

typedef void (*QRTSysInitFunc)();

static int S_QRTSysFuncsCalled = 0;
static QRTSysInitFunc* S_QRTSysInitFuncs = nullptr;
static int S_QRTSysInitFuncsNb = 0;
static int S_QRTSysInitFuncsCapacity = 0;

static const int kGrowth = 10;

static void _QRTSysFuncsCleanup() {
  free(S_QRTSysInitFuncs);
  S_QRTSysInitFuncs = nullptr;
  S_QRTSysInitFuncsNb = 0;
  S_QRTSysInitFuncsCapacity = 0;
}

static int sGrow() {
  int capacity = S_QRTSysInitFuncsCapacity + kGrowth;
  void* grown = realloc(S_QRTSysInitFuncs, sizeof(QRTSysInitFunc) * static_cast<size_t>(capacity));
  if (grown == nullptr) return ZYN_E_FAIL;
  S_QRTSysInitFuncs = static_cast<QRTSysInitFunc*>(grown);
  memset(S_QRTSysInitFuncs + S_QRTSysInitFuncsCapacity, 0, sizeof(QRTSysInitFunc) * kGrowth);
  S_QRTSysInitFuncsCapacity = capacity;
  return 0;
}

int QRTSysCallOnFirstThread(void (*function)()) {
  if (function == nullptr) return ZYN_E_FAIL;
  if (S_QRTSysFuncsCalled == 1) {
    function();
    return 0;
  }
  if (S_QRTSysInitFuncs == nullptr) atexit(_QRTSysFuncsCleanup);
  if (S_QRTSysInitFuncsNb == S_QRTSysInitFuncsCapacity && sGrow() != 0) return ZYN_E_FAIL;
  S_QRTSysInitFuncs[S_QRTSysInitFuncsNb++] = function;
  return 0;
}

void QRTSysCallRegisteredFunctionsOnFirstThread() {
  for (int i = 0; i < S_QRTSysInitFuncsNb && S_QRTSysInitFuncs[i] != nullptr; i++) S_QRTSysInitFuncs[i]();
  S_QRTSysFuncsCalled = 1;
  _QRTSysFuncsCleanup();
}
