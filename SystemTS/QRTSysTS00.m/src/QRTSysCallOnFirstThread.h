#ifndef ZYN_SYSTEMTS_QRTSYSCALLONFIRSTTHREAD_H
#define ZYN_SYSTEMTS_QRTSYSCALLONFIRSTTHREAD_H

// Registers a function to run when the first thread object is made, or runs it at once
// if that has happened. No lock: registration happens before any second thread exists.
int QRTSysCallOnFirstThread(void (*function)());

// Runs the registered functions in order of registration, once.
void QRTSysCallRegisteredFunctionsOnFirstThread();

#endif
