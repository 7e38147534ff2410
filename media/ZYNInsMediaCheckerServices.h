#ifndef ZYN_MEDIA_ZYNINSMEDIACHECKERSERVICES_H
#define ZYN_MEDIA_ZYNINSMEDIACHECKERSERVICES_H

// ZYNInsMediaCheckerServices.h - the operations on a media; each block below names the
// file that holds it.

#include "DString.h"

class DStrings;
class ZYNAdmXmlElement;

// Results of GetMediaXmlView.
enum ZYNInsScanResult {
  ZYNInsScanDone = 0,
  ZYNInsScanFailed = 1,         // reason in `errors`
  ZYNInsScanNotIdentified = 2,  // a volume, in a quiet run; reason in `errors`
  ZYNInsScanCancelled = 3,      // at a prompt; nobody tells a reason
};

// Results of GetCDElt: the walk of a volume's folders.
enum ZYNInsWalkResult {
  ZYNInsWalkDone = 0,
  ZYNInsWalkStopped = 1,
};

// Results of CheckIfCorrectCD.
enum ZYNInsVolumeCheck {
  ZYNInsVolumeRight = 1,
  ZYNInsVolumeFailed = 2,  // reason pushed
  ZYNInsVolumeCancelled = 3,
};

// Results of AskForCD.
enum ZYNInsAnswer {
  ZYNInsAnswerGoOn = 0,
  ZYNInsAnswerStop = 1,
};

// Static members only: a run has one media.
class ZYNInsMediaCheckerServices {
 public:
  // --- The two jobs (ServicesGenerate.cpp, ServicesCheck.cpp). Each returns the exit
  // status of the run and has displayed its own failures.
  static int GenerateMode();
  static int CheckMode();

  // --- Relocation of a physical media's check (app/ZYNInsMediaCheckerServicesRelocation.cpp).
  // Replaces the process by a copy of the executable in `tempDir` (the system's
  // temporary folder when empty). 0 no failure, 1 failure with the reason on the stack.
  static int RestartFromTempExecutable(DStrings args, DString tempDir);
  // false when the file was removed; true on failure, with the reason on the stack.
  static bool RemoveTempExecutable(DString path);

  // --- Volume identification and prompts (ServicesIdentify.cpp).
  // A ZYNInsVolumeCheck: the right volume, its path stored; a failure with the reason
  // pushed; a cancel.
  static int CheckIfCorrectCD(int cdIndex, DString expectedHash, DString expectedRelData);
  // Asks the user for volume `cdIndex`, showing `message` (a default text when empty);
  // a custom path typed is stored at once in `path` and in the options. A ZYNInsAnswer:
  // stop on a cancel, five wrong answers, standard input ended, or a quiet run.
  static int AskForCD(int cdIndex, DString message, DString& path);

  // --- File-by-file comparison (ServicesCompare.cpp).
  // Appends one line per difference between the reference of volume 1 and the fresh
  // view, in the order: missing and altered files, wrong times, unexpected files. The
  // File elements dealt with leave both trees.
  static void GetErrors(ZYNAdmXmlElement& reference, ZYNAdmXmlElement& current, DString& errors);
  // The two most frequent time differences that can be a clock shift; 0 where none.
  static void GetTimeShift(DStrings shifts, long long& first, long long& second);
  static void GetUnexpectedFiles(ZYNAdmXmlElement current, DString& errors);
  // 1 when both serialise to the same bytes; 0 otherwise, with a reason on the stack.
  static int CompareXmlElements(ZYNAdmXmlElement a, ZYNAdmXmlElement b);

  // --- Console (ServicesDisplay.cpp).
  // Empties the calling thread's error stack onto the console as one block, oldest
  // record first and `message` last.
  static void DisplayError(DString message);

  // --- Scan of the volumes into the tree of a media (ServicesScan.cpp).
  // A ZYNInsScanResult. Check mode hands in a copy of the reference.
  static int GetMediaXmlView(ZYNAdmXmlElement& media, DString& errors);
  // One volume's folders below `relativePath`, walked and digested as the scan does; a
  // ZYNInsWalkResult. The File elements land in `cdElement` in path order. The scan
  // itself reads and walks whole volumes; this entry is for tests.
  static int GetCDElt(DString root, DString relativePath, int cdIndex, ZYNAdmXmlElement& cdElement, DString& errors,
                      int& fileCount, int totalFiles);
  // Orders the children of `element` by `compare`, stably; the handle ends on a new body.
  static void XmlEltSort(int (*compare)(const ZYNAdmXmlElement&, const ZYNAdmXmlElement&), ZYNAdmXmlElement& element);
  static int CompareEltsByPathAttr(const ZYNAdmXmlElement& a, const ZYNAdmXmlElement& b);

  // --- Generate mode's release text, also read by check mode (ServicesGenerate.cpp).
  // The release information under `element`'s RelData as XML text: 0 no RelData (or
  // text not convertible), 1 done (empty text without release information), -1 failed.
  static int GetRelData(ZYNAdmXmlElement& element, DString& text);

  // --- End of a run (ServicesFinalize.cpp): report, verdict, exit status 0, 1 or 2.
  static int Finalize(DString errors, DString relData);

  // --- Volume folders and reference look-ups (ServicesVolumes.cpp).
  static DString GetRefFilePath();
  // Empty when the volume folders can't be listed.
  static DString GetRefFilePath(DString base, int cdIndex);
  // 1 done, 0 bad folder layout, -1 folder unreadable; the reason is pushed.
  static int GetCDsList(DStrings& names);
  // 1 found; 0 not found, and `found` is then `parent` itself.
  static int GetFirstElement(ZYNAdmXmlElement parent, DString name, ZYNAdmXmlElement& found);

  // --- The reference set's journal (ServicesJournal.cpp): beside the volume folders
  // below `base`, left by a regeneration killed while it swapped the set in.
  static DString GetJournalPath(DString const& base);
  // The set the journal names made whole (old or new) where one is left and can be
  // replayed; nothing to say either way: a run that can't goes on as it would have.
  static void RecoverReferenceSet(DString const& base);

  // --- Volume 1 read ahead (ServicesScan.cpp): on a file tree, listed and digested on
  // other threads while the check reads and proves its reference. The scan of the same
  // path takes it over; any other path, or StopReadAhead, drops it. Nothing is read ahead
  // on one processor, nor where -cds leaves volume 1 out.
  static void StartReadAhead();
  static void StopReadAhead();
};

// One line from standard input, in the system's encoding; its first character is taken
// whatever it is, so an empty line does not end the answer. With the prompts, in
// ServicesIdentify.cpp.
DString GetStdin();

#endif
