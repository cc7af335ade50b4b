#pragma once

// The parts of a path, by the path arithmetic of CUStringMac.

#include <QuillmereLib/QuillmereLib.h>

#include <string>

struct PathParts {
  CUSharedPtr<CUStringMac> folder;
  CUSharedPtr<CUStringMac> name;
  CUSharedPtr<CUStringMac> nameNoExtension;
  CUSharedPtr<CUStringMac> extension;  // with its dot; empty where the name has none
};

// A path without a slash counts as one in the folder ".".
PathParts SplitPath(CUStringMac& path);

// The components as visible text, with commas between them.
std::string ComponentsText(CUStringMac& path);
