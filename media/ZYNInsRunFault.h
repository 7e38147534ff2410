#ifndef ZYN_MEDIA_ZYNINSRUNFAULT_H
#define ZYN_MEDIA_ZYNINSRUNFAULT_H

// ZYNInsRunFault.h - faults of the run itself, which no file of the media is to blame for.

#include <cerrno>
#include <system_error>

// A folder or file that can't be opened because the process or the system has no
// descriptor left says nothing about the media: the run ends (status 2, one message)
// rather than report the file as missing or unreadable. Thrown on a worker, the pool
// carries it to the walk's thread.
inline void ZYNInsThrowIfRunFault(int error) {
  if (error == EMFILE || error == ENFILE) throw std::system_error(error, std::generic_category());
}

#endif
