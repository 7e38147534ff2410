// The reference as a check reads it: parsed, its seal tested, its volumes counted, its
// release data laid out, and compared file by file with a small scanned view, in both
// directions (the reference as what was found, too).
#include <cstddef>
#include <cstdint>

#include "FuzzInput.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMediaGeometry.h"

namespace {

const char S_View[] =
    "<Media cdid=\"1\" checkerVersion=\"1.1\"><RelData/><CDs><CD>"
    "<File hash=\"ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb\" path=\"/a\" "
    "timestamp=\"1600000000\"/>"
    "<File hash=\"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855\" path=\"/sub/b\" "
    "timestamp=\"1600003600\"/>"
    "</CD><CD><File hash=\"ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb\" path=\"/c\" "
    "timestamp=\"1600000000\"/></CD></CDs></Media>";

ZYNAdmXmlElement sView() {
  ZYNAdmXmlElement view;
  FuzzParse(reinterpret_cast<const uint8_t*>(S_View), sizeof S_View - 1, view);
  return view;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ZYNAdmXmlElement reference;
  if (!FuzzParse(data, size, reference)) return 0;
  ZYNAdmXmlHash::Check(reference);
  ZYNAdmXmlHash::GetHash(reference);
  ZYNInsMediaGeometry::VolumeCount(reference);
  DString relText;
  ZYNInsMediaCheckerServices::GetRelData(reference, relText);

  ZYNAdmXmlElement view = sView();
  DString errors;
  ZYNInsMediaCheckerServices::GetErrors(reference, view, errors);
  ZYNAdmXmlElement again;
  FuzzParse(data, size, again);
  ZYNAdmXmlElement expected = sView();
  ZYNInsMediaCheckerServices::GetErrors(expected, again, errors);
  return 0;
}
