#include "Job.h"

#include "VisibleText.h"
#include "XmlNodes.h"

namespace {

// The text of an element; false where it has other content. Without any it is empty.
bool GetText(CUXmlDomNode& element, std::string& text) {
  CUSharedPtr<CUMutableArray> const nodes = element.GetChildNodes();
  text.clear();
  if (nodes->Count() == 0) return true;
  CUSharedPtr<CUXmlDomNode> const node = NodeAt(*nodes, 0);
  if (nodes->Count() != 1 || node == nullptr || node->GetNodeType() != Node_Text) return false;
  text = Utf8Of(*node->GetNodeValue());
  return true;
}

}  // namespace

std::string ReadJob(std::string const& path, std::vector<std::string>& arguments) {
  std::string const visible = VisibleText(path);
  CUSharedPtr<CUStringMac> const file = StringOf(path);
  if (file == nullptr || !CUFile::Exists(file)) return visible + ": there is no such job";
  CUSharedPtr<CUXmlDomDocumentNode> const document = LoadDocument(file);
  if (document == nullptr) {
    return visible + ": the job is no XML document, or one with comments or sections of raw text";
  }
  CUSharedPtr<CUXmlDomNode> const job = RootElement(*document, "job");
  if (job == nullptr) return visible + ": the document is no job";

  CUSharedPtr<CUMutableArray> const nodes = job->GetChildNodes();
  std::vector<std::string> paths;
  for (unsigned int i = 0; i < nodes->Count(); ++i) {
    CUSharedPtr<CUXmlDomNode> const node = NodeAt(*nodes, i);
    std::string text;
    if (node == nullptr || node->GetNodeType() != Node_Element || !GetText(*node, text)) {
      return visible + ": the job holds what is no setting";
    }
    std::string const name = Utf8Of(*node->GetNodeName());
    if (name == "path") {
      paths.push_back(text);
    } else {
      arguments.push_back("--" + name + (text.empty() ? "" : "=" + text));
    }
  }
  arguments.push_back("--");
  arguments.insert(arguments.end(), paths.begin(), paths.end());
  return "";
}
