#ifndef ZYN_XML_ZYNADMXMLOUTPUTFORMATTER_H
#define ZYN_XML_ZYNADMXMLOUTPUTFORMATTER_H

#include "ZYNAdmOutputStream.h"

// A stream in front of another that lays compact XML out on lines: a line end and one
// tab per level before each tag that directly follows a `>`. The parser drops that
// white space again, so a tree read back from a laid-out file hashes as it was sealed.
//
// It knows nothing of quotes: a `/>` inside an attribute value lowers the depth. That
// only spoils indentation, and files on media already carry it.
class ZYNAdmXmlOutputFormatter : public ZYNAdmOutputStream {
 public:
  explicit ZYNAdmXmlOutputFormatter(ZYNAdmOutputStream& target)
      : _target(target), _lastByte(0), _byteBefore(0), _depth(0) {}
  // The target stays open or closed as it was.
  ~ZYNAdmXmlOutputFormatter() override {}

  // Where the layout stands between two writes. Bytes laid out apart from a state taken
  // for granted go to the target as they are, where the state proves to be that one.
  struct State {
    char lastByte;
    char byteBefore;
    int depth;
    bool operator==(const State& other) const {
      return lastByte == other.lastByte && byteBefore == other.byteBefore && depth == other.depth;
    }
  };
  State GetState() const { return State{_lastByte, _byteBefore, _depth}; }
  void SetState(const State& state) {
    _lastByte = state.lastByte;
    _byteBefore = state.byteBefore;
    _depth = state.depth;
  }
  ZYNAdmOutputStream& GetTarget() { return _target; }

  int Open() override;
  // The state survives between calls, so the input may be cut anywhere, in a tag too.
  int Write(unsigned char* buffer, int count) override;
  int Close() override { return _target.Close(); }

 private:
  ZYNAdmXmlOutputFormatter(const ZYNAdmXmlOutputFormatter&) = delete;
  ZYNAdmXmlOutputFormatter& operator=(const ZYNAdmXmlOutputFormatter&) = delete;

  ZYNAdmOutputStream& _target;
  char _lastByte;
  char _byteBefore;
  int _depth;
};

#endif
