// ZYNAdmXmlParser::GetXml: a tree to its compact UTF-8 form. Digests are taken of these
// bytes, so every rule below (quoting, escapes, name encoding, the declaration) is part of
// the format of the files on media and must not move by one byte.

#include <cstdint>
#include <cstring>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ZYNAdmCodePage.h"
#include "ZYNAdmOutputStream.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlParser.h"

namespace {

const int kBufferSize = 4096;

const char S_Declaration[] = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>";
const char S_LT[] = "&lt;";
const char S_GT[] = "&gt;";
const char S_AMP[] = "&amp;";
const char S_QUOT[] = "&quot;";
const unsigned short S_hexchar[] = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'A', 'B', 'C', 'D', 'E', 'F'};

// One output buffer per GetXml call, shared down the recursion. The flush points are
// those of a 4096-byte buffer filled unit by unit; a target that counts its Write calls
// sees the same calls whatever path produced the units.
struct SOutput {
  unsigned char buffer[kBufferSize];
  int count;
  ZYNAdmOutputStream& stream;
  std::vector<unsigned short> units;  // a compact value that takes the unit rules

  explicit SOutput(ZYNAdmOutputStream& target) : count(0), stream(target) {}
  // Where `n` more bytes can go without a flush; null when they don't fit.
  unsigned char* Room(int n) { return kBufferSize - count >= n ? buffer + count : nullptr; }
};

bool sFlush(SOutput& out) {
  int wanted = out.count;
  out.count = 0;
  return out.stream.Write(out.buffer, wanted) == wanted;
}

// A full buffer goes out only when a further byte is due, never eagerly.
inline bool sPutByte(SOutput& out, unsigned char byte) {
  if (out.count >= kBufferSize && !sFlush(out)) return false;
  out.buffer[out.count++] = byte;
  return true;
}

// Bytes below 0x80, each of which is one unit: as many as fit go in at once, a full
// buffer is flushed when more are due, so the flush points are those of sPutByte.
bool sPutBytes(SOutput& out, const unsigned char* bytes, int length) {
  while (length > 0) {
    if (out.count >= kBufferSize && !sFlush(out)) return false;
    int n = kBufferSize - out.count < length ? kBufferSize - out.count : length;
    std::memcpy(out.buffer + out.count, bytes, static_cast<size_t>(n));
    out.count += n;
    bytes += n;
    length -= n;
  }
  return true;
}

bool sPutAscii(SOutput& out, const char* text) {
  return sPutBytes(out, reinterpret_cast<const unsigned char*>(text), static_cast<int>(std::strlen(text)));
}

// Each unit on its own, as UCS-2: the halves of a surrogate pair become three bytes each.
// A sequence never straddles a flush.
bool sPutUnit(SOutput& out, unsigned int unit) {
  if (unit < 0x80) return sPutByte(out, static_cast<unsigned char>(unit));
  int length = unit < 0x800 ? 2 : 3;
  if (out.count + length > kBufferSize && out.count > 0 && !sFlush(out)) return false;
  unsigned char* at = out.buffer + out.count;
  if (length == 3) {
    at[2] = static_cast<unsigned char>((unit | 0x80) & 0xBF);
    unit >>= 6;
  }
  at[1] = static_cast<unsigned char>((unit | 0x80) & 0xBF);
  unit >>= 6;
  at[0] = static_cast<unsigned char>(unit | ZYNAdmfirstByteMark[length]);
  out.count += length;
  return true;
}

// Runs of ASCII go straight into the room left; anything else takes the unit rule above,
// which also does the flushing, so the flush points are those of the unit-by-unit walk.
bool sWriteToBuffer(SOutput& out, const unsigned short* text, int length) {
  int i = 0;
  while (i < length) {
    unsigned char* at = out.buffer + out.count;
    int limit = kBufferSize - out.count < length - i ? kBufferSize - out.count : length - i;
    const unsigned short* from = text + i;
    int n = 0;
    // Four units at a time while none of them has a bit above 0x7F.
    uint64_t four = 0;
    while (n + 4 <= limit && (std::memcpy(&four, from + n, 8), (four & 0xFF80FF80FF80FF80ull) == 0)) {
      at[n] = static_cast<unsigned char>(from[n]);
      at[n + 1] = static_cast<unsigned char>(from[n + 1]);
      at[n + 2] = static_cast<unsigned char>(from[n + 2]);
      at[n + 3] = static_cast<unsigned char>(from[n + 3]);
      n += 4;
    }
    while (n < limit && from[n] < 0x80) {
      at[n] = static_cast<unsigned char>(from[n]);
      ++n;
    }
    out.count += n;
    i += n;
    if (i == length) break;
    if (from[n] < 0x80) {  // the buffer is full: the next unit flushes it
      if (!sPutByte(out, static_cast<unsigned char>(from[n]))) return false;
    } else if (!sPutUnit(out, from[n])) {
      return false;
    }
    ++i;
  }
  return true;
}

