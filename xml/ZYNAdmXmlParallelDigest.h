#ifndef ZYN_XML_ZYNADMXMLPARALLELDIGEST_H
#define ZYN_XML_ZYNADMXMLPARALLELDIGEST_H

// ZYNAdmXmlParallelDigest.h - the compact form of a large tree digested with every core
// writing a part of it.

class ZYNAdmOutputStream;
class ZYNAdmSHA256;
class ZYNAdmXmlElement;
class ZYNAdmXmlOutputFormatter;

// What ZYNAdmXmlParser::GetXml(element, digest) gives, byte for byte: elements with
// thousands of children (the File elements of a volume) are written in ranges by worker
// threads and digested in order; the rest of the tree is written once around them. A
// small tree, or one processor, takes the plain road. During the call no other thread
// may touch the tree.
class ZYNAdmXmlParallelDigest {
 public:
  // 1 success, 0 failure, as GetXml.
  static int GetXml(const ZYNAdmXmlElement& element, ZYNAdmSHA256& digest);
  // The same bytes into any stream (a file being written): where memory runs out on a
  // writing thread, std::bad_alloc is thrown here, as the plain road would throw it.
  static int Write(const ZYNAdmXmlElement& element, ZYNAdmOutputStream& stream);
  // The same laid out on lines, the ranges laid out by the threads that write them.
  static int Write(const ZYNAdmXmlElement& element, ZYNAdmXmlOutputFormatter& formatter);
};

#endif
