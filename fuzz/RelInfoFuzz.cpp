// A -relinfo file as generate takes it: parsed, put into the release data of the volume
// tag, laid out as the text a check shows, and sealed with the tag.
#include <cstddef>
#include <cstdint>

#include "FuzzInput.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNInsMediaCheckerServices.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ZYNAdmXmlElement relInfo;
  if (!FuzzParse(data, size, relInfo)) return 0;
  ZYNAdmXmlElement volume(DString(L"Media"));
  ZYNAdmXmlElement relData(DString(L"RelData"));
  relData.AddChild(relInfo);
  volume.AddChild(relData);
  DString text;
  ZYNInsMediaCheckerServices::GetRelData(volume, text);
  volume.SetAttributeValue(DString(L"cdid"), DString(L"2"));
  if (ZYNAdmXmlHash::Hash(volume) != 0 && ZYNAdmXmlHash::Check(volume) != ZYNAdmSealRight) __builtin_trap();
  return 0;
}
