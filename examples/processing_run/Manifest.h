#pragma once

// The manifest of a run, an XML file with an element for each file that was read and for each
// failure.

#include <QuillmereLib/QuillmereLib.h>

#include <string>
#include <vector>

#include "Failures.h"
#include "FileTask.h"

// The path of the manifest that belongs to a report: with the extension .xml in place of its own.
CUSharedPtr<CUStringMac> ManifestPath(CUStringMac& reportFile);

// Says why no manifest can go to `path`, or gives an empty text: a file that is there already is
// replaced only if it is a manifest, or if `overwrite` is set.
std::string WhyNoManifest(CUSharedPtr<CUStringMac> path, bool overwrite);

// Writes the manifest, loads it again and compares it with the run. Says what went wrong, or gives
// an empty text.
std::string WriteManifest(CUSharedPtr<CUStringMac> path, bool overwrite,
                          std::vector<CUSharedPtr<FileTask>> const& files,
                          std::vector<Failures::Failure> const& failures);
