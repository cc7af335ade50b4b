#pragma once

// All of the CoreServices seam.

#include <CoreServices/FileOperations.h>
#include <CoreServices/Files.h>
#include <CoreServices/MacErrors.h>
#include <CoreServices/UTCUtils.h>
#include <CoreServices/Volumes.h>
