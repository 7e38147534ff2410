#ifndef ZYN_FUZZ_FUZZFOLDER_H
#define ZYN_FUZZ_FUZZFOLDER_H

// The fuzz target's scratch folder, made on first use under $TMPDIR where given (a memory
// file system spares the disk a file per input) and removed at exit.
#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

inline char const* FuzzFolder(char const* name) {
  // Plain bytes, not a string: the folder is removed at exit, after static objects are gone.
  static char S_folder[4096];
  if (S_folder[0] == '\0') {
    char const* top = std::getenv("TMPDIR");
    std::snprintf(S_folder, sizeof S_folder, "%s/%s.XXXXXX", top != nullptr && *top != '\0' ? top : "/tmp", name);
    if (mkdtemp(S_folder) == nullptr) std::abort();
    std::atexit([] { std::filesystem::remove_all(S_folder); });
  }
  return S_folder;
}

#endif
