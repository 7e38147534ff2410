// Editing operations of the string value: search, parts, split, replacement, numbers.
#include <cstdio>
#include <cstring>
#include <vector>

#include "DString.h"
#include "DStrings.h"

int DString::SearchSubString(DString const& sub, int start) const {
  int length = Length();
  int subLength = sub.Length();
  if (start < 0 || start >= length || subLength == 0 || subLength > length) return -1;
  if (start > length - subLength) return -1;
  uint16_t const* text = _p->Units();
  uint16_t const* pattern = sub._p->Units();
  uint16_t first = pattern[0];
  size_t tailBytes = static_cast<size_t>(subLength - 1) * 2;
  for (int i = start, end = length - subLength; i <= end; ++i) {
    if (text[i] != first) continue;
    if (std::memcmp(text + i + 1, pattern + 1, tailBytes) == 0) return i;
  }
  return -1;
}

int DString::SearchSubStringBackward(DString const& sub, int offsetFromEnd) const {
  int length = Length();
  int subLength = sub.Length();
  if (offsetFromEnd < 0 || offsetFromEnd >= length || subLength == 0) return -1;
  int start = length - subLength - offsetFromEnd;
  if (start < 0) return -1;
  uint16_t const* text = _p->Units();
  uint16_t const* pattern = sub._p->Units();
  for (int i = start; i >= 0; --i) {
    if (std::memcmp(text + i, pattern, static_cast<size_t>(subLength) * 2) == 0) return i;
  }
  return -1;
}

DString DString::SubStringD(int first, int last) const {
  if (_CheckRange(first, last) != ZYN_S_OK) return DString();
  return DString(_p->Units() + first, last - first);
}

int DString::Split(DString const& separator, DStrings& result) const {
  result.Clear();
  int length = Length();
  int separatorLength = separator.Length();
  int position = 0;
  for (;;) {
    int match = SearchSubString(separator, position);
    if (match < 0) break;
    result.PutBack(match == position ? DString() : SubStringD(position, match));
    position = match + separatorLength;
  }
  result.PutBack(SubStringD(position, length));
  return ZYN_S_OK;
}

int DString::Insert(int index, DString const& value) { return ReplaceRange(index, index, value); }

int DString::Insert(int index, DString const& value, int first, int last) {
  if (value._CheckRange(first, last) != ZYN_S_OK || first == last) return ZYN_E_FAIL;
  if (index < 0 || index > Length()) return ZYN_E_FAIL;
  return ReplaceRange(index, index, value.SubStringD(first, last));
}

int DString::ReplaceRange(int first, int last, DString const& value) {
  if (_p == nullptr || first < 0 || last < first || last > _p->length) return ZYN_E_FAIL;
  // A value that shares our record would change under our feet: take a private copy.
  if (value._p == _p && !value.IsEmpty()) {
    DString own(value.ConvertToUCChar(), value.Length());
    return ReplaceRange(first, last, own);
  }
  int length = _p->length;
  int valueLength = value.Length();
  int removed = last - first;
  int tail = length - last;
  int newLength = length - removed + valueLength;
  if (_p->RefCount() != 1 && valueLength < removed) {
    DStringInternal* fresh = DStringInternal::Allocate(newLength);
    if (fresh != _DStringEmptyPtr) {
      std::memcpy(fresh->Units(), _p->Units(), static_cast<size_t>(first) * 2);
      std::memcpy(fresh->Units() + first + valueLength, _p->Units() + last, static_cast<size_t>(tail) * 2);
    }
    if (_p != _DStringEmptyPtr) _p->Release();
    _p = fresh;
  } else {
    _AllocNewRefString(newLength, 1, 0);
    if (_IsWritable() && tail > 0) {
      std::memmove(_p->Units() + first + valueLength, _p->Units() + last, static_cast<size_t>(tail) * 2);
    }
  }
  if (!_IsWritable()) return ZYN_E_FAIL;
  if (valueLength > 0) std::memcpy(_p->Units() + first, value._p->Units(), static_cast<size_t>(valueLength) * 2);
  _p->length = newLength;
  _p->Units()[newLength] = 0;
  _p->SetHashStale();
  return ZYN_S_OK;
}