bool sIsHexDigit(unsigned short unit) {
  return (unit >= '0' && unit <= '9') || (unit >= 'a' && unit <= 'f') || (unit >= 'A' && unit <= 'F');
}

bool sIsLetter(unsigned short unit) { return (unit >= 'A' && unit <= 'Z') || (unit >= 'a' && unit <= 'z'); }

// A `_` that opens what would read back as an `_xHHHH_` escape must itself be escaped,
// or the parser would turn the source text into another unit.
bool sLooksLikeEscape(const unsigned short* units, int length, int i) {
  if (i + 6 >= length) return false;
  if (units[i] != '_' || units[i + 1] != 'x' || units[i + 6] != '_') return false;
  return sIsHexDigit(units[i + 2]) && sIsHexDigit(units[i + 3]) && sIsHexDigit(units[i + 4]) &&
         sIsHexDigit(units[i + 5]);
}

bool sIsNameUnit(unsigned short unit, int i) {
  if (sIsLetter(unit) || unit == '_') return true;
  if (i == 0) return false;
  return (unit >= '0' && unit <= '9') || unit == '-' || unit == '.' || unit == ':';
}

bool sIsKeptNameUnit(const unsigned short* units, int length, int i) {
  return sIsNameUnit(units[i], i) && !sLooksLikeEscape(units, length, i);
}

// Name units that stand for themselves wherever they are (1) or anywhere but first (2).
// `_` isn't one: whether it is kept depends on the units behind it.
struct SNameTable {
  unsigned char of[128];
  constexpr SNameTable() : of() {
    for (int unit = 0; unit < 128; ++unit) {
      bool letter = (unit >= 'A' && unit <= 'Z') || (unit >= 'a' && unit <= 'z');
      bool later = (unit >= '0' && unit <= '9') || unit == '-' || unit == '.' || unit == ':';
      of[unit] = static_cast<unsigned char>(letter ? 3 : later ? 2 : 0);
    }
  }
};
constexpr SNameTable S_nameUnits;

// encodeName, written straight to the output: names are written twice per element, and
// building a string for each would cost an allocation per name on large trees. Kept units
// are ASCII, so runs of them go out as they stand.
bool sWriteName(SOutput& out, const DString& name) {
  const unsigned short* units = name.ConvertToUCChar();
  int length = name.Length();
  // Most names are kept whole: one pass over the table, then one copy.
  int plain = 0;
  while (plain < length && units[plain] < 0x80 && (S_nameUnits.of[units[plain]] & (plain == 0 ? 1 : 3)) != 0) {
    ++plain;
  }
  if (plain == length) {
    unsigned char* at = out.Room(length);
    if (at == nullptr) return sWriteToBuffer(out, units, length);
    for (int i = 0; i < length; ++i) at[i] = static_cast<unsigned char>(units[i]);
    out.count += length;
    return true;
  }
  int i = 0;
  while (i < length) {
    int run = i;
    while (run < length && sIsKeptNameUnit(units, length, run)) ++run;
    if (!sWriteToBuffer(out, units + i, run - i)) return false;
    if (run == length) break;
    unsigned short unit = units[run];
    if (!sPutByte(out, '_') || !sPutByte(out, 'x')) return false;
    for (int shift = 12; shift >= 0; shift -= 4) {
      if (!sPutByte(out, static_cast<unsigned char>(S_hexchar[(unit >> shift) & 0xF]))) {
        return false;
      }
    }
    if (!sPutByte(out, '_')) return false;
    i = run + 1;
  }
  return true;
}

// The units each kind of text replaces by an entity, and the entities.
struct SEntity {
  unsigned short unit;
  const char* text;
};
constexpr SEntity S_AttributeEntities[] = {{'<', S_LT},   {'&', S_AMP},  {'"', S_QUOT}, {9, "&#x9;"},
                                           {10, "&#xA;"}, {13, "&#xD;"}, {0, nullptr}};
