#ifndef ZYN_MEDIA_ZYNINSMEDIACHECKERSERVICES_H
#define ZYN_MEDIA_ZYNINSMEDIACHECKERSERVICES_H

#include "DString.h"

class DStrings;
class ZYNAdmXmlElement;

// The operations on a media. Static members only: a run has one media.
class ZYNInsMediaCheckerServices {
 public:
  // Each returns the exit status of the run and has displayed its own failures.
  static int GenerateMode();
  static int CheckMode();

  // Replaces the process by a copy of the executable in `tempDir` (the system's
  // temporary folder when empty). 0 no failure, 1 failure with the reason on the stack.
  static int RestartFromTempExecutable(DStrings args, DString tempDir);
  // false when the file was removed; true on failure, with the reason on the stack.
  static bool RemoveTempExecutable(DString path);

  // Asks the user for volume `cdIndex`, showing `message` (a default text when empty);
  // a custom path typed is stored at once in `path` and in the options. 0 go on, 1
  // cancelled, five wrong answers, standard input ended, or a quiet run.
  static int AskForCD(int cdIndex, DString message, DString& path);

  // Appends one line per difference between the reference of volume 1 and the fresh
  // view, in the order: missing and altered files, wrong times, unexpected files. The
  // File elements dealt with leave both trees.
  static void GetErrors(ZYNAdmXmlElement& reference, ZYNAdmXmlElement& current, DString& errors);
  // The two most frequent time differences that can be a clock shift; 0 where none.
  static void GetTimeShift(DStrings shifts, long long& first, long long& second);
  static void GetUnexpectedFiles(ZYNAdmXmlElement current, DString& errors);
  // 1 when both serialise to the same bytes; 0 otherwise, with a reason on the stack.
  static int CompareXmlElements(ZYNAdmXmlElement a, ZYNAdmXmlElement b);

  // Empties the calling thread's error stack onto the console as one block, oldest
  // record first and `message` last.
  static void DisplayError(DString message);

  // --- Scan of the volumes into the tree of a media (ServicesScan.cpp).
  // 0 done, 1 scan failed (reason in `errors`), 2 volume not identified in a quiet run,
  // 3 cancelled at a prompt. Check mode hands in a deep copy of the reference.
  static int GetMediaXmlView(ZYNAdmXmlElement& media, DString& errors);
  // One folder of a volume, recursing; 0 walked, 1 stopped.
  static int GetCDElt(DString root, DString relativePath, int cdIndex, ZYNAdmXmlElement& cdElement,
                      DString& errors, int& fileCount, int totalFiles);
  // Orders the children of `element` by `compare`, stably; the handle ends on a new body.
  static void XmlEltSort(int (*compare)(const ZYNAdmXmlElement&, const ZYNAdmXmlElement&),
                         ZYNAdmXmlElement& element);
  static int CompareEltsByPathAttr(const ZYNAdmXmlElement& a, const ZYNAdmXmlElement& b);

  // --- Generate mode (ServicesGenerate.cpp).
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

  // --- Volume identification (check mode).
  // 1 right volume, its path stored; 2 failure with the reason pushed; 3 cancelled.
  static int CheckIfCorrectCD(int cdIndex, DString expectedHash, DString expectedRelData);
};

// One line from standard input, in the system's encoding; its first character is taken
// whatever it is, so an empty line does not end the answer.
DString GetStdin();

#endif
