#ifndef ZYN_MEDIA_ZYNINSENTRYINPUTFILE_H
#define ZYN_MEDIA_ZYNINSENTRYINPUTFILE_H

// ZYNInsEntryInputFile.h - reads a file that a folder listing found, by its name in the
// open folder.

#include <sys/stat.h>

#include <atomic>
#include <string>

#include "ZYNAdmInputStream.h"

// The bytes of the very entry a listing gave: opened relative to its folder, never by a
// path rebuilt from the name. Only a regular file opens; a FIFO or device put in its
// place since the listing fails to open instead of blocking or never ending. A failed
// read is a failure, not an end, and so is a file that changed while it was read: it is
// read from one state or not at all.
class ZYNInsEntryInputFile : public ZYNAdmInputStream {
 public:
  // `folderFd` stays the caller's; `name` must outlive the stream.
  ZYNInsEntryInputFile(int folderFd, char const* name) : _folderFd(folderFd), _name(name) {}
  ~ZYNInsEntryInputFile() override;
  int Open() override;
  // Fills `buffer` unless the file ends first, as a buffered read would.
  int Read(unsigned char* buffer, int count) override;
  int Close() override;
  // The modification time seen at opening.
  long long GetLastWriteTime() const { return _lastWriteTime; }
  long long GetBytesRead() const { return _position; }
  // At opening, counts in `*misses` a file whose first bytes must come from the device.
  void ProbeMemory(std::atomic<int>* misses) { _misses = misses; }

 private:
  ZYNInsEntryInputFile(ZYNInsEntryInputFile const&) = delete;
  ZYNInsEntryInputFile& operator=(ZYNInsEntryInputFile const&) = delete;

  int _folderFd;
  char const* _name;
  int _fd = -1;
  long long _size = 0;  // at opening; reaching it with a short read is the end
  long long _position = 0;
  long long _lastWriteTime = 0;
  struct stat _opened = {};  // the state the read must end in
  std::atomic<int>* _misses = nullptr;
};

#endif
