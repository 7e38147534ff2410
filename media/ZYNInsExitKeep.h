#ifndef ZYN_MEDIA_ZYNINSEXITKEEP_H
#define ZYN_MEDIA_ZYNINSEXITKEEP_H

#include "ZYNAdmXmlElement.h"

// Leaves a run's tree (a million elements on a large media) to the end of the process
// rather than taking it apart one element at a time just before the process ends. Only
// the executable asks for it (Enable): tests and any other caller free trees as usual.
// Put the guard right after the tree, so that it is destroyed before it.
class ZYNInsExitKeep {
 public:
  explicit ZYNInsExitKeep(ZYNAdmXmlElement& tree) : _tree(tree) {}
  ~ZYNInsExitKeep();
  ZYNInsExitKeep(ZYNInsExitKeep const&) = delete;
  ZYNInsExitKeep& operator=(ZYNInsExitKeep const&) = delete;

  static void Enable();

 private:
  ZYNAdmXmlElement& _tree;
};

#endif