constexpr SEntity S_TextEntities[] = {{'<', S_LT}, {'>', S_GT}, {'&', S_AMP}, {'"', S_QUOT}, {0, nullptr}};

// The units of a table below 64 as bits: every unit with an entity is one of them, so
// most units are passed over at the cost of one test.
constexpr uint64_t sEntityMask(const SEntity* entities) {
  uint64_t mask = 0;
  for (; entities->text != nullptr; ++entities) mask |= uint64_t{1} << entities->unit;
  return mask;
}
constexpr uint64_t S_AttributeMask = sEntityMask(S_AttributeEntities);
constexpr uint64_t S_TextMask = sEntityMask(S_TextEntities);

// `units` with each unit of `entities` written as its entity.
bool sWriteEscaped(SOutput& out, const unsigned short* units, int length, const SEntity* entities) {
  const uint64_t mask = entities == S_AttributeEntities ? S_AttributeMask : S_TextMask;
  int start = 0;
  for (int i = 0; i < length; ++i) {
    if (units[i] >= 64 || ((mask >> units[i]) & 1) == 0) continue;
    const SEntity* entity = entities;
    while (entity->text != nullptr && entity->unit != units[i]) ++entity;
    if (entity->text == nullptr) continue;
    if (!sWriteToBuffer(out, units + start, i - start) || !sPutAscii(out, entity->text)) return false;
    start = i + 1;
  }
  return sWriteToBuffer(out, units + start, length - start);
}

// What a unit below 0x100 asks of sWriteAttributeValue.
const unsigned char S_escaped = 1;  // an entity
const unsigned char S_quot = 2;
const unsigned char S_apos = 4;
const unsigned char S_wide = 8;  // more than one byte of UTF-8

struct SValueTable {
  unsigned char of[256];
  constexpr SValueTable() : of() {
    for (int unit = 0; unit < 256; ++unit) {
      bool escaped = unit == '<' || unit == '&' || unit == 9 || unit == 10 || unit == 13;
      of[unit] = static_cast<unsigned char>((escaped ? S_escaped : 0) | (unit == '"' ? S_quot : 0) |
                                            (unit == '\'' ? S_apos : 0) | (unit >= 0x80 ? S_wide : 0));
    }
  }
};
constexpr SValueTable S_valueBytes;

// encodeAttributeValue, written straight to the output with its quotes. A value that
// needs no escape keeps its bytes and takes whichever quote it doesn't contain; only a
// value with both quotes, `<`, `&` or a control unit is rewritten between double quotes.
// `'` and `>` are never escaped.
bool sWriteAttributeValue(SOutput& out, const unsigned short* units, int length) {
  unsigned char classes = 0;
  int i = 0;
#if defined(__SSE2__)
  // Eight units at a time while none is `<`, `&`, a quote, a control or from 0x80 on;
  // the rest, from the eight that hold one, goes through the table.
  for (; i + 8 <= length; i += 8) {
    const __m128i eight = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + i));
    __m128i marked =
        _mm_or_si128(_mm_cmpeq_epi16(eight, _mm_set1_epi16('<')), _mm_cmpeq_epi16(eight, _mm_set1_epi16('&')));
    marked = _mm_or_si128(marked, _mm_cmpeq_epi16(eight, _mm_set1_epi16('"')));
    marked = _mm_or_si128(marked, _mm_cmpeq_epi16(eight, _mm_set1_epi16('\'')));
    marked = _mm_or_si128(marked, _mm_cmplt_epi16(eight, _mm_set1_epi16(14)));    // and units from 0x8000
    marked = _mm_or_si128(marked, _mm_cmpgt_epi16(eight, _mm_set1_epi16(0x7F)));  // up to 0x7FFF
    if (_mm_movemask_epi8(marked) != 0) break;
  }
#endif
  for (; i < length; ++i) {
    if (units[i] < 0x100) classes = static_cast<unsigned char>(classes | S_valueBytes.of[units[i]]);
  }
  bool needsEscape = (classes & S_escaped) != 0;
  bool hasQuot = (classes & S_quot) != 0;
  bool hasApos = (classes & S_apos) != 0;
  if (!needsEscape && !(hasQuot && hasApos)) {
    unsigned char quote = hasQuot ? '\'' : '"';
    return sPutByte(out, quote) && sWriteToBuffer(out, units, length) && sPutByte(out, quote);
  }
  return sPutByte(out, '"') && sWriteEscaped(out, units, length, S_AttributeEntities) && sPutByte(out, '"');
}

