#ifndef ZYN_MEDIA_ZYNINSFINDINGS_H
#define ZYN_MEDIA_ZYNINSFINDINGS_H

// ZYNInsFindings.h - the findings of a run as records (volume, path, kind, values, the
// report's sentence), kept in the order of the report for the files a CI system reads.

#include <vector>

#include "DString.h"
#include "DStrings.h"

// The kinds, in the order of their counts; the first five are about one file.
enum ZYNInsFindingKind {
  ZYNInsFindingMissing = 0,
  ZYNInsFindingAltered,
  ZYNInsFindingTime,
  ZYNInsFindingUnexpected,
  ZYNInsFindingUnreadable,  // a file or folder the scan could not read
  ZYNInsFindingUnidentified,
  ZYNInsFindingReference,  // volume 1's reference unreadable, sealed wrong or of another version
  ZYNInsFindingCancelled,
  ZYNInsFindingRefused,    // -cds names a volume the media lacks
  ZYNInsFindingSignature,  // the reference's signature did not verify
  ZYNInsFindingError,      // any other failure of the run
  ZYNInsFindingKinds
};

struct ZYNInsFinding {
  ZYNInsFindingKind kind;
  int volume;        // 0 where no volume is concerned
  DString path;      // as recorded; for a reference finding, the reference file
  DString expected;  // digest or seconds, where the kind has them
  DString found;     //
  DString sentence;  // the report's words, line end included
};

// What was read of one volume.
struct ZYNInsVolumeTally {
  int volume;
  long long files;
  long long bytes;
};

// What the run and summary records tell beside the findings; the application fills it.
struct ZYNInsRunFacts {
  DString start;  // UTC, as 2026-01-31T23:59:59Z
  double seconds = 0;
  int status = 0;     // the exit status
  DStrings pathKeys;  // the volume paths of the command line, keys as typed
  DStrings paths;
  DString pubkey;  // -pubkey and -sign of the signed reference
  DString sign;
  DString signature;  // the line of a signature verified (key id, trusted comment)
};

// One collection per run, filled on the thread that words the findings. Unless told to
// keep everything (a findings file was asked for), it keeps only what the console shows:
// the first findings and the counts, so that a check without those files pays nothing.
class ZYNInsFindings {
 public:
  static const int kConsoleLines = 20;

  static void KeepAll(bool keep) { _keepAll = keep; }
  static void Reset();

  static void Add(ZYNInsFindingKind kind, int volume, DString const& path, DString const& sentence);
  // The comparison's findings: `parameters` as its sentences have them (volume, path,
  // found, expected).
  static void Add(ZYNInsFindingKind kind, int volume, DStrings const& parameters, DString const& sentence);
  static void Add(ZYNInsFinding const& finding);

  static std::vector<ZYNInsFinding> const& List() { return _list; }
  static long long Count(ZYNInsFindingKind kind) { return _counts[kind]; }
  static long long Total();
  static bool IsRunLevel(ZYNInsFindingKind kind) { return kind >= ZYNInsFindingUnidentified; }
  static wchar_t const* KindName(ZYNInsFindingKind kind);
  // The word of the verdict a run with exit status `status` ended with: PASSED, FAILED,
  // CANCELLED or ERROR (a run that ended without a verdict, or a failed generation).
  static wchar_t const* Verdict(int status);

  // The scan: a volume begun, a file read.
  static void StartVolume(int volume);
  static void FileRead(int volume, long long bytes);
  static std::vector<ZYNInsVolumeTally> const& Volumes() { return _volumes; }

  // After the verdict of a failed check, unless quiet, where the media differs: the
  // first findings, one line each, and their counts on standard error.
  static void PrintOnStderr(DString const& reportPath);

 private:
  static bool _keepAll;
  static std::vector<ZYNInsFinding> _list;
  static long long _counts[ZYNInsFindingKinds];
  static std::vector<ZYNInsVolumeTally> _volumes;
};

#endif
