// Generate mode: the full reference on volume 1 and a tag on every other volume, each
// sealed, the tags bound to the reference by its seal.
#include <algorithm>
#include <cstdlib>
#include <string>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmError.h"
#include "ZYNAdmInputFile.h"
#include "ZYNAdmOutputStreamBuffer.h"
#include "ZYNAdmReplacingFile.h"
#include "ZYNAdmStringOutput.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNAdmXmlOutputFormatter.h"
#include "ZYNAdmXmlParallelDigest.h"
#include "ZYNAdmXmlParser.h"
#include "ZYNInsDir.h"
#include "ZYNInsExitKeep.h"
#include "ZYNInsFindings.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMsg.h"
#include "ZYNInsSignature.h"

typedef ZYNInsMediaCheckerOptions Options;
typedef ZYNInsMediaCheckerServices Services;

// Shows `message` and ends the run; the closing line of Finalize follows it. Its status
// is not ours to keep: every failure of generation ends with 2.
static int sFail(DString const& message, DString const& relData) {
  // A file the scan could not read is the scan's own finding.
  if (ZYNInsFindings::Total() == 0) ZYNInsFindings::Add(ZYNInsFindingError, 0, DString(), message);
  Services::DisplayError(message);
  Services::Finalize(message, relData);
  return 2;
}

static DString sUnableToWrite(DString const& path) {
  return ZYNInsMsg::BuildMsg(DString(L"Unable to write to \"/P1\""), DStrings(path));
}

// Laid out on lines as a user reads it; the seal covers the tree, not these bytes.
static int sWriteXml(ZYNAdmXmlElement const& element, ZYNAdmReplacingFile& file) {
  ZYNAdmXmlOutputFormatter formatter(file);
  return ZYNAdmXmlParallelDigest::Write(element, formatter);
}

// The same bytes as above, kept in `bytes` for their signature.
static int sWriteSignedXml(ZYNAdmXmlElement const& element, ZYNAdmReplacingFile& file, std::string& bytes) {
  ZYNAdmStringOutput memory;
  ZYNAdmXmlOutputFormatter formatter(memory);
  if (ZYNAdmXmlParallelDigest::Write(element, formatter) == 0) return 0;
  bytes.swap(memory.bytes);
  if (file.Open() == 0) return 0;
  static const std::size_t S_Chunk = 1 << 20;
  bool written = true;
  for (std::size_t at = 0; written && at < bytes.size(); at += S_Chunk) {
    int count = static_cast<int>(std::min(S_Chunk, bytes.size() - at));
    written = file.Write(reinterpret_cast<unsigned char*>(&bytes[at]), count) == count;
  }
  return file.Close() != 0 && written ? 1 : 0;
}

static bool sReadRelInfo(DString const& path, ZYNAdmXmlElement& relInfo) {
  ZYNAdmInputFile input(path);
  return ZYNAdmXmlParser::Parse(input, relInfo) == 1;
}

// The tag of volume `cdIndex`, written below `base`: 0 done, else the exit status.
static int sWriteVolumeTag(ZYNAdmXmlElement& volume, int cdIndex, DString const& packageHash, DString const& base,
                           DString const& relText, ZYNAdmReplacingFileSet& files) {
  volume.SetAttributeValue(DString(L"cdid"), DString::FromNum(cdIndex, "%d"));
  volume.SetAttributeValue(DString(L"packageHash"), packageHash);
  if (ZYNAdmXmlHash::Hash(volume) == 0) return sFail(DString(L"Internal error"), relText);

  DString path = Services::GetRefFilePath(base, cdIndex);
  if (!ZYNInsDir::CreateDir(ZYNInsDir::GetParentDir(path))) return sFail(ZYNAdmError::Pop(), relText);
  if (sWriteXml(volume, files.Add(path, base)) == 0) return sFail(sUnableToWrite(path), relText);
  return 0;
}

static DString sCannotMake(DString const& path) { return DString(L"Fail to create folders for : ") + path; }

// The references are written after a scan that may take long: a folder that can't be
// made or written fails now, in the words its failure would have had then. Empty when
// every folder will do. A folder list that can't be read is the scan's to report: the
// records of this look are taken off again, so that the scan's message comes once.
static DString sUnwritableOutput(DString const& base) {
  int before = ZYNAdmError::GetStackSize();
  DStrings names;
  if (Services::GetCDsList(names) != 1) {
    while (ZYNAdmError::GetStackSize() > before) ZYNAdmError::Pop();
    return DString();
  }
  int count = names.GetLength() > 0 ? names.GetLength() : 1;
  for (int i = 1; i <= count; ++i) {
    DString path = Services::GetRefFilePath(base, i);
    int state = ZYNInsDir::CanWriteIn(ZYNInsDir::GetParentDir(path));
    if (state == ZYNInsFolderCannotBeMade) return sCannotMake(path);
    if (state == ZYNInsFolderNotWritable) return sUnableToWrite(path);
  }
  return DString();
}

