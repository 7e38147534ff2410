// ZYNInsFindingsFiles.cpp - the -json and -junit files of a run, through the same road
// as the report: a new file, renamed over the path once whole.
#include "ZYNInsFindingsFiles.h"

#include <chrono>
#include <ctime>
#include <string>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmReplacingFile.h"
#include "ZYNInsFindings.h"
#include "ZYNInsFindingsJUnit.h"
#include "ZYNInsFindingsJson.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMsg.h"
#include "ZYNInsSignature.h"

typedef ZYNInsMediaCheckerOptions Options;

static ZYNInsRunFacts S_facts;
static std::chrono::steady_clock::time_point S_started;

static DString sUtcNow() {
  std::time_t now = std::time(nullptr);
  struct tm utc;
  char text[32] = "";
  if (gmtime_r(&now, &utc) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return ZYNAdmCodePage::ConvertStrToUcs(text);
}

void ZYNInsFindingsFiles::Begin() {
  S_started = std::chrono::steady_clock::now();
  S_facts.start = sUtcNow();
  Options::GetCDPaths(S_facts.pathKeys, S_facts.paths);
  S_facts.pubkey = Options::GetPublicKey();
  S_facts.sign = Options::GetSignKeyFile();
  ZYNInsFindings::KeepAll(!Options::GetJsonFile().IsEmpty() || !Options::GetJUnitFile().IsEmpty());
}

static bool sWrite(DString const& path, std::string const& text) {
  ZYNAdmReplacingFile file(path);
  if (file.Open() == 0) return false;
  unsigned char* bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
  bool written = file.Write(bytes, static_cast<int>(text.size())) == static_cast<int>(text.size());
  return file.Close() != 0 && written;
}

static int sFailed(DString const& path) {
  ZYNInsMediaCheckerServices::DisplayError(ZYNInsMsg::BuildMsg(DString(L"Unable to write to \"/P1\""), DStrings(path)));
  return 2;
}

int ZYNInsFindingsFiles::Finish(int status) {
  DString json = Options::GetJsonFile();
  DString junit = Options::GetJUnitFile();
  if (json.IsEmpty() && junit.IsEmpty()) return status;
  S_facts.status = status;
  if (ZYNInsSignature::Outcome().kind == ZYNInsSignatureVerified)
    S_facts.signature = ZYNInsSignature::Outcome().sentence;
  S_facts.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - S_started).count();
  if (!json.IsEmpty() && !sWrite(json, ZYNInsFindingsJson::Text(S_facts))) return sFailed(json);
  if (!junit.IsEmpty() && !sWrite(junit, ZYNInsFindingsJUnit::Text(S_facts))) return sFailed(junit);
  return status;
}
