// ZYNAdmSetJournal.cpp - the journal of a set's swaps, and its replay by the next run.
#include "ZYNAdmSetJournal.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "ZYNAdmFolderEntry.h"

static const char S_Header[] = "replacing-set 1";
static const size_t S_MaxBytes = 64 * 1024;
static const size_t S_MaxMembers = 64;
static const size_t S_MaxPath = 4095;

std::string ZYNAdmSetJournal::Format(std::vector<Member> const& members) {
  std::string text = std::string(S_Header) + "\n" + std::to_string(members.size()) + "\n";
  for (Member const& member : members) {
    text += std::to_string(member.device) + " " + std::to_string(member.inode) + "\n";
    text += member.final + "\n" + member.hidden + "\n";
  }
  return text + "end\n";
}

namespace {
// The lines of the journal one by one; none may be empty or hold a NUL.
struct SLines {
  std::string const& bytes;
  size_t at = 0;
  bool Next(std::string& line) {
    size_t end = bytes.find('\n', at);
    if (end == std::string::npos || end == at) return false;
    line.assign(bytes, at, end - at);
    at = end + 1;
    return line.find('\0') == std::string::npos;
  }
};
}  // namespace

// Decimal digits as Format writes them: no sign, no leading zero, no overflow.
static bool sNumber(std::string const& text, unsigned long long& value) {
  if (text.empty() || text.size() > 20 || (text.size() > 1 && text[0] == '0')) return false;
  value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    unsigned digit = static_cast<unsigned>(c - '0');
    if (value > (ULLONG_MAX - digit) / 10) return false;
    value = value * 10 + digit;
  }
  return true;
}

static bool sPath(std::string const& text) { return text.size() <= S_MaxPath && text[0] == '/'; }

bool ZYNAdmSetJournal::Parse(std::string const& bytes, std::vector<Member>& members) {
  members.clear();
  if (bytes.size() > S_MaxBytes) return false;
  SLines lines{bytes};
  std::string line;
  unsigned long long count = 0;
  if (!lines.Next(line) || line != S_Header) return false;
  if (!lines.Next(line) || !sNumber(line, count) || count == 0 || count > S_MaxMembers) return false;
  for (unsigned long long i = 0; i < count; ++i) {
    Member member;
    size_t space;
    if (!lines.Next(line) || (space = line.find(' ')) == std::string::npos) return false;
    if (!sNumber(line.substr(0, space), member.device) || !sNumber(line.substr(space + 1), member.inode)) return false;
    if (!lines.Next(member.final) || !sPath(member.final)) return false;
    if (!lines.Next(member.hidden) || !sPath(member.hidden)) return false;
    members.push_back(member);
  }
  if (!lines.Next(line) || line != "end" || lines.at != bytes.size()) {
    members.clear();
    return false;
  }
  return true;
}