int ZYNInsMediaCheckerServices::GenerateMode() {
  ZYNInsMsg::Debug(DString(L"{ZYNInsMediaCheckerServices::GenerateMode}start generation process ..."));

  // Read before the scan, so that a wrong path costs no time.
  DString relInfoPath = Options::GetRelInfoFile();
  ZYNAdmXmlElement relInfo;
  if (!relInfoPath.IsEmpty() && !sReadRelInfo(relInfoPath, relInfo)) {
    DString message =
        ZYNInsMsg::BuildMsg(DString(L"\n\"/P1\" input file is missing or cannot be accessed"), DStrings(relInfoPath));
    return sFail(message, DString());
  }

  DString base = Options::GetExternalFolder();
  if (base.IsEmpty()) base = Options::GetCDsPath();
  // The set a killed regeneration left half swapped is whole again before it is replaced.
  RecoverReferenceSet(base);
  DString unwritable = sUnwritableOutput(base);
  if (!unwritable.IsEmpty()) return sFail(unwritable, DString());

  // A wrong passphrase must not cost a scan.
  DString signKey = Options::GetSignKeyFile();
  if (!signKey.IsEmpty() && ZYNInsSignature::LoadSecretKey(signKey) != 0) return sFail(ZYNAdmError::Pop(), DString());

  ZYNAdmXmlElement view;
  ZYNInsExitKeep keepView(view);
  DString errors;
  if (GetMediaXmlView(view, errors) != 0) return sFail(errors, DString());

  // RelData is shared by the view and the volume tag: what is added here is in both.
  ZYNAdmXmlElement volume(DString(L"Media"));
  ZYNAdmXmlElement relData;
  GetFirstElement(view, DString(L"RelData"), relData);
  if (!relInfoPath.IsEmpty()) relData.AddChild(relInfo);
  volume.AddChild(relData);

  DString relText;
  GetRelData(volume, relText);

  if (ZYNAdmXmlHash::Hash(view) == 0) {
    ZYNInsFindings::Add(ZYNInsFindingError, 0, DString(), DString(L"Internal error"));
    Finalize(DString(L"Internal error"), relText);
    return 2;
  }

  DString path = GetRefFilePath(base, 1);
  if (!ZYNInsDir::CreateDir(ZYNInsDir::GetParentDir(path))) {
    return sFail(sCannotMake(path), DString());
  }
  // The reference and the tags replace the old ones together, once all are on disk: a
  // tag that can't be written leaves the old set, not a new reference with old tags.
  ZYNAdmReplacingFileSet files;
  files.SetJournal(GetJournalPath(base));
  if (signKey.IsEmpty()) {
    if (sWriteXml(view, files.Add(path, base)) == 0) return sFail(sUnableToWrite(path), relText);
  } else {
    std::string bytes;
    if (sWriteSignedXml(view, files.Add(path, base), bytes) == 0) return sFail(sUnableToWrite(path), relText);
    ZYNAdmReplacingFile& signature = files.Add(ZYNInsSignature::PathFor(path), base);
    if (ZYNInsSignature::WriteSignature(path, bytes, Options::GetSignComment(), Options::HasSignComment(), signature) !=
        0) {
      return sFail(ZYNAdmError::Pop(), relText);
    }
  }

  DString packageHash = ZYNAdmXmlHash::GetHash(view);
  if (packageHash.IsEmpty()) return 2;

  // A list that can't be read now would leave volumes with the old tags of another seal.
  DStrings names;
  if (GetCDsList(names) < 0) {
    return sFail(ZYNAdmError::IsStackEmpty() ? DString(L"Internal error") : ZYNAdmError::Pop(), relText);
  }
  for (int i = 2; i < names.GetLength() + 1; ++i) {
    int status = sWriteVolumeTag(volume, i, packageHash, base, relText, files);
    if (status != 0) return status;
  }
  if (files.Commit() == 0) return sFail(sUnableToWrite(files.Failed()), relText);
  // A signature left from an earlier run could no longer match the new reference.
  if (signKey.IsEmpty() && ZYNInsSignature::RemoveSignature(path) != 0) return sFail(ZYNAdmError::Pop(), relText);
  return Finalize(DString(), relText);
}

int ZYNInsMediaCheckerServices::GetRelData(ZYNAdmXmlElement& element, DString& text) {
  text.Empty();
  ZYNAdmXmlElement relData;
  if (GetFirstElement(element, DString(L"RelData"), relData) == 0) return 0;
  ZYNAdmXmlElement info;
  if (GetFirstElement(relData, DString(), info) == 0) return 1;

  ZYNAdmOutputStreamBuffer buffer;
  ZYNAdmXmlOutputFormatter formatter(buffer);
  if (ZYNAdmXmlParser::GetXml(info, formatter) == 0) return -1;
  unsigned char* bytes = nullptr;
  int size = 0;
  if (buffer.GetBuffer(bytes, size) == 0) return -1;
  int converted =
      ZYNAdmCodePage::ConvertUTF8ToUcs(reinterpret_cast<char const*>(bytes), static_cast<unsigned long>(size), text);
  std::free(bytes);
  return converted == 0 ? 1 : 0;
}
