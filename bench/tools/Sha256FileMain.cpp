// zyn_sha256sum [--portable] FILE...
// Prints "<digest>  <file>" for each file, digested the way the media scan does it.
// --portable forces the portable compression, to measure it against the SHA instructions.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "DString.h"
#include "ZYNAdmInputFile.h"
#include "ZYNAdmSHA256.h"
#include "ZYNAdmSHA256Engine.h"

static DString sToDString(const char* narrow) {
  std::vector<wchar_t> wide(std::strlen(narrow) + 1);
  if (std::mbstowcs(wide.data(), narrow, wide.size()) == static_cast<size_t>(-1)) return DString();
  return DString(wide.data());
}

static void sPrintDigest(const DString& digest, const char* path) {
  char text[65];
  const unsigned short* units = digest.ConvertToUCChar();
  for (int i = 0; i < 64; ++i) text[i] = static_cast<char>(units[i]);
  text[64] = '\0';
  std::printf("%s  %s\n", text, path);
}

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  int first = 1;
  if (argc > 1 && std::strcmp(argv[1], "--portable") == 0) {
    ZYNAdmSHA256Engine::ForcePortable(true);
    first = 2;
  }
  if (first >= argc) {
    std::fprintf(stderr, "usage: zyn_sha256sum [--portable] FILE...\n");
    return 2;
  }

  int status = 0;
  for (int i = first; i < argc; ++i) {
    ZYNAdmInputFile file(sToDString(argv[i]));
    const DString digest = ZYNAdmSHA256::GetHash(file);
    if (digest.Length() != 64) {
      std::fprintf(stderr, "zyn_sha256sum: %s: cannot be read\n", argv[i]);
      status = 1;
      continue;
    }
    sPrintDigest(digest, argv[i]);
  }
  return status;
}
