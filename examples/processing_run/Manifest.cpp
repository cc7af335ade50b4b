#include "Manifest.h"

#include <cstdio>

#include "VisibleText.h"
#include "XmlNodes.h"

namespace {

constexpr char const* kFormat = "processing_run 1";

std::string IdentifierText(CUUUID& uuid) {
  unsigned char bytes[16];
  uuid.GetBytes(bytes);
  std::string text;
  for (unsigned char const byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    text += digits;
  }
  return text;
}

// The date of the file itself, whatever happens to it now; no attribute where it has gone.
void SetDate(CUXmlDomNode& element, char const* name, CUSharedPtr<CUStringMac> path,
             _Log_DateTime_Type type) {
  CUSharedPtr<CUStringMac> const date =
      CULog::GetLogDateTimeString(CULog::GetLogFileTime(path, type));
  if (date != nullptr) element.SetAttribute(StringOf(name), date);
}

CUSharedPtr<CUXmlDomNode> FileElement(CUXmlDomDocumentNode& document, FileTask& task) {
  CUSharedPtr<CUXmlDomNode> const element = document.CreateElementNode(StringOf("file"));
  SetText(*element, "path", VisibleText(Utf8Of(*task.path)));
  SetText(*element, "type", task.finding->Type());
  SetText(*element, "size", std::to_string(task.finding->Size()));
  SetText(*element, "fnv1a64", task.finding->ChecksumText());
  SetText(*element, "uuid", IdentifierText(*CUUUID::Create()));
  SetText(*element, "identifier",
          std::to_string(CUIdentifierGenerator::SharedInstance()->GenerateIdentifier()));
  SetText(*element, "microseconds", std::to_string(task.microseconds));
  SetDate(*element, "created", task.path, _Log_DateTime_Created);
  SetDate(*element, "modified", task.path, _Log_DateTime_Modified);
  return element;
}

void Build(CUXmlDomDocumentNode& document, std::vector<CUSharedPtr<FileTask>> const& files,
           std::vector<Failures::Failure> const& failures) {
  document.GetChildNodes()->AddObject(document.CreateProcessingInstructionNode(
      StringOf("xml"), StringOf("version=\"1.0\" encoding=\"UTF-8\"")));
  CUSharedPtr<CUXmlDomNode> const root = document.CreateElementNode(StringOf("manifest"));
  SetText(*root, "format", kFormat);
  document.GetChildNodes()->AddObject(root);
  for (CUSharedPtr<FileTask> const& task : files) {
    if (task->finding != nullptr) {
      root->GetChildNodes()->AddObject(FileElement(document, *task));
    }
  }
  for (Failures::Failure const& failure : failures) {
    CUSharedPtr<CUXmlDomNode> const element = document.CreateElementNode(StringOf("failure"));
    SetText(*element, "path", failure.visiblePath);
    element->GetChildNodes()->AddObject(document.CreateTextNode(StringOf(failure.reason)));
    root->GetChildNodes()->AddObject(element);
  }
}

// The manifest's own element in a document, or null.
CUSharedPtr<CUXmlDomNode> RootOf(CUXmlDomDocumentNode& document) {
  CUSharedPtr<CUXmlDomNode> const root = RootElement(document, "manifest");
  return root != nullptr && TextOf(*root, "format") == kFormat ? root : nullptr;
}

CUSharedPtr<CUXmlDomNode> Load(CUSharedPtr<CUStringMac> path) {
  CUSharedPtr<CUXmlDomDocumentNode> const document = LoadDocument(path);
  return document != nullptr ? RootOf(*document) : nullptr;
}

bool Agrees(CUXmlDomNode& element, FileTask& task) {
  return Utf8Of(*element.GetNodeName()) == "file" &&
         TextOf(element, "path") == AttributeText(VisibleText(Utf8Of(*task.path))) &&
         TextOf(element, "size") == std::to_string(task.finding->Size()) &&
         TextOf(element, "fnv1a64") == task.finding->ChecksumText() &&
         TextOf(element, "uuid").size() == 32;
}

// Whether what stands on the disk tells of the run: each file in its place, and every failure.
bool Tells(CUXmlDomNode& root, std::vector<CUSharedPtr<FileTask>> const& files,
           std::vector<Failures::Failure> const& failures) {
  CUSharedPtr<CUMutableArray> const elements = root.GetChildNodes();
  unsigned int next = 0;
  for (CUSharedPtr<FileTask> const& task : files) {
    if (task->finding == nullptr) continue;
    CUSharedPtr<CUXmlDomNode> const element = NodeAt(*elements, next++);
    if (element == nullptr || !Agrees(*element, *task)) return false;
  }
  return elements->Count() == next + failures.size();
}

}  // namespace

CUSharedPtr<CUStringMac> ManifestPath(CUStringMac& reportFile) {
  CUStringMac name;
  CUStringMac folder;
  reportFile.PathGetFileNameNoExtension(name);
  CUSharedPtr<CUStringMac> const path = new CUStringMac;
  CUSharedPtr<CUStringMac> const file = StringOf(Utf8Of(name) + ".xml");
  if (CUFailed(reportFile.PathRemoveLastComponent(folder))) return file;
  folder.PathAppend(*file, *path);
  return path;
}

std::string WhyNoManifest(CUSharedPtr<CUStringMac> path, bool overwrite) {
  bool const isFolder = CUDirectory::Exists(path);
  if (!isFolder && (overwrite || !CUFile::Exists(path) || Load(path) != nullptr)) return "";
  return VisibleText(Utf8Of(*path)) + ": the manifest cannot go here, " +
         (isFolder ? "it is a folder"
                   : "the file is not an earlier manifest; --overwrite replaces it");
}

std::string WriteManifest(CUSharedPtr<CUStringMac> path, bool overwrite,
                          std::vector<CUSharedPtr<FileTask>> const& files,
                          std::vector<Failures::Failure> const& failures) {
  std::string problem = WhyNoManifest(path, overwrite);
  if (!problem.empty()) return problem;
  std::string const visible = VisibleText(Utf8Of(*path));
  // A file that came into being since it was asked for is not replaced.
  auto const mode = CUFile::Exists(path) ? CUStream_FileMode_Create : CUStream_FileMode_CreateNew;
  CUSharedPtr<CUFileStream> const file =
      new CUFileStream(path, mode, CUStream_FileAccess_ReadWrite, true);
  if (!file->CanWrite()) return visible + ": the manifest cannot be written, the system refuses";

  CUXmlDomDocumentNode document;
  Build(document, files, failures);
  if (document.WriteXml(file) != 0) {
    return visible + ": the manifest could not be written to its end; it is not complete";
  }
  file->Close();
  CUSharedPtr<CUXmlDomNode> const root = Load(path);
  if (root == nullptr || !Tells(*root, files, failures)) {
    return visible + ": the manifest that was written does not tell what was done";
  }
  return "";
}
