#pragma once

// The output folder, before and after the copying.

#include <string>

#include "Options.h"

// Says why the copies cannot go where `options` want them, or gives an empty text: they never go
// below what is read, and what is recycled holds neither an input nor the report.
std::string WhyNoOutput(Options const& options);

// Sends the output folder to the trash, or says why it could not.
std::string RecycleOutput(CUSharedPtr<CUStringMac> output);
