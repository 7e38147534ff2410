#ifndef ZYN_APP_ZYNINSFINDINGSFILES_H
#define ZYN_APP_ZYNINSFINDINGSFILES_H

// ZYNInsFindingsFiles.h - the files of -json and -junit, begun once the command line is
// accepted and written at the end of every run that got that far.

class ZYNInsFindingsFiles {
 public:
  // Notes the start and the paths given, and whether every finding must be kept.
  static void Begin();
  // Writes the files asked for, each whole or not at all. Gives `status`, or 2 where a
  // file could not be written (the reason displayed).
  static int Finish(int status);
};

#endif