// Element text keeps tabs, line ends and apostrophes; only the four markup units change.
bool sWriteText(SOutput& out, const DString& text) {
  return sWriteEscaped(out, text.ConvertToUCChar(), text.Length(), S_TextEntities);
}

// The two digits of each byte of a nibble value.
struct SHexPairs {
  char of[256][2];
  constexpr SHexPairs() : of() {
    for (int byte = 0; byte < 256; ++byte) {
      of[byte][0] = "0123456789abcdef"[byte >> 4];
      of[byte][1] = "0123456789abcdef"[byte & 0xF];
    }
  }
};
constexpr SHexPairs S_hexPairs;

// A compact value of lower-case hex digits, which need neither entity nor other quote:
// written from the nibbles straight into the buffer where it fits, else digit by digit.
bool sWriteNibbleValue(SOutput& out, const unsigned char* bytes, int length) {
  const int pairs = length / 2;
  if (unsigned char* at = out.Room(length + 2)) {
    at[0] = '"';
    int k = 0;
#if defined(__SSE2__)
    // Sixteen bytes to thirty-two digits: the nibbles interleaved high first, then
    // '0' added, and 'a' - '0' - 10 more for those above 9.
    const __m128i low = _mm_set1_epi8(0xF);
    for (; k + 16 <= pairs; k += 16) {
      const __m128i sixteen = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + k));
      const __m128i high = _mm_and_si128(_mm_srli_epi16(sixteen, 4), low);
      const __m128i nibbles[2] = {_mm_unpacklo_epi8(high, _mm_and_si128(sixteen, low)),
                                  _mm_unpackhi_epi8(high, _mm_and_si128(sixteen, low))};
      for (int half = 0; half < 2; ++half) {
        const __m128i letters = _mm_and_si128(_mm_cmpgt_epi8(nibbles[half], _mm_set1_epi8(9)), _mm_set1_epi8(39));
        const __m128i digits = _mm_add_epi8(_mm_add_epi8(nibbles[half], _mm_set1_epi8('0')), letters);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(at + 1 + 2 * k + 16 * half), digits);
      }
    }
#endif
    for (; k < pairs; ++k) std::memcpy(at + 1 + 2 * k, S_hexPairs.of[bytes[k]], 2);
    if ((length & 1) != 0) at[length] = static_cast<unsigned char>(S_hexPairs.of[bytes[pairs]][0]);
    at[length + 1] = '"';
    out.count += length + 2;
    return true;
  }
  if (!sPutByte(out, '"')) return false;
  for (int i = 0; i < length; ++i) {
    if (!sPutByte(out, static_cast<unsigned char>(S_hexPairs.of[bytes[i / 2]][i & 1]))) return false;
  }
  return sPutByte(out, '"');
}

// A compact value of one byte per unit. One that needs only a quote and is ASCII is
// copied as it stands; any other takes the unit rules.
bool sWriteByteValue(SOutput& out, const unsigned char* bytes, int length, std::vector<unsigned short>& units) {
  unsigned char classes = 0;
  int i = 0;
#if defined(__SSE2__)
  // Sixteen bytes at a time while none asks for anything; the rest, from the block that
  // does, goes through the table.
  for (; i + 16 <= length; i += 16) {
    const __m128i sixteen = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
    __m128i marked =
        _mm_or_si128(_mm_cmpeq_epi8(sixteen, _mm_set1_epi8('<')), _mm_cmpeq_epi8(sixteen, _mm_set1_epi8('&')));
    marked = _mm_or_si128(marked, _mm_cmpeq_epi8(sixteen, _mm_set1_epi8('"')));
    marked = _mm_or_si128(marked, _mm_cmpeq_epi8(sixteen, _mm_set1_epi8('\'')));
    marked = _mm_or_si128(marked, _mm_cmplt_epi8(sixteen, _mm_set1_epi8(14)));  // controls, and bytes from 0x80
    if (_mm_movemask_epi8(marked) != 0) break;
  }
#endif
  for (; i < length; ++i) classes = static_cast<unsigned char>(classes | S_valueBytes.of[bytes[i]]);
  if ((classes & (S_escaped | S_wide)) == 0 && (classes & (S_quot | S_apos)) != (S_quot | S_apos)) {
    unsigned char quote = (classes & S_quot) != 0 ? '\'' : '"';
    if (unsigned char* at = out.Room(length + 2)) {
      at[0] = quote;
      std::memcpy(at + 1, bytes, static_cast<size_t>(length));
      at[length + 1] = quote;
      out.count += length + 2;
      return true;
    }
    return sPutByte(out, quote) && sPutBytes(out, bytes, length) && sPutByte(out, quote);
  }
  units.assign(bytes, bytes + length);
  return sWriteAttributeValue(out, units.data(), length);
}

