// Feeds arbitrary bytes to the journal of a reference set: what parses must be written
// back to the same bytes, and the bytes as a journal left in a folder are replayed (or
// refused) without a crash. "@" at the start of a path stands for that folder, so that
// seeds can name the set's real paths.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "ZYNAdmSetJournal.h"

namespace {
// Plain bytes, not a string: the folder is removed at exit, after static objects are gone.
char S_Folder[4096];

std::string sFolder() {
  if (S_Folder[0] == '\0') {
    // Under $TMPDIR where given: a memory file system spares the disk a file per input.
    char const* top = std::getenv("TMPDIR");
    std::snprintf(S_Folder, sizeof S_Folder, "%s/zynfuzzjournal.XXXXXX", top != nullptr && *top != '\0' ? top : "/tmp");
    if (mkdtemp(S_Folder) == nullptr) std::abort();
    for (char const* sub : {"/1", "/1/0data", "/2", "/2/0data"}) mkdir((std::string(S_Folder) + sub).c_str(), 0700);
    std::atexit([] { std::filesystem::remove_all(S_Folder); });
  }
  return S_Folder;
}

void sPut(std::string const& path, std::string const& text) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) std::abort();
  std::fwrite(text.data(), 1, text.size(), file);
  std::fclose(file);
  chmod(path.c_str(), 0600);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<char const*>(data), size);
  std::vector<ZYNAdmSetJournal::Member> members;
  if (ZYNAdmSetJournal::Parse(bytes, members) && ZYNAdmSetJournal::Format(members) != bytes) std::abort();

  std::string folder = sFolder();
  std::string text;
  for (size_t at = 0; at < bytes.size(); ++at) {
    if (bytes[at] == '@' && (at == 0 || bytes[at - 1] == '\n')) {
      text += folder;
    } else {
      text += bytes[at];
    }
  }
  std::vector<std::string> finals = {folder + "/1/0data/MediaContent.xml", folder + "/2/0data/MediaContent.xml",
                                     folder + "/1/0data/MediaContent.xml.minisig"};
  struct stat info;
  for (std::string const& final : finals) {
    if (lstat(final.c_str(), &info) != 0) sPut(final, "old");
  }
  std::string journal = folder + "/.MediaContent.xml.journal";
  sPut(journal, text);
  ZYNAdmSetJournal::Recover(journal, finals);
  unlink(journal.c_str());
  return 0;
}
