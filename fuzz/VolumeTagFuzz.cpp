// A volume tag as a check identifies the volume by it: parsed, its seal tested, its
// index, the seal of the reference it names and its release data read.
#include <cstddef>
#include <cstdint>

#include "FuzzInput.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNInsMediaCheckerServices.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ZYNAdmXmlElement tag;
  if (!FuzzParse(data, size, tag)) return 0;
  ZYNAdmXmlHash::Check(tag);
  DString cdid = tag.GetAttributeValue(DString(L"cdid"));
  DString packageHash = tag.GetAttributeValue(DString(L"packageHash"));
  DString text;
  ZYNInsMediaCheckerServices::GetRelData(tag, text);
  return cdid.Length() + packageHash.Length() + text.Length() >= 0 ? 0 : 1;
}
