#ifndef ZYN_TESTS_SUPPORT_ZYNTESTTEMPTREE_H
#define ZYN_TESTS_SUPPORT_ZYNTESTTEMPTREE_H

// A real folder under /tmp for one test, removed whole afterwards, and the small
// conversions and probes that the file tests share.
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "DString.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmError.h"

inline DString ZYNTestD(std::string const& text) { return ZYNAdmCodePage::ConvertStrToUcs(text.c_str()); }

inline std::string ZYNTestS(DString const& text) {
  char* narrow = ZYNAdmCodePage::ConvertUcsToStr(text);
  std::string result(narrow != nullptr ? narrow : "");
  ZYNAdmCodePage::FreeAndNull(narrow);
  return result;
}

// The whole error stack, oldest first, left empty.
inline std::vector<std::string> ZYNTestDrainErrors() {
  std::vector<std::string> messages;
  while (!ZYNAdmError::IsStackEmpty()) messages.insert(messages.begin(), ZYNTestS(ZYNAdmError::Pop()));
  return messages;
}

class ZYNTestTempTree {
 public:
  ZYNTestTempTree() {
    char pattern[] = "/tmp/zynfiles.XXXXXX";
    _root = mkdtemp(pattern) != nullptr ? pattern : "/nonexistent";
    ZYNAdmError::FlushStack();
  }
  ~ZYNTestTempTree() { nftw(_root.c_str(), sRemove, 16, FTW_DEPTH | FTW_PHYS); }
  std::string const& Root() const { return _root; }
  std::string Path(std::string const& relative) const { return _root + "/" + relative; }
  DString DPath(std::string const& relative) const { return ZYNTestD(Path(relative)); }
  std::string File(std::string const& relative, std::string const& content = "") const {
    std::ofstream(Path(relative), std::ios::binary) << content;
    return Path(relative);
  }
  std::string Dir(std::string const& relative) const {
    mkdir(Path(relative).c_str(), 0755);
    return Path(relative);
  }
  void Link(std::string const& target, std::string const& relative) const {
    if (symlink(target.c_str(), Path(relative).c_str()) != 0) std::perror("symlink");
  }
  void Fifo(std::string const& relative) const { mkfifo(Path(relative).c_str(), 0644); }
  std::string Read(std::string const& relative) const {
    std::stringstream all;
    all << std::ifstream(Path(relative), std::ios::binary).rdbuf();
    return all.str();
  }
  bool Exists(std::string const& relative) const {
    struct stat buffer;
    return lstat(Path(relative).c_str(), &buffer) == 0;
  }
  unsigned Mode(std::string const& relative) const {
    struct stat buffer;
    return stat(Path(relative).c_str(), &buffer) == 0 ? buffer.st_mode & 07777 : 0;
  }

 private:
  static int sRemove(char const* path, struct stat const*, int, struct FTW*) { return std::remove(path), 0; }
  std::string _root;
};

#endif
