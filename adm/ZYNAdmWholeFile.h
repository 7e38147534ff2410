#ifndef ZYN_ADM_ZYNADMWHOLEFILE_H
#define ZYN_ADM_ZYNADMWHOLEFILE_H

#include <sys/stat.h>

#include <cstddef>
#include <string>

#include "DString.h"

// A regular file read whole through one descriptor, so that what is checked and what is
// used are the same bytes; `status` is that descriptor's, taken after the last read.
// Results: 0 done, else an errno value (EFBIG past `limit` bytes, EINVAL for a file that
// is not regular, EAGAIN for one that changed while it was read).
int ZYNAdmReadWholeFile(DString const& path, std::size_t limit, std::string& bytes, struct stat& status);

#endif
