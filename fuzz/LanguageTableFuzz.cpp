// Feeds arbitrary bytes as the language table a run finds through QRTReffilesPath: read,
// searched for the row of the environment and of a language, the locale of the row set
// and its code page opened for file names, which then convert a name both ways.
#include <stdlib.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "DStrings.h"
#include "FuzzFolder.h"
#include "ZYNAdmCodePage.h"
#include "ZYNResult.h"
#include "ZYNSysCodePage.h"
#include "ZYNSysNLSCore.h"

namespace {
std::string sTablePath() {
  static bool S_ready = false;
  std::string folder = FuzzFolder("zynfuzznls");
  if (!S_ready) {
    mkdir((folder + "/NLS").c_str(), 0700);
    setenv("QRTReffilesPath", folder.c_str(), 1);
    setenv("LANG", "en_US.UTF-8", 1);
    // Made once, so that each environment decided below reaches it by its callback.
    ZYNSysCodePage::GetEnvConverter();
    S_ready = true;
  }
  return folder + "/NLS/SUPPLANG_K6";
}

void sConvertName() {
  DString name = ZYNAdmCodePage::ConvertStrToUcs("caf\xC3\xA9-\xE9!/\x80\xFF");
  char* back = ZYNAdmCodePage::ConvertUcsToStr(name);
  ZYNAdmCodePage::FreeAndNull(back);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string path = sTablePath();
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) std::abort();
  std::fwrite(data, 1, size, file);
  std::fclose(file);

  // The environment decided from this table, as at the start of a run.
  DeInitNLSCore(0);
  ZYNSysNLSEnv env = {};
  GetEnvNLSDataA(&env);
  sConvertName();

  DStrings* languages = nullptr;
  unsigned int count = 0;
  GetSupportedLanguageList(languages, count);
  delete languages;

  ZYNSysNLSFilter all;
  all.first.function = [](ZYNSysNLSEntry*, void*) { return 1; };
  all.argument = nullptr;
  int rows = 1;
  ZYNSysNLSNode* row = nullptr;
  if (GetNLSInformationA(all, 1, rows, &row) == ZYN_S_OK && row != nullptr) {
    // Copied: a new decision drops the table the row points into.
    std::string language = row->language != nullptr ? row->language : "";
    int result = 0;
    GetLocaleTypeFromCP(GetCodePageByLanguage(language.c_str(), &result));
    // A language asked for by name, as a preferred language is.
    InitNLSCore(language.c_str());
    sConvertName();
  }
  delete row;
  return 0;
}
