// Trees handed over at the end of a mode, kept where the process's end finds them.
#include "ZYNInsExitKeep.h"

#include <utility>
#include <vector>

static bool S_enabled = false;

void ZYNInsExitKeep::Enable() { S_enabled = true; }

ZYNInsExitKeep::~ZYNInsExitKeep() {
  if (!S_enabled || _tree.IsEmpty()) return;
  static std::vector<ZYNAdmXmlElement>* kept = new std::vector<ZYNAdmXmlElement>();  // never freed
  kept->push_back(std::move(_tree));
}
