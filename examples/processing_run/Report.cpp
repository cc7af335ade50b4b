#include "Report.h"

#include <cstring>

#include "Finding.h"
#include "VisibleText.h"

namespace {

// The first line, by which a report is known again.
constexpr char const* kSignature = "processing_run report, format 1\n";

bool IsReport(CUSharedPtr<CUStringMac> path) {
  CUSharedPtr<CUFileStream> const file =
      new CUFileStream(path, CUStream_FileMode_Open, CUStream_FileAccess_Read, true);
  _CURange range = {0, std::strlen(kSignature)};
  CUSharedPtr<CUMemoryStream> const head = CUMemoryStream::CreateMemoryStreamPtr(file, range);
  return head != nullptr && std::memcmp(head->GetPtr(), kSignature, range.length) == 0;
}

std::string Field(CUSharedPtr<CUStringMac> const& text) {
  return VisibleText(Utf8Of(*text)) + "\t";
}

std::string FindingLine(Finding const& finding) {
  PathParts const& parts = finding.Parts();
  return Field(parts.name) + Field(parts.nameNoExtension) + Field(parts.extension) +
         finding.Type() + "\t" + std::to_string(finding.Size()) + "\t" + finding.ChecksumText() +
         "\t" + VisibleText(Utf8Of(*parts.folder)) + "\n";
}

// The present moment twice: the same in every language, and as the user writes it.
std::string DateLine() {
  CUDateTime now;
  return "date\t" + Field(now.Description()) + VisibleText(Utf8Of(*now.GetString(true))) + "\n";
}

std::string ReportText(RunResult const& result, std::vector<Failures::Failure> const& failures) {
  std::string text = kSignature + DateLine();
  if (result.stopped) text += "stopped\tby the user, before all was done\n";
  for (std::string const& path : result.paths) text += "given\t" + VisibleText(path) + "\n";
  text += "files\t" + std::to_string(result.findings->Count()) + "\n";
  text += "bytes\t" + std::to_string(result.bytes) + "\n";
  if (result.output != nullptr) {
    text += "output\t" + VisibleText(Utf8Of(*result.output)) + "\n";
    text += "files copied\t" + std::to_string(result.filesCopied) + "\n";
    text += "bytes copied\t" + std::to_string(result.bytesCopied) + "\n";
  }
  text += "links to folders, not followed\t" + std::to_string(result.linksToFolders) + "\n";
  text += "failures\t" + std::to_string(failures.size()) + "\n";
  for (Failures::Failure const& failure : failures) {
    text += "failure\t" + failure.visiblePath + "\t" + failure.reason + "\n";
  }
  text += "\nname\tname without extension\textension\ttype\tsize\tfnv1a64\tfolder\n";
  for (unsigned int i = 0; i < result.findings->Count(); ++i) {
    CUSharedPtr<CUObject> const object = result.findings->ObjectAtIndex(i);
    auto const* const finding = dynamic_cast<Finding*>(object.Get());
    if (finding != nullptr) text += FindingLine(*finding);
  }
  return text + "\nend of report\n";
}

}  // namespace

std::string WhyNoReport(CUSharedPtr<CUStringMac> path, bool overwrite) {
  std::string const visible = VisibleText(Utf8Of(*path));
  CUStringMac folder;
  path->PathRemoveLastComponent(folder);
  if (CUDirectory::Exists(path)) return visible + ": the report cannot go here, it is a folder";
  if (!CUDirectory::Exists(&folder)) {
    return visible + ": the report cannot go here, there is no such folder";
  }
  if (CUFile::Exists(path) && !overwrite && !IsReport(path)) {
    return visible +
           ": the report cannot go here, the file is not an earlier report; --overwrite replaces "
           "it";
  }
  return std::string();
}

std::string WriteReport(CUSharedPtr<CUStringMac> path, bool overwrite, RunResult const& result,
                        std::vector<Failures::Failure> const& failures) {
  std::string problem = WhyNoReport(path, overwrite);
  if (!problem.empty()) return problem;

  std::string const visible = VisibleText(Utf8Of(*path));
  // A file that came into being since it was asked for is not replaced.
  auto const mode = CUFile::Exists(path) ? CUStream_FileMode_Create : CUStream_FileMode_CreateNew;
  CUFileStream file(path, mode, CUStream_FileAccess_Write, true);
  if (!file.CanWrite()) return visible + ": the report cannot be written, the system refuses";

  std::string text = ReportText(result, failures);
  unsigned long long const written = file.Write(reinterpret_cast<unsigned char*>(text.data()),
                                                text.size(), 0, CUStream_Seek_Origin_Begin);
  if (written != text.size()) {
    return visible + ": the report could not be written to its end; it is not complete";
  }
  return std::string();
}
