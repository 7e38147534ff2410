#ifndef ZYN_ADM_ZYNADMFOLDERENTRY_H
#define ZYN_ADM_ZYNADMFOLDERENTRY_H

// ZYNAdmFolderEntry.h - a file's folder, and its entry there made durable: what the
// replaced files and the journal of their set share.

#include <string>

// The folder part of `path`: "." without a slash, "/" for a file of the root.
std::string ZYNAdmFolderOf(std::string const& path);
// Flushes the folder of `path`, so that a name made or removed there is on disk; a
// failure loses no data and is not reported.
void ZYNAdmSyncFolder(std::string const& path);
// Gives the nameless file `fd` (O_TMPFILE) the name `name`: through /proc, else by
// AT_EMPTY_PATH where the process may. 0, or -1 with errno (EEXIST: the name is taken).
int ZYNAdmLinkNameless(int fd, std::string const& name);

#endif
