// ZYNAdmFolderEntry.cpp - a file's folder, and its entry there made durable.
#include "ZYNAdmFolderEntry.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

std::string ZYNAdmFolderOf(std::string const& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
}

void ZYNAdmSyncFolder(std::string const& path) {
  int fd = open(ZYNAdmFolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

int ZYNAdmLinkNameless(int fd, std::string const& name) {
  char source[64];
  std::snprintf(source, sizeof source, "/proc/self/fd/%d", fd);
  if (linkat(AT_FDCWD, source, AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) return 0;
  if (errno == EEXIST) return -1;
  return linkat(fd, "", AT_FDCWD, name.c_str(), AT_EMPTY_PATH);
}
