// zyn_xml_parse FILE
// Parses FILE as check mode reads a reference, and prints the parse time and the number
// of elements in the tree. Exit status 1 when the parser fails.
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "DString.h"
#include "ZYNAdmInputFile.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlParser.h"

static DString sToDString(const char* narrow) {
  std::vector<wchar_t> wide(std::strlen(narrow) + 1);
  if (std::mbstowcs(wide.data(), narrow, wide.size()) == static_cast<size_t>(-1)) return DString();
  return DString(wide.data());
}

// Iterative, so that a deep tree doesn't exhaust the call stack here.
static long sCountElements(const ZYNAdmXmlElement& root) {
  if (root.IsEmpty()) return 0;
  long count = 0;
  std::vector<ZYNAdmXmlElement> pending(1, root);
  while (!pending.empty()) {
    const ZYNAdmXmlElement element = pending.back();
    pending.pop_back();
    ++count;
    for (void* it = element.GetChildren(); it != nullptr;) pending.push_back(element.GetChild(it));
  }
  return count;
}

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  if (argc != 2) {
    std::fprintf(stderr, "usage: zyn_xml_parse FILE\n");
    return 2;
  }
  ZYNAdmInputFile file(sToDString(argv[1]));
  ZYNAdmXmlElement root;
  const auto start = std::chrono::steady_clock::now();
  const int parsed = ZYNAdmXmlParser::Parse(file, root);
  const auto stop = std::chrono::steady_clock::now();
  if (parsed == 0) {
    std::fprintf(stderr, "zyn_xml_parse: %s: cannot be parsed\n", argv[1]);
    return 1;
  }
  const double ms = std::chrono::duration<double, std::milli>(stop - start).count();
  std::printf("parse %.3f ms, %ld elements\n", ms, sCountElements(root));
  return 0;
}
