#pragma once

// Drives, in a line each.

#include <QuillmereLib/QuillmereLib.h>

#include <string>

// The drive on which the path lies or would lie: "/home: fixed, label "home", 10 of 50 bytes free,
// ready".
std::string DriveText(CUSharedPtr<CUStringMac> path);
