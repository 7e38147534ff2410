#ifndef ZYN_APP_ZYNINSSERIALSHARE_H
#define ZYN_APP_ZYNINSSERIALSHARE_H

// ZYNInsSerialShare.h - with ZYN_SERIAL_SHARE set, the run ends by writing to standard
// error the CPU time of its first thread (the one that keeps walk order) against that
// of all its threads: the share no added core can shorten.
class ZYNInsSerialShare {
 public:
  // Registers the report at exit; nothing where the variable is unset.
  static void EnableFromEnvironment();
  // CPU time the first thread spends on work any thread could have taken (digests of
  // files the workers had not reached yet, folders listed), told apart in the report:
  // the thread's clock where that thread is the first and the report is on, else -1...
  static long long Start();
  // ...and the time since then, counted where it was started.
  static void AddShareableSince(long long started);
};

#endif
