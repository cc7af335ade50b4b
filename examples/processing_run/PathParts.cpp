#include "PathParts.h"

#include "VisibleText.h"

PathParts SplitPath(CUStringMac& path) {
  PathParts parts = {new CUStringMac, new CUStringMac, new CUStringMac, new CUStringMac};
  CUStringMac whole(path);
  if (CUFailed(whole.PathGetFileName(*parts.name))) {
    CUStringMac here(".", CUString_CharCode_UTF8);
    here.PathAppend(path, whole);
    whole.PathGetFileName(*parts.name);
  }
  whole.PathRemoveLastComponent(*parts.folder);
  whole.PathGetFileNameNoExtension(*parts.nameNoExtension);
  // Of the name, since the last dot of the whole path may belong to a folder.
  parts.name->PathGetExtension(*parts.extension);
  return parts;
}

std::string ComponentsText(CUStringMac& path) {
  CUSharedPtr<CUArray> components;
  if (CUFailed(path.PathComponents(&components))) return std::string();
  std::string text;
  for (unsigned int i = 0; i < components->Count(); ++i) {
    CUSharedPtr<CUObject> const object = components->ObjectAtIndex(i);
    auto* const component = dynamic_cast<CUStringMac*>(object.Get());
    if (component == nullptr) continue;
    if (!text.empty()) text += ", ";
    text += VisibleText(Utf8Of(*component));
  }
  return text;
}
