#ifndef ZYN_XML_ZYNADMXMLPARSER_H
#define ZYN_XML_ZYNADMXMLPARSER_H

#include <cstddef>

#include "DString.h"

class ZYNAdmInputStream;
class ZYNAdmOutputStream;
class ZYNAdmXmlElement;

// Stream to tree (Parse, in ZYNAdmXmlParser.cpp) and tree to stream (GetXml, in
// ZYNAdmXmlWriter.cpp). Streams are handed over unopened; each call opens and closes its
// own. Results: 0 failure, not 0 success.
class ZYNAdmXmlParser {
 public:
  // 1 when the input was read to its end; `root` is written only then. 0 when the stream
  // can't be opened, is empty, or ends inside a tag.
  static int Parse(ZYNAdmInputStream& stream, ZYNAdmXmlElement& root);

  // The compact form: the XML declaration, then the tree in UTF-8 with no line end. This
  // is the form that is hashed, so its bytes are fixed.
  static int GetXml(const ZYNAdmXmlElement& element, ZYNAdmOutputStream& stream);
  // As above with `prolog` written unescaped between the declaration and the tree.
  static int GetXml(const ZYNAdmXmlElement& element, const DString& prolog, ZYNAdmOutputStream& stream);
  // The `count` elements one after another, as they stand in their parent's compact form:
  // no declaration, and the stream is neither opened nor closed. 1 success, 0 failure.
  static int GetXmlOfEach(const ZYNAdmXmlElement* const* elements, size_t count, ZYNAdmOutputStream& stream);
};

// Kept for the callers of the former string pool; they do nothing.
void ZYNStringPoolSetForCurrentThrd();
void ZYNStringPoolDisable();
int ZYNStringPoolFlush();

#endif