int DString::ReplaceSubString(DString const& from, DString const& to, int start) {
  int at = SearchSubString(from, start);
  if (at < 0) return -1;
  ReplaceRange(at, at + from.Length(), to);
  return at;
}

int DString::ReplaceAll(DString const& from, DString const& to) {
  int length = Length();
  int fromLength = from.Length();
  if (fromLength == 0 || length == 0 || fromLength > length) return 0;
  std::vector<int> matches;
  for (int at = SearchSubString(from, 0); at >= 0; at = SearchSubString(from, at + fromLength)) {
    matches.push_back(at);
  }
  int count = static_cast<int>(matches.size());
  if (count == 0) return 0;
  int toLength = to.Length();
  long long finalLength = length + static_cast<long long>(count) * (toLength - fromLength);
  if (finalLength < 1) {
    BuildFromUCChar(nullptr, static_cast<int>(finalLength));
    return count;
  }
  std::vector<uint16_t> assembled(static_cast<size_t>(finalLength));
  uint16_t const* text = _p->Units();
  uint16_t const* replacement = to.ConvertToUCChar();
  size_t out = 0;
  int position = 0;
  for (int at : matches) {
    std::memcpy(&assembled[out], text + position, static_cast<size_t>(at - position) * 2);
    out += static_cast<size_t>(at - position);
    if (toLength > 0) std::memcpy(&assembled[out], replacement, static_cast<size_t>(toLength) * 2);
    out += static_cast<size_t>(toLength);
    position = at + fromLength;
  }
  if (length > position) std::memcpy(&assembled[out], text + position, static_cast<size_t>(length - position) * 2);
  BuildFromUCChar(assembled.data(), static_cast<int>(finalLength));
  return count;
}

int DString::Remove(int first, int count) {
  int length = Length();
  if (first < 0 || first >= length || count < 1) return 0;
  int last = count > length - first ? length : first + count;
  ReplaceRange(first, last, DString());
  return 0;
}

// ---------------------------------------------------------------------------------------
// Numbers

static const int S_NumBufferSize = 1025;

int DString::_BuildFromFormatted(char const* bytes) {
  wchar_t wide[S_NumBufferSize];
  int i = 0;
  for (; i < S_NumBufferSize - 1 && bytes[i] != 0; ++i) wide[i] = static_cast<unsigned char>(bytes[i]);
  wide[i] = 0;
  *this = wide;
  return ZYN_S_OK;
}

#define ZYN_DEFINE_BUILD_FROM_NUM(Type)                                                  \
  int DString::BuildFromNum(Type value, char const* format) {                            \
    if (format == nullptr) return ZYN_E_FAIL;                                            \
    char bytes[S_NumBufferSize];                                                         \
    int written = std::snprintf(bytes, sizeof bytes, format, value);                     \
    if (written < 1) return ZYN_E_FAIL;                                                  \
    return _BuildFromFormatted(bytes);                                                   \
  }                                                                                      \
  DString DString::FromNum(Type value, char const* format) {                             \
    DString result;                                                                      \
    if (result.BuildFromNum(value, format) != ZYN_S_OK) return DString(L"Error_BadNum"); \
    return result;                                                                       \
  }

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
ZYN_DEFINE_BUILD_FROM_NUM(int)
ZYN_DEFINE_BUILD_FROM_NUM(long long)
ZYN_DEFINE_BUILD_FROM_NUM(double)

template <typename T>
static int sConvertToNum(DString const& text, T& value, char const* format) {
  value = 0;
  if (text._GetRecord() == nullptr || format == nullptr) return ZYN_E_FAIL;
  int length = text.Length();
  std::vector<char> bytes(static_cast<size_t>(length) + 1, 0);
  unsigned short const* units = text.ConvertToUCChar();
  for (int i = 0; i < length; ++i) {
    if (units[i] > 127) return ZYN_E_FAIL;
    bytes[static_cast<size_t>(i)] = static_cast<char>(units[i]);
  }
  return std::sscanf(bytes.data(), format, &value) == 1 ? ZYN_S_OK : ZYN_E_FAIL;
}
#pragma GCC diagnostic pop

int DString::ConvertToNum(int& value, char const* format) const { return sConvertToNum(*this, value, format); }

int DString::ConvertToNum(long long& value, char const* format) const { return sConvertToNum(*this, value, format); }
