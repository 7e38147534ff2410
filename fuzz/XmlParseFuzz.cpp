// Feeds arbitrary bytes to the XML parser and writes back what it built. Each input is
// parsed twice: in one piece, and in Reads of a few bytes. For input of ASCII bytes, which
// no cut can garble, both must give the same tree.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "FuzzInput.h"
#include "ZYNAdmOutputStream.h"
#include "ZYNAdmStringOutput.h"

namespace {

// The tree written back, or a marker for a failed parse or write.
std::string sParseAndWrite(const uint8_t* data, size_t size, size_t chunk) {
  FuzzInput input(data, size, chunk);
  ZYNAdmXmlElement root;
  if (ZYNAdmXmlParser::Parse(input, root) == 0) return "<parse failed>";
  if (root.IsEmpty()) return "<no element>";
  ZYNAdmStringOutput output;
  if (ZYNAdmXmlParser::GetXml(root, output) == 0) return "<write failed>" + output.bytes;
  return output.bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string whole = sParseAndWrite(data, size, 0);
  const size_t chunk = size > 0 ? 1 + data[size - 1] % 7 : 1;
  const std::string pieces = sParseAndWrite(data, size, chunk);
  bool ascii = true;
  for (size_t i = 0; i < size && ascii; ++i) ascii = data[i] < 0x80;
  if (ascii && whole != pieces) std::abort();
  return 0;
}
