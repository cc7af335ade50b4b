#pragma once

// All of the CoreServices seam.

#include <CoreServices/Files.h>
#include <CoreServices/MacErrors.h>
