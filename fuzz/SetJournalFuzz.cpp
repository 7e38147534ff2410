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
#include <string>
#include <vector>

#include "FuzzFolder.h"
#include "ZYNAdmSetJournal.h"

namespace {
std::string sFolder() {
  static bool S_ready = false;
  std::string folder = FuzzFolder("zynfuzzjournal");
  if (!S_ready) {
    for (char const* sub : {"/1", "/1/0data", "/2", "/2/0data"}) mkdir((folder + sub).c_str(), 0700);
    S_ready = true;
  }
  return folder;
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
