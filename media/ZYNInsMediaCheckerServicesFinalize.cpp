// The end of a run in either mode: the report when one is due, the verdict, the status.
#include "DStrings.h"
#include "ZYNAdmReplacingFile.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlOutputFormatter.h"
#include "ZYNAdmXmlParser.h"
#include "ZYNInsDir.h"
#include "ZYNInsFindings.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMsg.h"

typedef ZYNInsMediaCheckerOptions Options;

// Fixed when the program is built: they describe the build, not the machine it runs on.
static const wchar_t S_OsType[] = L"UNIX";
static const wchar_t S_OsName[] = L"Linux";
static const wchar_t S_OsBuild[] = L"linux_b64";
static const wchar_t S_OsBitMode[] = L"64";
static const wchar_t S_Namespace[] = L"http://www.zynthar.com/tools/config";

static ZYNAdmXmlElement sInfo(wchar_t const* name, DString const& value) {
  ZYNAdmXmlElement element{DString(name)};
  element.SetAttributeValue(DString(L"Value"), value);
  return element;
}

static ZYNAdmXmlElement sReport(DString const& errors, DString const& relData) {
  ZYNAdmXmlElement application(DString(L"Application"));
  application.SetAttributeValue(DString(L"Name"), DString(L"MediaChecker"));
  application.SetAttributeValue(DString(L"ZirkOS_Type"), DString(S_OsType));
  application.SetAttributeValue(DString(L"ZirkOS_NAME"), DString(S_OsName));
  application.SetAttributeValue(DString(L"ZirkOS_Buildtime"), DString(S_OsBuild));
  application.SetAttributeValue(DString(L"ZirkOS_BitMode"), DString(S_OsBitMode));
  application.SetAttributeValue(DString(L"xmlns"), DString(S_Namespace));

  ZYNAdmXmlElement step(DString(L"Step"));
  step.SetAttributeValue(DString(L"Name"), DString(Options::IsGenerateMode() ? L"Generate" : L"Check"));
  if (!errors.IsEmpty()) step.AddChild(sInfo(L"ZirkError", errors));
  step.AddChild(sInfo(L"ZirkInfo", DString(L"checkerVersion=1.1")));
  if (!relData.IsEmpty()) step.AddChild(sInfo(L"ZirkInfo", relData));
  application.AddChild(step);
  return application;
}

static bool sWriteReport(DString const& path, DString const& errors, DString const& relData) {
  ZYNAdmReplacingFile file(path);
  ZYNAdmXmlOutputFormatter formatter(file);
  return ZYNAdmXmlParser::GetXml(sReport(errors, relData), formatter) != 0;
}

int ZYNInsMediaCheckerServices::Finalize(DString errors, DString relData) {
  DString reportPath = Options::GetReportFile();
  if (reportPath.IsEmpty()) {
    DString temporary = ZYNInsDir::GetTemporaryPath();
    if (temporary.IsEmpty()) {
      DisplayError(DString(L"Cannot get the temp directory\n"));
      return 2;
    }
    reportPath = temporary + L"/MediaCheck_report.xml";
  }

  bool generate = Options::IsGenerateMode();
  bool due = !Options::GetReportFile().IsEmpty() || (!generate && !errors.IsEmpty());
  if (due && !sWriteReport(reportPath, errors, relData)) {
    DisplayError(ZYNInsMsg::BuildMsg(DString(L"Unable to write to \"/P1\""), DStrings(reportPath)));
    return 2;
  }

  if (generate) {
    ZYNInsMsg::TracePrint(DString(errors.IsEmpty() ? L"\nOperation terminated successfully\n\n"
                                                   : L"\nOperation terminated with error(s)\n\n"));
    return errors.IsEmpty() ? 0 : 2;
  }
  if (errors.IsEmpty()) {
    ZYNInsMsg::TracePrint(
        ZYNInsMsg::BuildMsg(DString(L"\n\n\nMedia check completed\n\n/P1\n\nStatus: PASSED\n\n"), DStrings(relData)));
    return 0;
  }
  ZYNInsMsg::TracePrint(ZYNInsMsg::BuildMsg(
      DString(L"\n\n\nMedia check completed\n\n/P1\n\nStatus: FAILED\n\nA report file has been written to /P2\n\n"),
      DStrings(relData, reportPath)));
  if (!Options::IsQuiet()) ZYNInsFindings::PrintOnStderr(reportPath);
  return 1;
}