static std::string sNameOf(std::string const& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string ZYNAdmSetJournal::Canonical(std::string const& path) {
  std::string name = sNameOf(path);
  if (name.empty() || name == "." || name == "..") return std::string();
  char* folder = realpath(ZYNAdmFolderOf(path).c_str(), nullptr);
  if (folder == nullptr) return std::string();
  std::string result(folder);
  std::free(folder);
  return (result == "/" ? result : result + "/") + name;
}

static bool sWriteAll(int fd, std::string const& text) {
  for (size_t at = 0; at < text.size();) {
    ssize_t put = write(fd, text.data() + at, text.size() - at);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    at += static_cast<size_t>(put);
  }
  return fsync(fd) == 0;
}

// Nameless until whole where the file system allows, so that a run killed while writing
// it leaves no journal cut short; else written at its name directly (a replay meanwhile
// finds it cut short and leaves it).
int ZYNAdmSetJournal::Write(std::string const& path, std::vector<Member> const& members) {
  std::string text = Format(members);
  int fd = open(ZYNAdmFolderOf(path).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
  if (fd >= 0) {
    bool done = flock(fd, LOCK_EX | LOCK_NB) == 0 && sWriteAll(fd, text) && ZYNAdmLinkNameless(fd, path) == 0;
    if (!done) {
      close(fd);
      return -1;
    }
    ZYNAdmSyncFolder(path);
    return fd;
  }
  fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return -1;
  if (flock(fd, LOCK_EX | LOCK_NB) != 0 || !sWriteAll(fd, text)) {
    unlink(path.c_str());
    close(fd);
    return -1;
  }
  ZYNAdmSyncFolder(path);
  return fd;
}

void ZYNAdmSetJournal::Remove(std::string const& path, int descriptor) {
  if (unlink(path.c_str()) == 0) ZYNAdmSyncFolder(path);
  close(descriptor);
}

// ---------------------------------------------------------------------------------------

// The journal's bytes, if it is a plain file of ours that nobody else may have written
// and no run is still swapping under; `fd` open and locked then, for the replay.
static bool sReadOwn(std::string const& path, std::string& bytes, bool& exists, int& fd) {
  fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  exists = fd >= 0 || errno != ENOENT;
  if (fd < 0) return false;
  struct stat info;
  bool own = fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
             (info.st_mode & (S_IWGRP | S_IWOTH)) == 0 && static_cast<size_t>(info.st_size) <= S_MaxBytes &&
             flock(fd, LOCK_EX | LOCK_NB) == 0;
  if (own) {
    bytes.resize(S_MaxBytes + 1);
    size_t got = 0;
    for (;;) {
      ssize_t count = read(fd, &bytes[got], bytes.size() - got);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      got += static_cast<size_t>(count);
      if (got == bytes.size()) break;
    }
    bytes.resize(got);
    return true;
  }
  close(fd);
  fd = -1;
  return false;
}

// Only the paths the caller's set has, and hidden names of the shape a set makes
// (".<name>.<...>~") beside their path or the journal.
static bool sAllowed(std::vector<ZYNAdmSetJournal::Member> const& members, std::string const& journal,
                     std::vector<std::string> const& finals) {
  std::vector<std::string> seen;
  for (auto const& member : members) {
    if (std::find(finals.begin(), finals.end(), member.final) == finals.end()) return false;
    std::string folder = ZYNAdmFolderOf(member.hidden);
    if (folder != ZYNAdmFolderOf(journal) && folder != ZYNAdmFolderOf(member.final)) return false;
    std::string name = sNameOf(member.hidden), prefix = "." + sNameOf(member.final) + ".";
    if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0 || name.back() != '~') return false;
    if (std::find(seen.begin(), seen.end(), member.final) != seen.end()) return false;
    if (std::find(seen.begin(), seen.end(), member.hidden) != seen.end()) return false;
    seen.push_back(member.final);
    seen.push_back(member.hidden);
  }
  return true;
}

// 1 when `path` is the member's new file, 0 another plain file, -1 nothing or not a file.
static int sHolds(std::string const& path, ZYNAdmSetJournal::Member const& member) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return -1;
  return info.st_dev == member.device && info.st_ino == member.inode ? 1 : 0;
}

namespace {
struct SClose {
  int fd = -1;
  ~SClose() {
    if (fd >= 0) close(fd);
  }
};
}  // namespace

ZYNAdmSetJournal::Outcome ZYNAdmSetJournal::Recover(std::string const& path, std::vector<std::string> const& finals) {
  std::string journal = Canonical(path);
  std::string bytes;
  bool exists = false;
  SClose locked;
  if (journal.empty() || !sReadOwn(journal, bytes, exists, locked.fd)) return exists ? Ignored : None;
  std::vector<Member> members;
  std::vector<std::string> allowed;
  for (std::string const& final : finals) allowed.push_back(Canonical(final));
  if (!Parse(bytes, members) || !sAllowed(members, journal, allowed)) return Ignored;

  bool forward = true;
  for (Member const& member : members) {
    if (sHolds(member.final, member) != 1 && sHolds(member.hidden, member) != 1) forward = false;
  }
  for (Member const& member : members) {
    if (forward) {
      // The new file in place, the old one (if any) under the hidden name.
      if (sHolds(member.hidden, member) == 1) {
        if (rename(member.hidden.c_str(), member.final.c_str()) != 0) return Failed;
      } else if (sHolds(member.hidden, member) == 0 && unlink(member.hidden.c_str()) != 0) {
        return Failed;
      }
    } else {
      // The old file back in place where the swap was made, the new one dropped.
      int atFinal = sHolds(member.final, member);
      if (atFinal == 1 && sHolds(member.hidden, member) == 0 &&
          renameat2(AT_FDCWD, member.hidden.c_str(), AT_FDCWD, member.final.c_str(), RENAME_EXCHANGE) != 0) {
        return Failed;
      }
      struct stat info;
      if (atFinal == -1 && lstat(member.final.c_str(), &info) != 0 && sHolds(member.hidden, member) == 0 &&
          rename(member.hidden.c_str(), member.final.c_str()) != 0) {
        return Failed;
      }
      if (sHolds(member.hidden, member) == 1 && unlink(member.hidden.c_str()) != 0) return Failed;
    }
  }
  for (Member const& member : members) {
    ZYNAdmSyncFolder(member.final);
    if (ZYNAdmFolderOf(member.hidden) != ZYNAdmFolderOf(member.final)) ZYNAdmSyncFolder(member.hidden);
  }
  if (unlink(journal.c_str()) != 0) return Failed;
  ZYNAdmSyncFolder(journal);
  return forward ? Forward : Back;
}