// Compact values are written from their bytes, so writing a tree leaves it as small as
// it was.
bool sWriteAttributes(SOutput& out, const ZYNAdmXmlElement& element) {
  void* iterator = element.GetAttributes();
  ZYNAdmXmlElement::StoredValue value;
  while (const DString* name = element.NextStoredAttribute(iterator, value)) {
    if (!sPutByte(out, ' ')) return false;
    if (name->IsEmpty()) return false;
    if (!sWriteName(out, *name) || !sPutByte(out, '=')) return false;
    bool written = value.units != nullptr ? sWriteAttributeValue(out, value.units, value.length)
                   : value.nibbles        ? sWriteNibbleValue(out, value.bytes, value.length)
                                          : sWriteByteValue(out, value.bytes, value.length, out.units);
    if (!written) return false;
  }
  return true;
}

// Writes the start tag, and the text where there is any. Gives 0 on failure, 1 when the
// element was closed as empty, 2 when it stays open for its children.
int sOpenElement(SOutput& out, const ZYNAdmXmlElement& element, void*& children) {
  if (!sPutByte(out, '<')) return 0;
  const DString& name = element.GetNameRef();
  if (name.IsEmpty()) return 0;
  if (!sWriteName(out, name) || !sWriteAttributes(out, element)) return 0;
  const DString& value = element.GetValueRef();
  children = element.GetChildren();
  if (value.IsEmpty() && children == nullptr) return sPutAscii(out, "/>") ? 1 : 0;
  if (!sPutByte(out, '>') || !sWriteText(out, value)) return 0;
  return 2;
}

// Text first, then the children, whatever their order in a parsed source: the parser
// keeps one text per element, so this is the only order that reads back the same.
// The walk keeps its own stack, so the depth of a tree is limited by memory only.
bool sGetXml(SOutput& out, const ZYNAdmXmlElement& root) {
  struct Frame {
    const ZYNAdmXmlElement* element;
    void* children;
  };
  std::vector<Frame> open;
  void* children = nullptr;
  int opened = sOpenElement(out, root, children);
  if (opened == 0) return false;
  if (opened == 2) open.push_back(Frame{&root, children});
  while (!open.empty()) {
    if (open.back().children != nullptr) {
      // GetChild moves the frame's cursor on before the stack may grow.
      const ZYNAdmXmlElement& child = open.back().element->GetChild(open.back().children);
      opened = sOpenElement(out, child, children);
      if (opened == 0) return false;
      if (opened == 2) open.push_back(Frame{&child, children});
      continue;
    }
    const DString& name = open.back().element->GetNameRef();
    if (!sPutAscii(out, "</") || !sWriteName(out, name) || !sPutByte(out, '>')) return false;
    open.pop_back();
  }
  return true;
}

}  // namespace

int ZYNAdmXmlParser::GetXml(const ZYNAdmXmlElement& element, ZYNAdmOutputStream& stream) {
  return GetXml(element, DString(), stream);
}

// On a failure after Open the stream is left open, as the caller may still want to look
// at what reached it.
int ZYNAdmXmlParser::GetXml(const ZYNAdmXmlElement& element, const DString& prolog, ZYNAdmOutputStream& stream) {
  SOutput out(stream);
  for (const char* at = S_Declaration; *at != 0; ++at) {
    out.buffer[out.count++] = static_cast<unsigned char>(*at);
  }
  if (!stream.Open()) return 0;
  if (!prolog.IsEmpty() && !sWriteToBuffer(out, prolog.ConvertToUCChar(), prolog.Length())) {
    return 0;
  }
  if (!sGetXml(out, element)) return 0;
  if (out.count > 0 && !sFlush(out)) return 0;
  return stream.Close() != 0 ? 1 : 0;
}

int ZYNAdmXmlParser::GetXmlOfEach(const ZYNAdmXmlElement* const* elements, size_t count, ZYNAdmOutputStream& stream) {
  SOutput out(stream);
  for (size_t i = 0; i < count; ++i) {
    if (!sGetXml(out, *elements[i])) return 0;
  }
  return out.count == 0 || sFlush(out) ? 1 : 0;
}
