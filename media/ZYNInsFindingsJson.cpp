// ZYNInsFindingsJson.cpp - the findings of a run as JSON Lines, escaped by hand: the
// records are few and flat, and the tool has no dependency for so little.
#include "ZYNInsFindingsJson.h"

#include <cstdio>

#include "ZYNAdmCodePage.h"
#include "ZYNInsFindings.h"
#include "ZYNInsMediaCheckerOptions.h"

typedef ZYNInsMediaCheckerOptions Options;

static bool sIsSurrogate(unsigned unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

void ZYNInsAppendUtf8(std::string& out, unsigned unit) {
  if (sIsSurrogate(unit)) unit = 0xFFFD;
  if (unit < 0x80) {
    out += static_cast<char>(unit);
  } else if (unit < 0x800) {
    out += static_cast<char>(0xC0 | (unit >> 6));
    out += static_cast<char>(0x80 | (unit & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (unit >> 12));
    out += static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (unit & 0x3F));
  }
}

std::string ZYNInsSecondsText(double seconds) {
  long long milliseconds = seconds > 0 ? static_cast<long long>(seconds * 1000 + 0.5) : 0;
  char text[48];
  std::snprintf(text, sizeof text, "%lld.%03lld", milliseconds / 1000, milliseconds % 1000);
  return text;
}

static void sAppendString(std::string& out, DString const& text) {
  static char const S_hex[] = "0123456789abcdef";
  unsigned short const* units = text.ConvertToUCChar();
  out += '"';
  for (int i = 0, n = text.Length(); i < n; ++i) {
    unsigned unit = units[i];
    switch (unit) {
      case '"':
        out += "\\\"";
        continue;
      case '\\':
        out += "\\\\";
        continue;
      case '\n':
        out += "\\n";
        continue;
      case '\r':
        out += "\\r";
        continue;
      case '\t':
        out += "\\t";
        continue;
      case '\b':
        out += "\\b";
        continue;
      case '\f':
        out += "\\f";
        continue;
      default:
        break;
    }
    if (unit < 0x20) {
      out += "\\u00";
      out += S_hex[unit >> 4];
      out += S_hex[unit & 15];
      continue;
    }
    ZYNInsAppendUtf8(out, unit);
  }
  out += '"';
}

std::string ZYNInsFindingsJson::String(DString const& text) {
  std::string out;
  sAppendString(out, text);
  return out;
}

bool ZYNInsFindingsJson::IsLossy(DString const& text) {
  unsigned short const* units = text.ConvertToUCChar();
  for (int i = 0, n = text.Length(); i < n; ++i) {
    if (sIsSurrogate(units[i])) return true;
  }
  return false;
}

std::string ZYNInsFindingsJson::Hex(DString const& text) {
  static char const S_hex[] = "0123456789abcdef";
  char* narrow = ZYNAdmCodePage::ConvertUcsToStr(text);
  std::string hex;
  for (char const* at = narrow; at != nullptr && *at != 0; ++at) {
    unsigned char byte = static_cast<unsigned char>(*at);
    hex += S_hex[byte >> 4];
    hex += S_hex[byte & 15];
  }
  ZYNAdmCodePage::FreeAndNull(narrow);
  return hex;
}

// A field: its name, then a string, or null where the text is empty.
static void sField(std::string& out, char const* name, DString const& value) {
  out += ",\"";
  out += name;
  out += "\":";
  if (value.IsEmpty()) {
    out += "null";
  } else {
    sAppendString(out, value);
  }
}

static void sNumber(std::string& out, char const* name, long long value) {
  char text[32];
  std::snprintf(text, sizeof text, ",\"%s\":%lld", name, value);
  out += text;
}

static void sVolume(std::string& out, int volume) {
  if (volume > 0) {
    sNumber(out, "volume", volume);
  } else {
    out += ",\"volume\":null";
  }
}

static void sRun(std::string& out, ZYNInsRunFacts const& facts) {
  out += "{\"record\":\"run\"";
  sNumber(out, "schema", ZYNInsFindingsJson::kSchema);
  out += ",\"tool\":\"ZYNInsMediaCheck\",\"version\":\"" ZYN_VERSION "\"";
  out += Options::IsGenerateMode() ? ",\"mode\":\"generate\"" : ",\"mode\":\"check\"";
  sField(out, "cd1_path", Options::GetCD1Path());
  DStrings wanted = Options::GetCDsToCheck();
  out += ",\"volumes\":";
  if (wanted.IsEmpty()) {
    out += "null";
  } else {
    for (int i = 0; i < wanted.GetLength(); ++i) {
      out += i == 0 ? "[" : ",";
      // -cds kept only pieces that read back as numbers.
      int value = 0;
      wanted.GetAsPtr(i)->ConvertToNum(value, "%d");
      out += std::to_string(value);
    }
    out += "]";
  }
  out += ",\"volume_paths\":{";
  bool first = true;
  for (int i = 0; i < facts.pathKeys.GetLength(); ++i) {
    if (*facts.pathKeys.GetAsPtr(i) == DString(L"1")) continue;  // volume 1 is cd1_path
    if (!first) out += ",";
    first = false;
    sAppendString(out, *facts.pathKeys.GetAsPtr(i));
    out += ":";
    sAppendString(out, *facts.paths.GetAsPtr(i));
  }
  out += "}";
  sField(out, "ref_dir", Options::GetExternalFolder());
  sField(out, "report", Options::GetReportFile());
  sField(out, "pubkey", facts.pubkey);
  sField(out, "sign", facts.sign);
  sField(out, "start", facts.start);
  out += "}\n";
}

static void sFinding(std::string& out, ZYNInsFinding const& finding) {
  out += "{\"record\":\"finding\"";
  sVolume(out, finding.volume);
  sField(out, "path", finding.path);
  if (ZYNInsFindingsJson::IsLossy(finding.path)) {
    out += ",\"path_hex\":\"";
    out += ZYNInsFindingsJson::Hex(finding.path);
    out += "\"";
  }
  out += ",\"kind\":";
  sAppendString(out, DString(ZYNInsFindings::KindName(finding.kind)));
  sField(out, "expected", finding.expected);
  sField(out, "found", finding.found);
  int length = finding.sentence.Length();
  if (length > 0 && finding.sentence[length - 1] == L'\n') --length;
  sField(out, "sentence", finding.sentence.SubStringD(0, length));
  out += "}\n";
}

static void sSummary(std::string& out, ZYNInsRunFacts const& facts) {
  out += "{\"record\":\"summary\",\"verdict\":";
  sAppendString(out, DString(ZYNInsFindings::Verdict(facts.status)));
  sNumber(out, "status", facts.status);
  out += ",\"counts\":{";
  for (int kind = 0; kind < ZYNInsFindingKinds; ++kind) {
    ZYNInsFindingKind k = static_cast<ZYNInsFindingKind>(kind);
    if (kind > 0) out += ",";
    sAppendString(out, DString(ZYNInsFindings::KindName(k)));
    char count[32];
    std::snprintf(count, sizeof count, ":%lld", ZYNInsFindings::Count(k));
    out += count;
  }
  out += "}";
  sNumber(out, "findings", ZYNInsFindings::Total());
  long long files = 0;
  long long bytes = 0;
  for (ZYNInsVolumeTally const& tally : ZYNInsFindings::Volumes()) {
    files += tally.files;
    bytes += tally.bytes;
  }
  sNumber(out, "files", files);
  sNumber(out, "bytes", bytes);
  sField(out, "signature", facts.signature);
  out += ",\"seconds\":" + ZYNInsSecondsText(facts.seconds) + "}\n";
}

std::string ZYNInsFindingsJson::Text(ZYNInsRunFacts const& facts) {
  std::string out;
  sRun(out, facts);
  for (ZYNInsFinding const& finding : ZYNInsFindings::List()) sFinding(out, finding);
  if (Options::IsGenerateMode()) {
    for (ZYNInsVolumeTally const& tally : ZYNInsFindings::Volumes()) {
      out += "{\"record\":\"volume\"";
      sNumber(out, "volume", tally.volume);
      sNumber(out, "files", tally.files);
      sNumber(out, "bytes", tally.bytes);
      out += "}\n";
    }
  }
  sSummary(out, facts);
  return out;
}
