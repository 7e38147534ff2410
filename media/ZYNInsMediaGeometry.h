#ifndef ZYN_MEDIA_ZYNINSMEDIAGEOMETRY_H
#define ZYN_MEDIA_ZYNINSMEDIAGEOMETRY_H

// ZYNInsMediaGeometry.h - where the volumes of a media and their reference files stand:
// one home for each path shape.

#include "DString.h"

class ZYNAdmXmlElement;

// Where a path given for a volume of an Assembly Media leads.
enum ZYNInsAssemblyPath {
  ZYNInsAssemblyPathMissing = 0,  // neither the path nor the folder below it
  ZYNInsAssemblyPathAsGiven = 1,  // the path ends with the sub-media's folder already
  ZYNInsAssemblyPathBelow = 2,    // the sub-media's folder below the path: the candidate
};

// On an Assembly Media, volume n of the sub-media lies in volume "outer" of the larger
// media, below the sub-media's relative path: <CDs>/<outer>/<relative path>/<n>. On any
// other media the outer number is n itself.
class ZYNInsMediaGeometry {
 public:
  // "MediaContent.xml", the reference file's name, left out of every walk.
  static DString ReferenceName();
  // "/0data/MediaContent.xml", the reference file below a volume's folder.
  static DString ReferenceTail();
  // The volumes a reference describes: its CD elements under CDs; -1 without CDs.
  static int VolumeCount(ZYNAdmXmlElement const& reference);
  // The outer volume number of volume `cdIndex`, in decimal.
  static DString OuterVolumeText(int cdIndex);
  // The folder of volume `cdIndex` of a file tree that nobody has named.
  static DString FileTreeVolumePath(int cdIndex);
  // A path typed or given for volume `key` of an Assembly Media may name the larger
  // media's volume: the sub-media's folder below it, `candidate`, is then meant. A
  // ZYNInsAssemblyPath.
  static int SettleAssemblyMediaPath(DString const& key, DString const& path, DString& candidate);
};

#endif
